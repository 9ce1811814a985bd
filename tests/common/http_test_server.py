#!/usr/bin/env python3
"""A loopback HTTP server for the network input tests and benchmarks.

Usage: http_test_server.py ROOT

Listens on 127.0.0.1 on a free port, prints that port and a newline on standard output, and
serves until standard input closes (its parent went away) or it is killed.

Routes:
  /files/NAME?OPTIONS    the bytes of ROOT/NAME
  /pattern/SIZE?OPTIONS  SIZE bytes repeating one fixed random mebibyte
  /loop                  302 to itself
  /silent                reads the request and never answers

OPTIONS for bodies:
  coding=length|chunked        Content-Length (default) or chunked transfer
  pieces=A,B,...               send the body in pieces of these sizes, cycling
  cut=N                        close the connection after N body bytes (a chunked body then
                               lacks its last chunk)
  stall=N                      stop after N body bytes and keep the connection open
  gzip=1                       send the body gzip-compressed, with "Content-Encoding: gzip"
"""
import gzip
import http.server
import os
import random
import socket
import socketserver
import sys
import threading
import time
import urllib.parse

PATTERN = random.Random(1).randbytes(1 << 20)
FOREVER = 24 * 3600


def file_body(path):
    """A body as its size and a function that reads `count` bytes at `offset`."""
    with open(path, "rb") as f:
        data = f.read()
    return len(data), lambda offset, count: memoryview(data)[offset:offset + count]


def pattern_body(size):
    def read_at(offset, count):
        start = offset % len(PATTERN)
        return memoryview(PATTERN)[start:start + min(count, len(PATTERN) - start)]

    return size, read_at


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *args):
        pass

    def do_GET(self):
        url = urllib.parse.urlsplit(self.path)
        options = dict(urllib.parse.parse_qsl(url.query))
        parts = url.path.strip("/").split("/")
        try:
            if parts[0] == "files" and len(parts) == 2:
                path = os.path.join(self.server.root, parts[1])
                if not os.path.isfile(path):
                    return self.empty(404)
                return self.send_body(file_body(path), options)
            if parts[0] == "pattern" and len(parts) == 2:
                return self.send_body(pattern_body(int(parts[1])), options)
            if parts[0] == "loop":
                return self.empty(302, location="/loop")
            if parts[0] == "silent":
                time.sleep(FOREVER)
                return None
        except (BrokenPipeError, ConnectionResetError):
            self.close_connection = True
            return None
        return self.empty(404)

    def empty(self, status, location=None):
        self.send_response(status)
        if location:
            self.send_header("Location", location)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def send_body(self, body, options):
        if "gzip" in options:
            packed = gzip.compress(bytes(body[1](0, body[0])))
            body = len(packed), lambda offset, count: memoryview(packed)[offset:offset + count]
        size, read_at = body
        chunked = options.get("coding") == "chunked"
        pieces = [int(p) for p in options.get("pieces", str(1 << 20)).split(",")]
        stop = min(int(options.get("cut", size)), int(options.get("stall", size)), size)
        self.send_response(200)
        self.send_header("Content-Type", "application/octet-stream")
        if "gzip" in options:
            self.send_header("Content-Encoding", "gzip")
        if chunked:
            self.send_header("Transfer-Encoding", "chunked")
        else:
            self.send_header("Content-Length", str(size))
        self.end_headers()
        sent = turn = 0
        while sent < stop:
            data = bytes(read_at(sent, min(pieces[turn % len(pieces)], stop - sent)))
            turn += 1
            self.wfile.write(b"%x\r\n%s\r\n" % (len(data), data) if chunked else data)
            sent += len(data)
        if "stall" in options:
            time.sleep(FOREVER)
        if "cut" in options:
            self.close_connection = True
            self.connection.shutdown(socket.SHUT_WR)
        elif chunked:
            self.wfile.write(b"0\r\n\r\n")


class Server(socketserver.ThreadingMixIn, http.server.HTTPServer):
    daemon_threads = True
    allow_reuse_address = True

    def __init__(self, root):
        self.root = root
        super().__init__(("127.0.0.1", 0), Handler)

    def handle_error(self, request, client_address):
        pass


def main():
    server = Server(sys.argv[1])
    print(server.server_address[1], flush=True)
    threading.Thread(target=server.serve_forever, kwargs={"poll_interval": 0.1},
                     daemon=True).start()
    # Ends with its parent: standard input closes when the parent exits, however it exits.
    sys.stdin.buffer.read()
    os._exit(0)


if __name__ == "__main__":
    main()
