/* Lets several tools listen for uevents in one umockdev testbed at once.
 *
 * umockdev's preload library binds a tool's uevent socket to "<testbed>/event<fd>" and
 * unlinks that name first. Two dfu-util runs have their socket on the same fd number,
 * so the second takes the name from the first (which then never hears its device come
 * back after the reset) or fails to bind (libusb: LIBUSB_ERROR_OTHER). Loaded before
 * umockdev's library, this moves each bound socket to "event<fd>-<pid>", which the
 * testbed still finds (it sends to "event[0-9]*"), under a lock all runs share; the
 * emulator sends its uevents under the same lock, so no event meets a socket that is
 * being renamed. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

int bind(int fd, const struct sockaddr *address, socklen_t length)
{
    static int (*next)(int, const struct sockaddr *, socklen_t);
    if (!next)
        next = (int (*)(int, const struct sockaddr *, socklen_t))dlsym(RTLD_NEXT, "bind");
    const char *testbed = getenv("UMOCKDEV_DIR");
    if (!testbed || !address || address->sa_family != AF_NETLINK)
        return next(fd, address, length);

    char lockPath[sizeof(((struct sockaddr_un *)0)->sun_path)];
    snprintf(lockPath, sizeof lockPath, "%s/.event-lock", testbed);
    const int lock = open(lockPath, O_RDONLY | O_CREAT | O_CLOEXEC, 0666);
    if (lock >= 0)
        flock(lock, LOCK_EX);
    const int result = next(fd, address, length);
    const int savedErrno = errno;
    struct sockaddr_un bound;
    socklen_t boundLength = sizeof bound;
    char wanted[sizeof bound.sun_path];
    snprintf(wanted, sizeof wanted, "%s/event%d", testbed, fd);
    if (result == 0 && getsockname(fd, (struct sockaddr *)&bound, &boundLength) == 0
        && bound.sun_family == AF_UNIX && strcmp(bound.sun_path, wanted) == 0) {
        char own[sizeof bound.sun_path];
        snprintf(own, sizeof own, "%s/event%d-%d", testbed, fd, (int)getpid());
        rename(wanted, own);
    }
    if (lock >= 0)
        close(lock); /* releases the lock */
    errno = savedErrno;
    return result;
}
