#!/usr/bin/env python3
"""A small REST server for csi_receiver, API v2 and v3: runs the engine "motion2" for each Bot found.
Usage: rest_server.py [PORT], by default 8090. docs/protocol.md says what it needs to know."""
import json
import sys
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

MAX_TRIES = 3  # of a command whose reply does not come


class Zorvin:
    """What one daemon is to do. It has one request open at a time, so this needs no lock."""

    def __init__(self):
        self.queue, self.last_id, self.bots = [], 0, set()
        self.unanswered, self.tries = None, 0

    def add(self, word, **members):
        self.last_id += 1  # a member of our own, which the reply has, too
        self.queue.append({"cmd": word, **members, "id": self.last_id})

    def attached(self, bots):
        """The daemon may have been restarted: it gets everything again."""
        self.queue, self.unanswered = [], None
        self.add("version")  # the answer to an attach is a command, and must not be empty
        self.add("rate", rate=10)
        self.found(bots, self.bots & bots)

    def found(self, bots, again=frozenset()):
        for bot in sorted(self.bots - bots):
            self.add("stop", bot=bot, engineType="motion2")
        for bot in sorted(bots - self.bots | again):
            self.add("start", bot=bot, engineType="motion2")
        self.bots = bots

    def next_command(self):
        if self.unanswered is None or self.tries == MAX_TRIES:
            self.unanswered, self.tries = self.queue.pop(0) if self.queue else None, 0
        self.tries += 1  # more than one: the reply was lost, so the command is sent again
        return self.unanswered


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"  # the daemon keeps the connection open
    wbufsize = -1  # head and body leave together
    log_request = lambda *_: None  # ten polls per second
    zorvins = {}  # by the path of their messages

    def do_GET(self):  # a poll
        zorvin = self.zorvins.get(self.path)
        self.answer(zorvin.next_command() if zorvin else {"cmd": "disconnect"})

    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"]))
        message = json.loads(body)
        bots = {bot["bot"] for bot in message.get("bot_info", [])}
        if message.get("type") == "zorvin":
            version = "v3" if "request" in message else "v2"
            path = f"/{version}/zorvins/{message['zorvin']}/msg"
            zorvin = self.zorvins.setdefault(path, Zorvin())
            zorvin.attached(bots)
            return self.answer(zorvin.next_command())
        zorvin = self.zorvins.get(self.path)
        if zorvin and not body.endswith(b"\n"):  # unlike all others, a reply has no line feed
            print(f"{zorvin.unanswered}: {message}", flush=True)
            zorvin.unanswered = None
        elif zorvin and "bot_info" in message:  # a status message; the others are scan reports
            zorvin.found(bots)
        self.answer(None)  # the daemon ignores it

    def answer(self, command):
        body = json.dumps(command).encode() if command else b""  # nothing to do: no bytes at all
        self.send_response(200)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)


ThreadingHTTPServer(("", int((sys.argv + ["8090"])[1])), Handler).serve_forever()
