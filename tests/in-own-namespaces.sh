#!/bin/sh
# Runs a test in network and mount namespaces of its own: the update server's fixed
# loopback ports are free there, and the test may mount small file systems as sticks.
exec unshare --map-root-user --net --mount sh -c 'ip link set lo up && exec "$@"' sh "$@"
