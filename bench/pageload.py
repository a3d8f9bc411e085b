#!/usr/bin/python3
"""Asks a station's page for PATH as fast as it answers, over kept-alive connections, from
THREADS threads per path, until SECONDS have passed; prints each path's requests per second.

    pageload.py PORT SECONDS THREADS PATH...
"""
import http.client
import signal
import sys
import threading
import time

port, seconds, threads = int(sys.argv[1]), float(sys.argv[2]), int(sys.argv[3])
paths = sys.argv[4:]
counts = {path: 0 for path in paths}
failures = {path: 0 for path in paths}
lock = threading.Lock()
end = time.monotonic() + seconds


def stop(*_):
    # SIGINT or SIGTERM: the threads end after their request, and the figures are printed.
    global end
    end = 0


signal.signal(signal.SIGINT, stop)
signal.signal(signal.SIGTERM, stop)


def ask(path):
    done = failed = 0
    connection = http.client.HTTPConnection('127.0.0.1', port, timeout=10)
    while time.monotonic() < end:
        try:
            connection.request('GET', path, headers={'Host': '127.0.0.1:%d' % port})
            reply = connection.getresponse()
            reply.read()
            if reply.status == 200:
                done += 1
            else:
                failed += 1
        except (OSError, http.client.HTTPException):
            failed += 1
            connection.close()
            connection = http.client.HTTPConnection('127.0.0.1', port, timeout=10)
    with lock:
        counts[path] += done
        failures[path] += failed


started = time.monotonic()
workers = [threading.Thread(target=ask, args=(path,)) for path in paths for _ in range(threads)]
for worker in workers:
    worker.start()
for worker in workers:
    while worker.is_alive():
        worker.join(0.1)
took = time.monotonic() - started
for path in paths:
    print('%s %.0f %d' % (path, counts[path] / took, failures[path]))
