/* Simulated dfu-util of the 0.5-0.7 line: prints what the field's tool prints for
 * "-l" and for a download, with its scenario taken from DFU_SIM_* variables
 * (tools/README.md).
 *
 * Like the real tool it writes standard output through a stdio-sized buffer into
 * the pipe: everything up to "Starting download: [" reaches the reader in one piece,
 * each group of hash marks is flushed after its transfer, and error lines go to
 * standard error at once, ahead of whatever standard output still holds. */
#include "simcommon.h"

#include <sys/stat.h>

static char outbuf[8192];
static size_t outlen;
static long split_bytes;

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
    size_t len = strlen(text);
    while (len > 0) {
        ssize_t n = write(STDERR_FILENO, text, len);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            exit(120);
        }
        text += n;
        len -= (size_t)n;
    }
}

static void finish(int code)
{
    flush_out();
    exit(code);
}

static void hang(void)
{
    flush_out();
    hang_forever();
}

static void header(void)
{
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
    if (*rev != '\0')
        snprintf(line, sizeof line,
                 "Found Runtime: [2675:0001] devnum=0, cfg=1, intf=0, alt=0, name=\"%s\", rev=\"%s\"\n", name, rev);
    else
        snprintf(line, sizeof line, "Found Runtime: [2675:0001] devnum=0, cfg=1, intf=0, alt=0, name=\"%s\"\n",
                 name);
    out(line);
}

/* The error line of the scenario, on standard error, then the end of the run. */
static void fail(const char *error, int exit_code)
{
    err(error);
    err("\n");
    finish(exit_code);
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
    /* The tool ends with 1 after an error; old versions said 0 all the same. */
    int error_exit = getenv("DFU_SIM_EXIT") && faulty ? (int)env_long("DFU_SIM_EXIT", 1) : 1;
    int good_exit = getenv("DFU_SIM_EXIT") && faulty && *error == '\0' ? (int)env_long("DFU_SIM_EXIT", 0) : 0;

    if (faulty && env_long("DFU_SIM_SILENT", 0))
        return good_exit;
    if (list) {
        if (env_long("DFU_SIM_LIST_HANG", 0))
            hang_forever();
        header();
        if (strcmp(device, "absent") == 0)
            err("No DFU capable USB device found\n");
        else if (strcmp(device, "present") == 0)
            found_line();
        finish(0);
    }

    header();
    if (file == NULL) {
        err("You need to specify one of -D or -U\n");
        finish(1);
    }
    out("Search for DFU USB device\n");
    if (hang_at == -2)
        hang();
    if (strcmp(device, "present") != 0)
        fail("No DFU capable USB device found", error_exit);
    found_line();
    if (*error != '\0' && error_at < 0)
        fail(error, error_exit);

    struct stat st;
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
