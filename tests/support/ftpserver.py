#!/usr/bin/python3
"""FTP server for the download tests: ftpserver.py PORT ROOT USER PASSWORD MODE
  normal - pyftpdlib serving ROOT to the one account
  stall  - the same, but a transfer stops after its first 64 KiB
  silent - accepts connections and never says a word
"""
import socket
import sys
import time

PORT, ROOT, USER, PASSWORD, MODE = int(sys.argv[1]), sys.argv[2], sys.argv[3], sys.argv[4], sys.argv[5]

if MODE == 'silent':
    server = socket.create_server(('127.0.0.1', PORT))
    clients = []
    while True:
        clients.append(server.accept()[0])

from pyftpdlib.authorizers import DummyAuthorizer
from pyftpdlib.handlers import DTPHandler, FTPHandler
from pyftpdlib.servers import FTPServer


class StallingDTPHandler(DTPHandler):
    """Sends the first 64 KiB of a file, then nothing more."""
    def send(self, data):
        sent = super().send(data)
        self.sent_so_far = getattr(self, 'sent_so_far', 0) + sent
        return sent

    def writable(self):
        return getattr(self, 'sent_so_far', 0) < 65536 and super().writable()


authorizer = DummyAuthorizer()
authorizer.add_user(USER, PASSWORD, ROOT, perm='elr')
handler = FTPHandler
handler.authorizer = authorizer
if MODE == 'stall':
    handler.dtp_handler = StallingDTPHandler
    handler.use_sendfile = False
FTPServer(('127.0.0.1', PORT), handler).serve_forever()
