# SPDX-License-Identifier: Apache-2.0
"""A server of files on loopback, as far away as it is told to be."""
import http.server
import os
import re
import threading
import time

PIECE = 8192


class SlowServer:
    """Serves a folder: each connection and each answer takes a round trip, in seconds, and all
    bytes together come at a rate, in bits a second (None: as fast as can be). Counts what it is
    asked for."""

    def __init__(self, folder, round_trip=0.0, rate=None):
        self.round_trip, self.rate = round_trip, rate
        self.requests = self.bytes = 0
        self._free_at = 0.0  # when the link has sent all that was given to it
        self._lock = threading.Lock()
        handler = type("Handler", (_Handler,), {"shaped": self, "folder": folder})
        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
        self._server.daemon_threads = True
        threading.Thread(target=self._server.serve_forever, daemon=True).start()

    def url(self, name):
        return f"http://127.0.0.1:{self._server.server_address[1]}/{name}"

    def close(self):
        self._server.shutdown()
        self._server.server_close()

    def count_request(self):
        with self._lock:
            self.requests += 1

    def send(self, count):
        """Waits until the link has sent so many bytes."""
        with self._lock:
            self.bytes += count
            if self.rate is None:
                return
            self._free_at = max(self._free_at, time.monotonic()) + count * 8 / self.rate
            pause = self._free_at - time.monotonic()
        time.sleep(max(0.0, pause))


class _Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    # What a player has given up is still on the way otherwise.
    wbufsize = 0

    def setup(self):
        time.sleep(self.shaped.round_trip)
        super().setup()

    def do_GET(self):
        self.shaped.count_request()
        time.sleep(self.shaped.round_trip)
        path = os.path.join(self.folder, os.path.basename(self.path))
        if not os.path.isfile(path):
            return self.send_error(404)
        size = os.path.getsize(path)
        asked = re.fullmatch(r"bytes=(\d+)-(\d*)", self.headers.get("Range", ""))
        first = int(asked[1]) if asked else 0
        last = min(int(asked[2]) if asked and asked[2] else size - 1, size - 1)
        if first >= size:
            return self.send_error(416)
        self.send_response(206 if asked else 200)
        self.send_header("Accept-Ranges", "bytes")
        self.send_header("Content-Length", str(last - first + 1))
        self.send_header("ETag", f'"{size}"')
        if asked:
            self.send_header("Content-Range", f"bytes {first}-{last}/{size}")
        self.end_headers()
        self._send_body(path, first, last)

    def _send_body(self, path, first, last):
        with open(path, "rb") as file:
            file.seek(first)
            left = last - first + 1
            try:
                while left > 0:
                    piece = file.read(min(PIECE, left))
                    self.shaped.send(len(piece))
                    self.wfile.write(piece)
                    left -= len(piece)
            except OSError:
                self.close_connection = True

    def handle_one_request(self):
        try:
            super().handle_one_request()
        except OSError:  # a player that has gone
            self.close_connection = True

    def log_message(self, *_):
        pass
