/* Simulated dfu-util of the 0.5-0.7 line: prints what the field's tool prints for
 * "-l" and for a download, with its scenario taken from DFU_SIM_* variables
 * (tools/README.md). */
#include "simcommon.h"

#include <sys/stat.h>

static long split_bytes;
static long pause_ms;

static void say(const char *text)
{
    emit_split(text, split_bytes, pause_ms);
    sleep_ms(pause_ms);
}

static void header(void)
{
    say("dfu-util 0.7\n"
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
    say(line);
}

int main(int argc, char **argv)
{
    int list = 0;
    const char *file = NULL;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "-l") == 0 || strcmp(argv[i], "--list") == 0)
            list = 1;
        else if (strcmp(argv[i], "-D") == 0 && i + 1 < argc)
            file = argv[++i];
        else if ((strcmp(argv[i], "-d") == 0 || strcmp(argv[i], "-t") == 0) && i + 1 < argc)
            ++i; /* value in its own argument */
        /* "-d 0x2675:0x0001" and "-t 64" in one argument need nothing more. */
    }

    long call = record_call(getenv("DFU_SIM_RECORD"), argc, argv);
    long fault_call = env_long("DFU_SIM_FAULT_CALL", 0);
    int faulty = fault_call == 0 || fault_call == call;
    int exit_code = faulty ? (int)env_long("DFU_SIM_EXIT", 0) : 0;
    split_bytes = env_long("DFU_SIM_SPLIT", 0);
    pause_ms = env_long("DFU_SIM_PAUSE_MS", 2);
    const char *device = env_str("DFU_SIM_DEVICE", "present");
    const char *error = faulty ? env_str("DFU_SIM_ERROR", "") : "";
    long error_at = env_long("DFU_SIM_ERROR_AT", -1);
    long hang_at = faulty ? env_long("DFU_SIM_HANG_AT", -1) : -1;

    if (faulty && env_long("DFU_SIM_SILENT", 0))
        return exit_code;
    if (list) {
        if (env_long("DFU_SIM_LIST_HANG", 0))
            hang_forever();
        header();
        if (strcmp(device, "absent") == 0)
            say("No DFU capable USB device found\n");
        else if (strcmp(device, "present") == 0)
            found_line();
        return exit_code;
    }

    if (file == NULL) {
        header();
        say("You need to specify one of -D or -U\n");
        return 1;
    }

    header();
    say("Search for DFU USB device\n");
    if (hang_at == -2)
        hang_forever();
    if (strcmp(device, "present") != 0) {
        say("No DFU capable USB device found\n");
        return faulty && getenv("DFU_SIM_EXIT") ? exit_code : 1;
    }
    found_line();

    struct stat st;
    if (stat(file, &st) != 0 || !S_ISREG(st.st_mode)) {
        char line[4200];
        snprintf(line, sizeof line, "dfu-util: Could not open file %.4000s for reading\n", file);
        say(line);
        return 1;
    }
    if (*error != '\0' && error_at < 0) {
        say(error);
        say("\n");
        return exit_code;
    }

    char line[128];
    snprintf(line, sizeof line, "bytes_per_hash=%lld\n", (long long)(st.st_size / 50 > 0 ? st.st_size / 50 : 1));
    say(line);
    say("Copying data from PC to DFU device\n");
    say("Starting download: [");

    long total_ms = env_long("DFU_SIM_HASH_MS", 200);
    long group = env_long("DFU_SIM_GROUP", 5);
    if (group < 1)
        group = 1;
    char marks[64];
    for (long done = 0; done < 50;) {
        if (done == hang_at)
            hang_forever();
        if (*error != '\0' && done == error_at) {
            say("\n");
            say(error);
            say("\n");
            return exit_code;
        }
        long n = group;
        if (n > 50 - done)
            n = 50 - done;
        if (hang_at > done && hang_at < done + n)
            n = hang_at - done;
        if (*error != '\0' && error_at > done && error_at < done + n)
            n = error_at - done;
        memset(marks, '#', (size_t)n);
        marks[n] = '\0';
        emit_split(marks, split_bytes, pause_ms);
        done += n;
        sleep_ms(total_ms * n / 50);
    }
    if (hang_at >= 50)
        hang_forever();
    say("] finished!\n");
    if (*error != '\0' && error_at >= 50) {
        say(error);
        say("\n");
        return exit_code;
    }
    say("state(2) = dfuIDLE, status(0) = No error condition is present\n");
    say("Done!\n");
    return exit_code;
}
