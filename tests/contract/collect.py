#!/usr/bin/env python3
"""Prints every message in docs/protocol.md, tests/vectors/ and scripts/demo.script as a JSON array.

Each has the names of its two peers, its text, the message that it answers, and the kind that it must
be classified as."""
import json
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
VECTORS = ROOT / "tests" / "vectors"
CORE_WORDS = ("add_interface", "del_interface", "get_interfaces", "info", "save_csi", "active_bots", "sounding")
WORDS = ("start", "stop", "associate", "gssid", "deregister", "pair", "rate", "scan", "bot_info",
         "poll_interval", "disconnect", "version")


def first_wins(pairs):
    result = {}
    for name, value in pairs:
        result.setdefault(name, value)
    return result


def read(path):
    return json.loads(path.read_text(), object_pairs_hook=first_wins)


def parse(text):
    """As the daemon does: None unless it is an object."""
    def number(digits):
        value = float(digits)
        if value in (float("inf"), float("-inf")):
            raise ValueError(digits)
        return value

    try:
        value = json.loads(text.split("\0")[0], parse_float=number, parse_constant=number,
                           object_pairs_hook=first_wins)
    except ValueError:
        return None
    return value if isinstance(value, dict) else None


def wire(written):
    """A string stands for itself, anything else for its compact text."""
    return written if isinstance(written, str) else json.dumps(written, separators=(",", ":"), ensure_ascii=False)


def word_of(message, words, other):
    if message is None:
        return other
    if isinstance(message.get("engineType"), str):
        return "engine"
    word = message.get("cmd")
    return word if isinstance(word, str) and word in words else other


def core_word(text):
    message = parse(text)
    return word_of(message, CORE_WORDS, "ping" if message and "ping" in message else "")


def kind_of_reply(request):
    command = parse(request)
    if command is None:
        return "object_error"
    word = command.get("cmd")
    return word_of(command, WORDS, "unknown" if isinstance(word, str) and word else "missing_command")


def kind(sender, receiver, text, request):
    message = parse(text)
    if sender == "server":
        return "command/" + word_of(message, WORDS, "unknown")
    if receiver == "fusion":
        return "fusion_request/engine"
    if sender == "fusion":
        return "fusion_reply/engine"
    if receiver.startswith("core"):
        return "core_request/" + core_word(text)
    if sender.startswith("core"):
        return "core_reply/" + core_word(request)
    version = "v3" if message and "request" in message else "v2"
    if text.endswith("\n"):
        return ("scan_report/" if message.get("cmd") == "scan" else "status/") + version
    if request:
        return "reply/" + kind_of_reply(request)
    return "attach/" + version if message.get("type") == "zorvin" else "reply"


class Collection:
    def __init__(self):
        self.messages = []
        self.where = ""

    def add(self, sender, receiver, text, request=""):
        if text:
            self.messages.append({"where": self.where, "from": sender, "to": receiver, "text": text,
                                  "request": request, "kind": kind(sender, receiver, text, request)})

    def add_by_content(self, text):
        """For an example whose direction the document does not say."""
        message = parse(text)
        if not message or "zorvin_addr" in message:
            return
        word = message.get("cmd")
        bots = [message.get("bot")] + (message["bots"] if isinstance(message.get("bots"), list) else [])
        if word is None and "bot_info" in message and "type" not in message or "found" in message:
            self.add("daemon", "server", text + "\n")
        elif "ping" in message or word in CORE_WORDS and word != "bot_info":
            self.add("daemon", "core", text)
        elif "type" in message or "success" in message or "reason" in message:
            self.add("daemon", "server", text)
        elif "engineType" in message and any(isinstance(bot, dict) for bot in bots):
            self.add("daemon", "fusion", text)
        elif "engineType" in message and any(isinstance(bot, str) for bot in bots):
            self.add("daemon", "core", text)
        else:
            self.add("server", "daemon", text)

    def conversation(self, steps):
        for step in steps:
            received = wire(step["receive"])
            self.add("server", "daemon", received)
            for ask in step.get("asks") or []:
                self.add("daemon", ask["to"], wire(ask["request"]))
                self.add(ask["to"], "daemon", wire(ask["answer"]), wire(ask["request"]))
            if step["reply"] is not None:
                self.add("daemon", "server", wire(step["reply"]), received)

    def scenario(self, value):
        """All messages in lists of what the daemon sends, and what its peers are to answer."""
        if isinstance(value, list):
            for element in value:
                self.scenario(element)
        if not isinstance(value, dict):
            return
        for name, member in value.items():
            if name == "server, unasked":
                self.add("daemon", "server", wire(member) + "\n")
            elif re.fullmatch(r"server|fusion|core [\d.]+", name) and isinstance(member, dict):
                self.add("daemon", name, wire(member))
            elif name == "attach_answer":
                self.add("server", "daemon", wire(member))
            elif name == "queue":
                for text in member:
                    self.add("server", "daemon", wire(text))
            elif name == "answers":
                for request, answer in member.items():
                    request = request[request.index("{"):]
                    fusion = (parse(request) or {}).get("engineType") in ("cpd", "softSecurity")
                    if answer != "the server stops":
                        self.add("fusion" if fusion else "core", "daemon", wire(answer), request)
            else:
                self.scenario(member)

    def document(self, text):
        """Sessions with arrows, tables of requests with their answers, and single examples."""
        arrow = r"^    (\w+) +-> (\w+)[ \d.]*\n? *(\{.*\})$"
        latest = {}
        for sender, receiver, message in re.findall(arrow, text, re.M):
            self.add(sender, receiver, message, latest.get((receiver, sender), "") if sender != "server" else "")
            latest[sender, receiver] = message
        text = re.sub(arrow, "", text, flags=re.M)
        code = r"`(\{[^`]*\})`"
        for pair in (rf"^\|.*?{code} \| {code}.*\|$", rf"{code} is\s+answered with\s+{code}"):
            for request, answer in re.findall(pair, text, re.M):
                core = parse(request) and core_word(request) and "engineType" not in parse(request)
                core = core and parse(request).get("cmd") not in WORDS
                peer = "core" if core else "server"
                self.add(*(("daemon", peer) if core else (peer, "daemon")), request)
                self.add(*((peer, "daemon") if core else ("daemon", peer)), answer, request)
            text = re.sub(pair, "", text, flags=re.M)
        for line in re.findall(code, text) + re.findall(r"^(\{.*\})$", text, re.M):
            self.add_by_content(line)


def collect():
    result = Collection()
    for path in sorted(VECTORS.glob("*.json")):
        result.where = str(path.relative_to(ROOT))
        result.conversation(read(path)["steps"])
    for path in sorted((VECTORS / "scenarios").glob("*.json")):
        result.where = str(path.relative_to(ROOT))
        result.scenario(read(path))
    result.where = "docs/protocol.md"
    result.document((ROOT / "docs" / "protocol.md").read_text())
    result.where = "scripts/demo.script"
    demo = (ROOT / "scripts" / "demo.script").read_text()
    for line in re.findall(r"^(?:expect )?(\{.*\})(?: within .*)?$", demo, re.M):
        result.add_by_content(line)
    return result.messages


if __name__ == "__main__":
    print(json.dumps(collect(), indent=1))
