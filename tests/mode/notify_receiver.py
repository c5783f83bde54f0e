#!/usr/bin/env python3
"""A phone's event receiver built on Python's standard http.server.

Listens on 127.0.0.1 (port chosen by the system, printed on the first line
of standard output), answers every NOTIFY with 200 OK, and appends what it
received to the file named by the first argument: the request line, each
header as "Name: value", an empty line, then the body's bytes in hex. It
exits by itself after the number of seconds given as the second argument.
"""
import http.server
import sys
import threading


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_NOTIFY(self):
        length = int(self.headers.get("Content-Length") or 0)
        body = self.rfile.read(length)
        with open(self.server.record, "a", encoding="latin-1") as out:
            out.write(self.requestline + "\n")
            for name, value in self.headers.items():
                out.write("%s: %s\n" % (name, value))
            out.write("\n" + body.hex() + "\n")
        self.send_response(200)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def log_message(self, fmt, *args):
        pass


def main():
    server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
    server.record = sys.argv[1]
    lifetime = float(sys.argv[2]) if len(sys.argv) > 2 else 30.0
    threading.Timer(lifetime, server.shutdown).start()
    print(server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()
