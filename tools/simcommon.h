/* Small helpers shared by the device-tool simulators. */
#ifndef SIMCOMMON_H
#define SIMCOMMON_H

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

static inline long env_long(const char *name, long fallback)
{
    const char *v = getenv(name);
    if (v == NULL || *v == '\0')
        return fallback;
    return strtol(v, NULL, 10);
}

static inline const char *env_str(const char *name, const char *fallback)
{
    const char *v = getenv(name);
    return v == NULL ? fallback : v;
}

static inline void sleep_ms(long ms)
{
    if (ms <= 0)
        return;
    struct timespec ts = {ms / 1000, (ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

static inline void write_fd(int fd, const char *data, size_t len)
{
    while (len > 0) {
        ssize_t n = write(fd, data, len);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            exit(120);
        }
        data += n;
        len -= (size_t)n;
    }
}

static inline void write_all(const char *data, size_t len)
{
    write_fd(STDOUT_FILENO, data, len);
}

/* One record or mark in one write, or in pieces of `split` bytes when a scenario
 * wants the reader to see it torn apart. */
static inline void emit_split_fd(int fd, const char *text, long split, long pause_ms)
{
    size_t len = strlen(text);
    if (split <= 0 || (size_t)split >= len) {
        write_fd(fd, text, len);
        return;
    }
    for (size_t off = 0; off < len; off += (size_t)split) {
        size_t piece = len - off < (size_t)split ? len - off : (size_t)split;
        write_fd(fd, text + off, piece);
        sleep_ms(pause_ms);
    }
}

static inline void emit_split(const char *text, long split, long pause_ms)
{
    emit_split_fd(STDOUT_FILENO, text, split, pause_ms);
}

static inline void hang_forever(void)
{
    for (;;)
        pause();
}

/* Appends the call's arguments, tab separated, as one line; returns the 1-based
 * number of this call (lines already in the file + 1), or 1 without a record file. */
static inline long record_call(const char *path, int argc, char **argv)
{
    if (path == NULL || *path == '\0')
        return 1;
    long calls = 1;
    FILE *in = fopen(path, "r");
    if (in != NULL) {
        int c;
        while ((c = fgetc(in)) != EOF)
            if (c == '\n')
                ++calls;
        fclose(in);
    }
    FILE *out = fopen(path, "a");
    if (out != NULL) {
        for (int i = 1; i < argc; ++i)
            fprintf(out, "%s%s", i > 1 ? "\t" : "", argv[i]);
        fputc('\n', out);
        fclose(out);
    }
    return calls;
}

#endif
