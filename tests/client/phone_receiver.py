#!/usr/bin/env python3
"""A phone's push receiver made of Python's standard http.server, for the
interop test: it speaks HTTP/1.1, answers "Expect: 100-continue" with
"100 Continue" by itself (BaseHTTPRequestHandler.handle_expect_100), stores
each POSTed body under the last path segment in the given directory and
answers 200. It listens on 127.0.0.1 at a port the system picks, prints that
port on its first line of output, and serves until it is stopped or has been
idle for the given number of seconds.

usage: phone_receiver.py OUT_DIR [IDLE_SECONDS]
"""
import os
import sys
from http.server import BaseHTTPRequestHandler, HTTPServer


class Receiver(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_POST(self):
        length = int(self.headers.get("Content-Length", "0"))
        name = os.path.basename(self.path.rstrip("/")) or "unnamed"
        remaining = length
        with open(os.path.join(self.server.out_dir, name + ".part"), "wb") as f:
            while remaining > 0:
                chunk = self.rfile.read(min(remaining, 65536))
                if not chunk:
                    break
                f.write(chunk)
                remaining -= len(chunk)
        if remaining:
            self.close_connection = True
            return
        os.rename(os.path.join(self.server.out_dir, name + ".part"), os.path.join(self.server.out_dir, name))
        with open(os.path.join(self.server.out_dir, name + ".head"), "w") as f:
            f.write(self.requestline + "\n" + str(self.headers))
        self.send_response(200)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def log_message(self, fmt, *args):
        sys.stderr.write("phone_receiver: " + (fmt % args) + "\n")


class Server(HTTPServer):
    idle = 0.0

    def handle_timeout(self):
        self.idle += self.timeout

    def finish_request(self, request, client_address):
        self.idle = 0.0
        super().finish_request(request, client_address)


def main():
    out_dir = sys.argv[1]
    limit = float(sys.argv[2]) if len(sys.argv) > 2 else 60.0
    server = Server(("127.0.0.1", 0), Receiver)
    server.out_dir = out_dir
    server.timeout = 0.5
    print(server.server_address[1], flush=True)
    while server.idle < limit:
        server.handle_request()
    server.server_close()


if __name__ == "__main__":
    main()
