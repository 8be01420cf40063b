#!/usr/bin/env python3
"""A small web server for the demo pages: serves them, and answers the form with a page that shows what was sent.

It does what Tessel needs of a server and no more. Names and values come without any encoding, so that a request line
may hold spaces, and the body of a POST comes without a length: it ends when nothing more comes.
"""

import argparse
import mimetypes
import os
import re
import signal
import socketserver
import sys

PAGES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "pages")
LONGEST_LINE = 65536 + 64
LONGEST_BODY = 1 << 20
QUIET_SECONDS = 0.3  # a body is over when nothing has come for so long
ANSWER = """<HTML>
<TITLE>Hollow Pond: your note has arrived</TITLE>
<BODY BGCOLOR=#F4F1E4 TEXT=#26382E LINK=#1F6B4F ALINK=#C8501E>
<CENTER>
<P>
<H1>Your note has arrived</H1>
<FONT FACE="TIMES NEW ROMAN" SIZE=4 COLOR=#1F6B4F><I>with a {method}, in {count} bytes</I></FONT>
<P>
<TABLE>
{rows}
</TABLE>
<P>
As it came:<BR>
<FONT SIZE=2 COLOR=#7A8A80>{raw}</FONT>
<P>
<A HREF="form.html">Another note</A> &nbsp; &nbsp; <A HREF="index.html">The cover</A>
</CENTER>
</BODY>
</HTML>
"""


def escape(text):
    """Text as a page may hold it. There is no entity for '&': it stands for itself, unless it begins an entity."""
    text = re.sub(r"&(?=nbsp|lt|gt|quot|copy)", "&<B></B>", text.replace("<", "\0"), flags=re.IGNORECASE)
    return text.replace("\0", "&lt;")


def answer(method, query):
    """The page that shows a query: a row for each pair, and the query as it came."""
    rows = []
    for pair in filter(None, query.split("&")):
        name, _, value = pair.partition("=")
        cells = [f"<TD WIDTH={width}%>{escape(text) or '-'}</TD>" for width, text in ((20, name), (50, value))]
        rows.append("<TR>" + "".join(cells))
    return ANSWER.format(
        method=method, count=len(query), rows="\n".join(rows) or "<TR><TD>nothing", raw=escape(query) or "nothing"
    )


class Handler(socketserver.StreamRequestHandler):
    timeout = 10

    def handle(self):
        try:
            method, query, path = self.read_request()
            self.reply(method, query, path)
        except OSError:
            pass  # the client has gone, or says nothing

    def read_request(self):
        """The method, the query or the body, and the path; latin-1 keeps every byte what it is."""
        line = self.rfile.readline(LONGEST_LINE).decode("latin-1").rstrip("\r\n")
        print(line, flush=True)
        method, _, target = line.partition(" ")
        path, _, query = target.rpartition(" HTTP/")[0].partition("?")
        length = None
        while header := self.rfile.readline(LONGEST_LINE).strip():
            name, _, value = header.partition(b":")
            if name.lower() == b"content-length" and value.strip().isdigit():
                length = int(value)
        if method == "POST":
            query = self.read_body(length).decode("latin-1")
        return method, query, path.lstrip("/")

    def read_body(self, length):
        body = b""
        self.connection.settimeout(QUIET_SECONDS)
        try:
            while len(body) < min(LONGEST_BODY, LONGEST_BODY if length is None else length):
                piece = self.rfile.read1(65536)
                if not piece:
                    break
                body += piece
        except TimeoutError:
            pass
        self.connection.settimeout(self.timeout)
        return body

    def reply(self, method, query, path):
        name = path or "index.html"
        if method not in ("GET", "POST"):
            self.send("400 Bad Request", "text/html", b"<TITLE>No</TITLE>Only GET and POST are known here.")
        elif name == "answer":
            self.send("200 OK", "text/html", answer(method, query).encode("latin-1"))
        elif name in os.listdir(PAGES):  # nothing outside the folder has such a name
            kind = mimetypes.guess_type(name)[0] or "image/" + name.rpartition(".")[2]
            with open(os.path.join(PAGES, name), "rb") as file:
                self.send("200 OK", kind, file.read())
        else:
            self.send("404 Not Found", "text/html", b"<TITLE>No</TITLE>There is no such page.")

    def send(self, status, kind, body):
        head = f"HTTP/1.0 {status}\r\nContent-Type: {kind}\r\nContent-Length: {len(body)}\r\n\r\n"
        self.wfile.write(head.encode("latin-1") + body)


class Server(socketserver.ThreadingTCPServer):
    allow_reuse_address = True
    daemon_threads = True


def main():
    parser = argparse.ArgumentParser(description="Serves the demo pages and answers their form.")
    parser.add_argument("--address", default="127.0.0.1", help="where to listen (default: %(default)s)")
    parser.add_argument("--port", type=int, default=80, help="Tessel asks port 80 alone (default: %(default)s)")
    options = parser.parse_args()
    place = f"{options.address}, port {options.port}"
    try:
        server = Server((options.address, options.port), Handler)
    except PermissionError:
        sys.exit(f"server.py: {place}: not allowed. Ports below 1024 are for root: run this with sudo.")
    except (OSError, OverflowError) as error:
        sys.exit(f"server.py: {place}: {error}")
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    print(f"Serving {PAGES} on {place}", flush=True)
    try:
        server.serve_forever()
    except KeyboardInterrupt:
        pass


if __name__ == "__main__":
    main()
