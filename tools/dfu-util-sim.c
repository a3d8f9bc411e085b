/* Simulated dfu-util: prints what the field's tool (the 0.5-0.7 line) prints for "-l"
 * and for a download, or with DFU_SIM_DIALECT=0.11 what Debian's dfu-util 0.9-0.11
 * prints, with its scenario taken from DFU_SIM_* variables (tools/README.md).
 *
 * The old tool writes standard output through a stdio-sized buffer into the pipe:
 * everything up to "Starting download: [" reaches the reader in one piece, each group
 * of hash marks is flushed after its transfer, and error lines go to standard error
 * at once, ahead of whatever standard output still holds.
 *
 * The newer tool's standard output is unbuffered: every printf is a write of its own,
 * the progress bar is redrawn after "\r" when it grows or a second has passed, and an
 * error is "dfu-util: ", the text and "\n" in three writes to standard error. */
#include "simcommon.h"

#include <signal.h>
#include <sys/stat.h>

static char outbuf[8192];
static size_t outlen;
static long split_bytes;
static int newer; /* dfu-util 0.9 to 0.11 */

static void flush_out(void)
{
    if (outlen == 0)
        return;
    outbuf[outlen] = '\0';
    emit_split(outbuf, split_bytes, 2);
    outlen = 0;
}

static void out(const char *text)
{
    size_t len = strlen(text);
    if (newer) {
        emit_split(text, split_bytes, 2);
        return;
    }
    if (outlen + len >= sizeof outbuf)
        flush_out();
    if (len >= sizeof outbuf) {
        write_all(text, len);
        return;
    }
    memcpy(outbuf + outlen, text, len);
    outlen += len;
}

/* Standard error is unbuffered: the line overtakes buffered standard output. */
static void err(const char *text)
{
    emit_split_fd(STDERR_FILENO, text, split_bytes, 2);
}

static void finish(int code)
{
    flush_out();
    /* 128 + N, as a shell reports it: ended by signal N, as a killed or crashed tool. */
    if (code > 128 && code < 128 + 32) {
        signal(code - 128, SIG_DFL);
        raise(code - 128);
    }
    exit(code);
}

static void hang(void)
{
    flush_out();
    hang_forever();
}

/* The newer tool's warnx() and errx(). */
static void warn_line(const char *text)
{
    err("dfu-util: ");
    err(text);
    err("\n");
}

static void header(void)
{
    if (newer) {
        out("dfu-util 0.11\n");
        out("\n");
        out("Copyright 2005-2009 Weston Schmidt, Harald Welte and OpenMoko Inc.\n"
            "Copyright 2010-2021 Tormod Volden and Stefan Schmidt\n"
            "This program is Free Software and has ABSOLUTELY NO WARRANTY\n"
            "Please report bugs to http://sourceforge.net/p/dfu-util/tickets/\n");
        out("\n");
        return;
    }
    out("dfu-util 0.7\n"
        "\n"
        "Copyright 2005-2008 Weston Schmidt, Harald Welte and OpenMoko Inc.\n"
        "Copyright 2010-2012 Tormod Volden and Stefan Schmidt\n"
        "This program is Free Software and has ABSOLUTELY NO WARRANTY\n"
        "Please report bugs to dfu-util@lists.gnumonks.org\n"
        "\n");
}

static void found_line(void)
{
    char line[512];
    const char *name = env_str("DFU_SIM_NAME", "V1_2_3");
    const char *rev = env_str("DFU_SIM_REV", "");
    if (newer) /* knows no revision */
        snprintf(line, sizeof line,
                 "Found Runtime: [2675:0001] ver=0100, devnum=5, cfg=1, intf=0, path=\"1-1\", alt=0, name=\"%s\", "
                 "serial=\"UNKNOWN\"\n",
                 name);
    else if (*rev != '\0')
        snprintf(line, sizeof line,
                 "Found Runtime: [2675:0001] devnum=0, cfg=1, intf=0, alt=0, name=\"%s\", rev=\"%s\"\n", name, rev);
    else
        snprintf(line, sizeof line, "Found Runtime: [2675:0001] devnum=0, cfg=1, intf=0, alt=0, name=\"%s\"\n",
                 name);
    out(line);
}

/* The error line of the scenario, on standard error, then the end of the run. "killed"
 * ends it there by SIGKILL, with no word at all, as the kernel's OOM killer does. */
static void fail(const char *error, int exit_code)
{
    if (strcmp(error, "killed") == 0) {
        flush_out();
        raise(SIGKILL);
    }
    if (newer) {
        warn_line(error);
    } else {
        err(error);
        err("\n");
    }
    finish(exit_code);
}

