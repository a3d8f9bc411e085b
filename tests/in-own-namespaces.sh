#!/bin/sh
# Runs a test in network and mount namespaces of its own: the update server's fixed
# loopback ports are free there, the test may mount small file systems as sticks, and
# the machine's port locks (/run/lock) are the test's own, apart from other runs'.
# Root needs no user namespace, and keeps every user id (a tool may run as another user).
if [ "$(id -u)" -eq 0 ]; then
    user=""
else
    user="--map-root-user"
fi
exec unshare $user --net --mount sh -c \
    'ip link set lo up && { mount -t tmpfs -o size=1m tmpfs /run/lock 2>/dev/null || true; } && exec "$@"' sh "$@"
