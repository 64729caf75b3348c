"""file_server.py FOLDER: serves a folder, for demonstrations, on a free loopback port that it prints.

GET /NAME sends the file NAME of the folder, PUT /NAME stores one there. GET /cut/NAME hangs up after
500000 bytes; it knows ranges, and tells on standard output which bytes it has sent. GET /endless says
so on standard output, and sends a little at a time until the client hangs up.
"""

import contextlib
import http.server
import pathlib
import re
import sys
import time


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_GET(self):
        if self.path == "/endless":
            self.send_endlessly()
        elif self.file().is_file() and self.path.startswith("/cut/"):
            self.send_and_hang_up(self.file().read_bytes())
        elif self.file().is_file():
            self.answer(200, self.file().read_bytes())
        else:
            self.answer(404, b"")

    def do_PUT(self):
        self.file().write_bytes(self.body())
        self.answer(201, b"")

    def send_and_hang_up(self, body):
        wanted = re.fullmatch(r"bytes=(\d+)-", self.headers.get("Range", ""))
        first = int(wanted[1]) if wanted else 0
        self.send_response(206 if wanted else 200)
        if wanted:
            self.send_header("Content-Range", f"bytes {first}-{len(body) - 1}/{len(body)}")
        self.send_header("Content-Length", str(len(body) - first))
        self.send_header("ETag", '"demonstration"')
        self.end_headers()
        sent = body[first : first + 500000]
        self.wfile.write(sent)
        self.close_connection = True
        print(f"sent {first} {first + len(sent) - 1}", flush=True)

    def send_endlessly(self):
        self.send_response(200)
        self.end_headers()
        self.close_connection = True
        print("endless", flush=True)
        with contextlib.suppress(ConnectionError):
            while True:
                self.wfile.write(bytes(1000))
                time.sleep(0.01)

    def file(self):
        return pathlib.Path(sys.argv[1]) / pathlib.Path(self.path).name

    def answer(self, status, body):
        self.send_response(status)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def body(self):
        if self.headers.get("Transfer-Encoding") == "chunked":
            return b"".join(self.chunks())
        return self.rfile.read(int(self.headers.get("Content-Length", 0)))

    def chunks(self):
        while size := int(self.rfile.readline(), 16):
            yield self.rfile.read(size)
            self.rfile.readline()
        self.rfile.readline()

    def log_message(self, *arguments):
        pass


if len(sys.argv) != 2 or not pathlib.Path(sys.argv[1]).is_dir():
    sys.exit(__doc__)
server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
print("listening on port", server.server_port, flush=True)
server.serve_forever()
