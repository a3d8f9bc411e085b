#!/bin/sh
# Runs a test in a network namespace of its own: the update server's fixed loopback
# ports are free there, whatever else this machine runs.
exec unshare --map-root-user --net sh -c 'ip link set lo up && exec "$@"' sh "$@"
