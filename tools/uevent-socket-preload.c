/* Lets several tools listen for uevents in one umockdev testbed at once.
 *
 * umockdev's preload library binds a tool's uevent socket to "<testbed>/event<fd>" and
 * unlinks that name first. Two dfu-util runs have their socket on the same fd number,
 * so the second takes the name from the first (which then never hears its device come
 * back after the reset) or fails to bind (libusb: LIBUSB_ERROR_OTHER). Loaded before
 * umockdev's library, this moves each bound socket to "event<fd>-<pid>", which the
 * testbed still finds (it sends to "event[0-9]*"), under a lock all runs share; the
 * emulator sends its uevents under the same lock, so no event meets a socket that is
 * being renamed. Closing such a socket (or ending the process) takes the same lock and
 * removes its name first: umockdev aborts the whole testbed when a socket closes between
 * its connect and its send. */
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

/* The sockets this process renamed: their fds and names. */
#define MAX_SOCKETS 16
static struct {
    int fd;
    char path[sizeof(((struct sockaddr_un *)0)->sun_path)];
} owned[MAX_SOCKETS];
static int ownedCount;

/* patienceMs < 0: as long as it takes. A closing socket waits a second at most: the
 * sender may itself wait for a full socket queue that only this process would read. */
static int lockTestbed(const char *testbed, int patienceMs)
{
    char lockPath[sizeof(((struct sockaddr_un *)0)->sun_path)];
    snprintf(lockPath, sizeof lockPath, "%s/.event-lock", testbed);
    const int lock = open(lockPath, O_RDONLY | O_CREAT | O_CLOEXEC, 0666);
    if (lock < 0 || patienceMs < 0) {
        if (lock >= 0)
            flock(lock, LOCK_EX);
        return lock;
    }
    for (int waited = 0; flock(lock, LOCK_EX | LOCK_NB) != 0 && waited < patienceMs; waited += 5)
        usleep(5000);
    return lock;
}

static int (*nextClose)(int);

/* Removes the socket's name and closes it under the lock; -2 if it is not one of ours. */
static int closeOwned(int fd)
{
    const char *testbed = getenv("UMOCKDEV_DIR");
    for (int i = 0; i < ownedCount; ++i) {
        if (owned[i].fd != fd)
            continue;
        const int lock = testbed ? lockTestbed(testbed, 1000) : -1;
        unlink(owned[i].path);
        if (!nextClose)
            nextClose = (int (*)(int))dlsym(RTLD_NEXT, "close");
        const int result = nextClose(fd);
        const int savedErrno = errno;
        owned[i] = owned[--ownedCount];
        if (lock >= 0)
            nextClose(lock);
        errno = savedErrno;
        return result;
    }
    return -2;
}

int close(int fd)
{
    const int result = ownedCount > 0 ? closeOwned(fd) : -2;
    if (result != -2)
        return result;
    if (!nextClose)
        nextClose = (int (*)(int))dlsym(RTLD_NEXT, "close");
    return nextClose(fd);
}

/* A process that ends without closing its socket: the same, at its exit. */
__attribute__((destructor)) static void closeAllOwned(void)
{
    while (ownedCount > 0)
        closeOwned(owned[ownedCount - 1].fd);
}

int bind(int fd, const struct sockaddr *address, socklen_t length)
{
    static int (*next)(int, const struct sockaddr *, socklen_t);
    if (!next)
        next = (int (*)(int, const struct sockaddr *, socklen_t))dlsym(RTLD_NEXT, "bind");
    const char *testbed = getenv("UMOCKDEV_DIR");
    if (!testbed || !address || address->sa_family != AF_NETLINK)
        return next(fd, address, length);

    const int lock = lockTestbed(testbed, -1);
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
        if (rename(wanted, own) == 0 && ownedCount < MAX_SOCKETS) {
            owned[ownedCount].fd = fd;
            snprintf(owned[ownedCount].path, sizeof owned[ownedCount].path, "%s", own);
            ++ownedCount;
        }
    }
    if (lock >= 0)
        close(lock); /* releases the lock */
    errno = savedErrno;
    return result;
}
