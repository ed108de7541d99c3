"""HTTP servers on the loopback interface: Python's own for the files of a directory, and one that misbehaves."""

import functools
import http.server
import socket
import socketserver
import struct
import threading


class Quiet(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_):
        pass


class FileServer(http.server.ThreadingHTTPServer):
    """`with FileServer(directory) as url`: "http://127.0.0.1:PORT/"."""

    daemon_threads = True

    def __init__(self, directory):
        super().__init__(("127.0.0.1", 0), functools.partial(Quiet, directory=str(directory)))
        self.url = f"http://127.0.0.1:{self.server_port}/"

    def __enter__(self):
        threading.Thread(target=self.serve_forever, args=(0.05,), daemon=True).start()
        return self.url

    def __exit__(self, *_):
        self.shutdown()
        self.server_close()

    def handle_error(self, *_):
        pass  # clients of these tests leave in the middle


class Connection(socketserver.BaseRequestHandler):
    """One request; the first part of its path names the method that answers it."""

    def handle(self):
        self.request.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        head = b""
        try:
            while not head.endswith(b"\r\n\r\n"):
                byte = self.request.recv(1)
                if not byte or head + byte == b"\x16":  # TLS begins like that
                    return
                head += byte
            self.server.requests.append(head.decode("latin-1"))
            self.server.asked()
            path = head.split()[1].decode("latin-1").split("://", 1)[-1]
            name = path.split("/")[1].split("?")[0].split(".")[0].replace("-", "_")
            getattr(self, "answer_" + name, self.answer_length)()
        except OSError:
            pass  # the client has gone

    def send(self, status="200 OK", body=None, **headers):
        lines = "".join(f"{name.replace('_', '-')}: {value}\r\n" for name, value in headers.items())
        self.request.sendall(f"HTTP/1.1 {status}\r\nConnection: close\r\n{lines}\r\n".encode("latin-1"))
        self.request.sendall(self.server.film if body is None else body)

    def half(self):
        """Not less than 50 %."""
        return self.server.film[:(len(self.server.film) + 1) // 2]

    def wait_for_close(self, timeout=None):
        """True when the client has closed the connection, False when it is still there after `timeout` seconds."""
        self.request.settimeout(timeout)
        try:
            while self.request.recv(4096):
                pass
        except socket.timeout:
            return False
        except OSError:
            pass
        self.server.closed.set()
        return True

    def answer_length(self):
        self.send(Content_Length=len(self.server.film))

    def answer_none(self):
        self.send()

    def answer_chunked(self, end=b"0\r\n\r\n"):
        film = self.server.film if end else self.half()
        pieces = [film[i:i + 1000] for i in range(0, len(film), 1000)]
        body = b"".join(b"%x\r\n%s\r\n" % (len(piece), piece) for piece in pieces)
        self.send(body=body + end, Transfer_Encoding="chunked")

    def answer_chunked_cut(self):
        self.answer_chunked(end=b"")

    def answer_bytes(self):
        """Every byte in a packet of its own."""
        self.send(body=b"", Content_Length=len(self.server.film))
        for i in range(len(self.server.film)):
            self.request.sendall(self.server.film[i:i + 1])

    def answer_slow(self):
        """Four bytes a second, until the client leaves."""
        self.send(body=b"", Content_Length=len(self.server.film))
        for i in range(0, len(self.server.film), 4):
            self.request.sendall(self.server.film[i:i + 4])
            if self.wait_for_close(1):
                return

    def answer_silent(self):
        self.wait_for_close()

    def answer_stalled(self):
        self.send(body=self.half(), Content_Length=len(self.server.film))
        self.wait_for_close()

    def answer_held(self):
        """The second half when the test says so."""
        self.send(body=self.half(), Content_Length=len(self.server.film))
        self.server.go_on.wait()
        self.request.sendall(self.server.film[len(self.half()):])

    def answer_cut(self):
        self.send(body=self.half(), Content_Length=len(self.server.film))

    def answer_cut_early(self):
        self.send(body=self.server.film[:40], Content_Length=len(self.server.film))

    def answer_reset(self):
        self.answer_cut()
        self.request.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))

    def answer_short(self):
        self.send(Content_Length=len(self.half()))

    def answer_empty(self):
        self.send(body=b"", Content_Length=0)

    def answer_page(self):
        self.send(body=b"<html>" * 500, Content_Length=3000)

    def answer_gone(self):
        self.send("404 Not Found", b"a page", Content_Length=6)

    def answer_broken(self):
        self.send("500 Internal Server Error", b"", Content_Length=0)

    def answer_moved(self):
        self.send("302 Found", b"", Location="/length", Content_Length=0)

    def answer_round(self):
        self.send("302 Found", b"", Location="/round", Content_Length=0)

    def answer_secure(self):
        """To the port of this server, which speaks no TLS."""
        self.send("302 Found", b"", Location=f"https://127.0.0.1:{self.server.port}/length", Content_Length=0)

    def answer_elsewhere(self):
        self.send("302 Found", b"", Location="file:///etc/passwd")

    def answer_nowhere(self):
        self.send("302 Found", b"whereto?")

    def answer_continue(self):
        self.request.sendall(b"HTTP/1.1 100 Continue\r\n\r\n")
        self.answer_length()

    def answer_huge(self):
        self.send(body=self.half(), Content_Length=(1 << 32) + 1)

    def answer_endless_page(self):
        self.send("404 Not Found", b"", Content_Length=10)
        self.wait_for_close()

    def answer_nothing(self):
        pass


class OddServer(socketserver.ThreadingTCPServer):
    """`with OddServer(film) as server`: answers what server.url + the name of a method says."""

    daemon_threads = True
    request_queue_size = 64

    def __init__(self, film, asked=lambda: None):
        super().__init__(("127.0.0.1", 0), Connection)
        self.film = film
        self.asked = asked  # called with every request
        self.port = self.server_address[1]
        self.url = f"http://127.0.0.1:{self.port}/"
        self.requests = []
        self.closed = threading.Event()  # a client has closed a connection that was waiting for it
        self.go_on = threading.Event()

    def __enter__(self):
        threading.Thread(target=self.serve_forever, args=(0.05,), daemon=True).start()
        return self

    def __exit__(self, *_):
        self.go_on.set()
        self.shutdown()
        self.server_close()