/* The newer tool's bar: drawn again only when it grows by a step or a second has passed. */
static void progress_bar(long long curr, long long max)
{
    enum { WIDTH = 25 };
    static long long last_steps = -1;
    static time_t last_time;
    time_t now = time(NULL);
    if (max < curr)
        max = curr + 1;
    if (max == 0)
        max = 1;
    long long steps = WIDTH * curr / max;
    if (steps == last_steps && now == last_time)
        return;
    last_steps = steps;
    last_time = now;
    char bar[WIDTH + 1], line[128];
    for (int i = 0; i < WIDTH; ++i)
        bar[i] = i < steps ? '=' : ' ';
    bar[WIDTH] = '\0';
    snprintf(line, sizeof line, "\r%s\t[%s] %3llu%% %12llu bytes", "Download", bar,
             (unsigned long long)(100 * curr / max), (unsigned long long)curr);
    out(line);
    if (steps == WIDTH)
        out("\nDownload done.\n");
}

/* From the file's opening to the end of its transfers, in the newer tool's words.
 * Marks of the scenario (error or hang after N) count in fiftieths of the file. */
static void newer_download(long long size, long xfer, const char *error, long error_at, long hang_at, int error_exit)
{
    out("Device ID 2675:0001\n");
    out("Run-Time device DFU version 0110\n");
    out("Claiming USB DFU (Run-Time) Interface...\n");
    out("Setting Alternate Interface zero...\n");
    out("Determining device status...\n");
    out("DFU state(0) = appIDLE, status(0) = No error condition is present\n");
    out("Device really in Run-Time Mode, send DFU detach request...\n");
    out("Device will detach and reattach...\n");
    out("Opening DFU USB Device...\n");
    out("Claiming USB DFU Interface...\n");
    out("Setting Alternate Interface #0 ...\n");
    out("Determining device status...\n");
    out("DFU state(2) = dfuIDLE, status(0) = No error condition is present\n");
    out("DFU mode device DFU version 0110\n");
    out("Device returned transfer size 64\n");
    if (xfer != 64)
        warn_line("Warning: Overriding device-reported transfer size");
    out("Copying data from PC to DFU device\n");
    progress_bar(0, 1);

    long total_ms = env_long("DFU_SIM_HASH_MS", 200);
    int error_midway = *error != '\0' && error_at >= 0 && error_at < 50;
    long long sent = 0;
    double owed_ms = 0;
    while (sent < size) {
        long long piece = size - sent < xfer ? size - sent : xfer;
        if (hang_at >= 0 && (sent + piece) * 50 > hang_at * size) {
            flush_out();
            hang_forever();
        }
        if (error_midway && (sent + piece) * 50 > error_at * size)
            fail(error, error_exit);
        sent += piece;
        progress_bar(sent, size);
        owed_ms += size > 0 ? (double)total_ms * (double)piece / (double)size : 0;
        if (owed_ms >= 1) {
            sleep_ms((long)owed_ms);
            owed_ms -= (long)owed_ms;
        }
    }
    progress_bar(sent, sent);
    if (hang_at >= 0)
        hang_forever();
    if (*error != '\0')
        fail(error, error_exit);
    out("DFU state(7) = dfuMANIFEST, status(0) = No error condition is present\n");
    out("Done!\n");
}

