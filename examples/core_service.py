#!/usr/bin/env python3
"""A small core service for csi_receiver, whose radio hears each Bot a second after its sounding began.
Usage: core_service.py ADDRESS [INTERFACE...], by default wlan0. docs/protocol.md says what it needs to know."""
import json
import random
import socket
import sys
import time

PORT, MAX_ANSWER, MAX_BOTS = 14310, 4096, 60  # so many Bots fit into an answer


class CoreService:
    """Requests may come twice, so they do no harm when they do. A member with a wrong type ends the daemon."""

    def __init__(self, interfaces):
        self.interfaces = interfaces
        self.sounded = {}  # Bot -> its interface, and since when
        self.engines = set()  # of a Bot and a type

    def answer(self, request):
        if "ping" in request:
            return {"ping": "pong"}
        if isinstance(request.get("engineType"), str):  # whatever "cmd" is
            return self.engine(request)
        return getattr(self, f"do_{request['cmd']}", lambda _: {"success": False})(request)

    def do_add_interface(self, request):  # from a new daemon, which regards no Bot as sounded
        self.end_all(request["ifname"])
        return {"success": request["ifname"] in self.interfaces}

    def do_del_interface(self, request):  # the daemon ends, and says nothing else
        self.end_all(request["ifname"])
        return {"success": True}

    def do_info(self, request):
        if request["ifname"] not in self.interfaces:
            return {"success": False}  # the daemon skips the interface
        return {"success": True, "wiphy": 0, "antennas": 4, "driver_name": "example",
                "bssid": "02:00:00:00:00:01", "iftype": "ap", "ssid": "example"}

    def do_sounding(self, request):  # quiet or not
        _, since = self.sounded.pop(request["uuid"], (None, time.monotonic()))
        if request["rate"] > 0:
            self.sounded[request["uuid"]] = request["ifname"], since
        return {"success": True}

    def do_active_bots(self, _):
        counts = [{"uuid": bot, "count": self.count(bot)} for bot in self.sounded]
        random.shuffle(counts)  # the daemon asks several times and combines the answers
        return {"bots": counts[:MAX_BOTS]}

    def count(self, bot):  # what came from the Bot in the last two seconds: ask your radio instead
        return 17 if time.monotonic() - self.sounded[bot][1] > 1 else 0

    def engine(self, request):
        bots = [request["bot"]] if "bot" in request else request.get("bots", [])
        for engine in [(bot, request["engineType"]) for bot in bots]:
            if request["cmd"] == "start":
                self.engines.add(engine)
            elif request["cmd"] == "stop":
                self.engines.discard(engine)
        return {**request, "success": True}  # the command comes back, so that the server knows it again

    def end_all(self, interface):
        self.sounded = {bot: what for bot, what in self.sounded.items() if what[0] != interface}
        self.engines = {engine for engine in self.engines if engine[0] in self.sounded}


service = CoreService(sys.argv[2:] or ["wlan0"])
with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as udp:
    udp.bind((sys.argv[1], PORT))
    while True:
        datagram, sender = udp.recvfrom(65536)
        try:
            answer = json.dumps(service.answer(json.loads(datagram))).encode()
        except (AttributeError, KeyError, TypeError, ValueError):
            continue  # not from the daemon
        udp.sendto(answer if len(answer) <= MAX_ANSWER else b'{"success":false}', sender)
