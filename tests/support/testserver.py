#!/usr/bin/python3
"""A difficult update server for the download tests: testserver.py PORT MODE [BODY]

BODY is a file whose bytes are the list script's answer, as they are.
  answer  - the list is BODY; a file is 4096 bytes
  stall   - the list is BODY; a file announces 100000 bytes, sends half, then nothing
  trickle - the list is BODY, a byte every 3 seconds for 12 seconds, then nothing
  status  - every request ends with HTTP 500
"""
import http.server
import sys
import time

PORT, MODE = int(sys.argv[1]), sys.argv[2]
BODY = open(sys.argv[3], 'rb').read() if len(sys.argv) > 3 else b''


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = 'HTTP/1.1'

    def log_message(self, *args):
        pass

    def do_GET(self):
        if MODE == 'status':
            self.send_error(500)
            return
        listing = 'getFileList.php' in self.path
        body = BODY if listing else bytes(4096 if MODE == 'answer' else 100000)
        self.send_response(200)
        self.send_header('Content-Length', str(len(body)))
        self.end_headers()
        self.wfile.flush()
        if MODE == 'stall' and not listing:
            self.wfile.write(body[:len(body) // 2])
            self.wfile.flush()
            time.sleep(120)
        elif MODE == 'trickle':
            for byte in body[:4]:
                time.sleep(3)
                self.wfile.write(bytes([byte]))
                self.wfile.flush()
            time.sleep(120)
        else:
            self.wfile.write(body)


http.server.ThreadingHTTPServer.daemon_threads = True
server = http.server.ThreadingHTTPServer(('127.0.0.1', PORT), Handler)
server.serve_forever()
