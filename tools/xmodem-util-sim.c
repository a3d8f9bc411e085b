/* Simulated xmodem-util: "-p FILE" sends FILE to a Brio Mel and reports progress
 * as records with user_message, loaded_size, all_bin_size and status_code.
 * The scenario comes from XMODEM_SIM_* variables (tools/README.md). */
#include "simcommon.h"

#include <sys/stat.h>

static long split_bytes;
static long delay_ms;

static void record(const char *message, long long loaded, long long all, int status)
{
    char text[512];
    snprintf(text, sizeof text,
             "{\"user_message\": \"%s\", \"loaded_size\": %lld, \"all_bin_size\": %lld, \"status_code\": %d}\n",
             message, loaded, all, status);
    emit_split(text, split_bytes, delay_ms);
    sleep_ms(delay_ms);
}

int main(int argc, char **argv)
{
    record_call(getenv("XMODEM_SIM_RECORD"), argc, argv);
    if (argc != 3 || strcmp(argv[1], "-p") != 0) {
        fprintf(stderr, "usage: xmodem-util -p FIRMWARE\n");
        return 64;
    }
    const char *mode = env_str("XMODEM_SIM_MODE", "ok");
    long steps = env_long("XMODEM_SIM_STEPS", 4);
    delay_ms = env_long("XMODEM_SIM_DELAY_MS", 30);
    split_bytes = strcmp(mode, "split") == 0 ? 40 : 0;
    if (steps < 1)
        steps = 1;

    struct stat st;
    if (stat(argv[2], &st) != 0 || !S_ISREG(st.st_mode) || strcmp(mode, "nofile") == 0) {
        record("No firmware file", 0, 0, 1);
        return 1;
    }
    if (strcmp(mode, "nodevice") == 0) {
        record("No device found", 0, 0, 2);
        return 2;
    }
    if (strcmp(mode, "garbage") == 0) {
        emit_split("Opening port...\n", 0, 0);
        sleep_ms(delay_ms);
        emit_split("\x01\x02 garbage {\"status_code\": 6} ###\n", 0, 0);
        sleep_ms(delay_ms);
        emit_split("{\"user_message\": \"half\", \"loaded_size\": -5, \"all_bin_size\": 10, \"status_code\": 6}\n", 0, 0);
        return 0;
    }

    long long size = strcmp(mode, "bigsize") == 0 ? 4294967296LL + st.st_size : (long long)st.st_size;
    if (strcmp(mode, "status3") == 0) {
        record("Waiting for device", 0, size, 3);
        hang_forever();
    }
    for (long i = 0; i < steps; ++i) {
        record("Sending", size * i / steps, size, 0);
        if (strcmp(mode, "hang") == 0)
            hang_forever();
    }
    record("Transfer finished", size, size, 6);
    return 0;
}
