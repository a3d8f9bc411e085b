#!/usr/bin/python3
"""A difficult update server for the download tests: testserver.py PORT MODE [BODY [CERT KEY]]

BODY is a file whose bytes are the list script's answer, as they are. With CERT and
KEY (PEM files) it speaks HTTPS.
  answer  - the list is BODY; a file is 4096 bytes
  stall   - the list is BODY; a file announces 100000 bytes, sends half, then nothing
  trickle - the list is BODY, a byte every 3 seconds for 12 seconds, then nothing
  silent  - headers for everything, then nothing
  status  - every request ends with HTTP 500
  redirect - every request is sent on to the URL in BODY
"""
import http.server
import ssl
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
        if MODE == 'redirect':
            self.send_response(302)
            self.send_header('Location', BODY.decode().strip())
            self.send_header('Content-Length', '0')
            self.end_headers()
            return
        listing = 'getFileList.php' in self.path
        body = BODY if listing else bytes(4096 if MODE == 'answer' else 100000)
        self.send_response(200)
        self.send_header('Content-Length', str(len(body)))
        self.end_headers()
        self.wfile.flush()
        if MODE == 'silent' or (MODE == 'stall' and not listing):
            self.wfile.write(body[:len(body) // 2] if MODE == 'stall' else b'')
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
if len(sys.argv) > 5:
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(sys.argv[4], sys.argv[5])
    server.socket = context.wrap_socket(server.socket, server_side=True)
server.serve_forever()