int main(int argc, char **argv)
{
    int list = 0;
    const char *file = NULL;
    long xfer = 1024;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "-l") == 0 || strcmp(argv[i], "--list") == 0)
            list = 1;
        else if (strcmp(argv[i], "-D") == 0 && i + 1 < argc)
            file = argv[++i];
        else if (strcmp(argv[i], "-t") == 0 && i + 1 < argc)
            xfer = strtol(argv[++i], NULL, 10);
        else if (strncmp(argv[i], "-t ", 3) == 0)
            xfer = strtol(argv[i] + 3, NULL, 10);
        else if (strcmp(argv[i], "-d") == 0 && i + 1 < argc)
            ++i; /* "-d 0x2675:0x0001" in one argument needs nothing more */
    }
    if (xfer < 1)
        xfer = 1024;

    newer = strcmp(env_str("DFU_SIM_DIALECT", "0.7"), "0.11") == 0;
    long call = record_call(getenv("DFU_SIM_RECORD"), argc, argv);
    long fault_call = env_long("DFU_SIM_FAULT_CALL", 0);
    int faulty = fault_call == 0 || fault_call == call;
    split_bytes = env_long("DFU_SIM_SPLIT", 0);
    const char *device = env_str("DFU_SIM_DEVICE", "present");
    /* A control file, when set, says at each call whether the device is plugged in. */
    char plugged[32];
    FILE *control = getenv("DFU_SIM_DEVICE_FILE") ? fopen(getenv("DFU_SIM_DEVICE_FILE"), "r") : NULL;
    if (control != NULL) {
        if (fgets(plugged, sizeof plugged, control) != NULL) {
            plugged[strcspn(plugged, " \r\n")] = '\0';
            device = plugged;
        }
        fclose(control);
    }
    const char *error = faulty ? env_str("DFU_SIM_ERROR", "") : "";
    long error_at = env_long("DFU_SIM_ERROR_AT", -1);
    long hang_at = faulty ? env_long("DFU_SIM_HANG_AT", -1) : -1;
    /* The old tool ends with 1 after an error (its oldest versions said 0 all the same),
     * the newer one with EX_IOERR. */
    int own_error_exit = newer ? 74 : 1;
    int error_exit = getenv("DFU_SIM_EXIT") && faulty ? (int)env_long("DFU_SIM_EXIT", own_error_exit) : own_error_exit;
    int good_exit = getenv("DFU_SIM_EXIT") && faulty && *error == '\0' ? (int)env_long("DFU_SIM_EXIT", 0) : 0;

    if (faulty && env_long("DFU_SIM_SILENT", 0))
        return good_exit;
    if (list) {
        if (env_long("DFU_SIM_LIST_HANG", 0))
            hang_forever();
        header();
        if (strcmp(device, "absent") == 0 && !newer)
            err("No DFU capable USB device found\n");
        else if (strcmp(device, "present") == 0)
            found_line();
        finish(0);
    }

    header();
    if (file == NULL) {
        if (newer)
            warn_line("You need to specify one of -D or -U");
        else
            err("You need to specify one of -D or -U\n");
        finish(newer ? 64 : 1);
    }
    struct stat st;
    if (newer) {
        /* The newer tool reads the file and its suffix before it looks for the device. */
        if (stat(file, &st) != 0 || !S_ISREG(st.st_mode)) {
            char line[4200];
            snprintf(line, sizeof line, "Could not open file %.4000s for reading: No such file or directory", file);
            fail(line, 66);
        }
        warn_line(st.st_size < 16 ? "Warning: File too short for DFU suffix" : "Warning: Invalid DFU suffix signature");
        warn_line("A valid DFU suffix will be required in a future dfu-util release");
        if (hang_at == -2)
            hang();
        if (strcmp(device, "present") != 0)
            fail("No DFU capable USB device available", error_exit);
        out("Opening DFU capable USB device...\n");
        if (*error != '\0' && error_at < 0)
            fail(error, error_exit);
        newer_download((long long)st.st_size, xfer, error, error_at, hang_at, error_exit);
        finish(good_exit);
    }
    out("Search for DFU USB device\n");
    if (hang_at == -2)
        hang();
    if (strcmp(device, "present") != 0)
        fail("No DFU capable USB device found", error_exit);
    found_line();
    if (*error != '\0' && error_at < 0)
        fail(error, error_exit);

    if (stat(file, &st) != 0 || !S_ISREG(st.st_mode)) {
        char line[4200];
        snprintf(line, sizeof line, "dfu-util: Could not open file %.4000s for reading", file);
        fail(line, 1);
    }
    out("Claiming USB DFU Interface...\n");
    out("Setting Alternate Setting #0 ...\n");
    out("Determining device status: state = dfuIDLE, status = 0\n");
    out("dfuIDLE, continuing\n");
    out("DFU mode device DFU version 0110\n");

    long long size = (long long)st.st_size;
    long long per_hash = size / 50 > 0 ? size / 50 : 1;
    char line[128];
    snprintf(line, sizeof line, "bytes_per_hash=%lld\n", per_hash);
    out(line);
    out("Copying data from PC to DFU device\n");
    out("Starting download: [");
    flush_out();

    /* One transfer of xfer bytes after the other; after each the marks now due are
     * printed and flushed, so their number per write follows the transfer size. */
    long total_ms = env_long("DFU_SIM_HASH_MS", 200);
    long long sent = 0, hashes = 0;
    double owed_ms = 0;
    char marks[4097];
    while (sent < size) {
        long long piece = size - sent < xfer ? size - sent : xfer;
        sent += piece;
        owed_ms += size > 0 ? (double)total_ms * (double)piece / (double)size : 0;
        long long todo = sent / per_hash - hashes;
        if (hang_at >= 0 && hashes + todo > hang_at)
            todo = hang_at > hashes ? hang_at - hashes : 0;
        /* An error at 50 or more comes after "] finished!", whatever the mark count. */
        int error_midway = *error != '\0' && error_at >= 0 && error_at < 50;
        if (error_midway && hashes + todo > error_at)
            todo = error_at > hashes ? error_at - hashes : 0;
        while (todo > 0) {
            long long n = todo < 4096 ? todo : 4096;
            memset(marks, '#', (size_t)n);
            marks[n] = '\0';
            out(marks);
            todo -= n;
            hashes += n;
        }
        flush_out();
        if (owed_ms >= 1) {
            sleep_ms((long)owed_ms);
            owed_ms -= (long)owed_ms;
        }
        if (hang_at >= 0 && hashes >= hang_at)
            hang();
        if (error_midway && hashes >= error_at)
            fail(error, error_exit);
    }
    if (hang_at >= 0)
        hang();
    out("] finished!\n");
    flush_out();
    if (*error != '\0')
        fail(error, error_exit);
    out("state(2) = dfuIDLE, status(0) = No error condition is present\n");
    out("Done!\n");
    finish(good_exit);
    return 0;
}
