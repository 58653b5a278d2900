"""A server on this machine that stands for a store."""

import http.server
import threading

DEADLINE = 60  # seconds


class Store:
    """A server of a few files that answers ranges, and holds back what comes after `gate` bytes
    until it is let go."""

    def __init__(self, address=("127.0.0.1", 0)):
        store = self
        self.files = {}
        self.gate = None
        self.open = threading.Event()
        self.open.set()
        self.ranges = []

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_GET(self):
                store.answer(self)

            def log_message(self, *_):
                pass

        self.server = http.server.ThreadingHTTPServer(address, Handler)
        self.server.daemon_threads = True
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def url(self, name):
        return f"http://127.0.0.1:{self.server.server_port}/{name}"

    def answer(self, request):
        content = self.files.get(request.path.lstrip("/"))
        if content is None:
            request.send_response(404)
            request.send_header("Content-Length", "0")
            request.end_headers()
            return
        first = 0
        if asked := request.headers.get("Range"):
            first = int(asked.removeprefix("bytes=").split("-")[0])
            self.ranges.append(first)
            request.send_response(206)
            request.send_header("Content-Range", f"bytes {first}-{len(content) - 1}/{len(content)}")
        else:
            request.send_response(200)
        request.send_header("Content-Length", str(len(content) - first))
        request.send_header("ETag", '"one"')
        request.end_headers()
        try:
            if self.gate is not None and first < self.gate:
                request.wfile.write(content[first:self.gate])
                request.wfile.flush()
                self.open.wait(DEADLINE)
                first = self.gate
            request.wfile.write(content[first:])
        except OSError:
            request.close_connection = True

    def close(self):
        self.open.set()
        self.server.shutdown()
        self.server.server_close()
