#!/usr/bin/env python3
"""A peer of a server, as no client would be: peer.py PORT ID CHANNELS DELAY SECONDS

Asks everything, rightly and wrongly, and for SECONDS sends 20,000 malformed lines a second on 8 links, each 100th line
valid, while another client asks rightly and has 99 % of its answers within DELAY ms. Prints what it saw; exit code 1:
a wrong answer, none, or a late one."""
import json
import multiprocessing
import random
import resource
import socket
import struct
import sys
import time

PORT, ID, CHANNELS, DELAY, SECONDS = int(sys.argv[1]), sys.argv[2], *map(int, sys.argv[3:6])
MIB = 1 << 20


def envelope(kind, device, content, index=1):
    address = {"type": kind, "id": device}
    return {"version": 0, "index": index, "sender": address, "receiver": address, "content": content}


def line(*args):
    return json.dumps(envelope(*args)).encode() + b"\n"


def command(name, data=None, kind="kest", device=ID):
    return line(kind, device, {"command": name} if data is None else {"command": name, "data": data})


def from_server(content):
    text = {"version": 0, "index": 0, "sender": {"type": "server", "id": ""}, "receiver": {"type": "client", "id": ""},
            "content": content}
    return json.dumps(text, separators=(",", ":"), ensure_ascii=False)


ACK, CONNECTED = from_server({"command": "ack"}), from_server({"command": "isConnected", "data": True})
NAMES = command("getDeviceNames", kind="server", device="")


def edge(channel, level=-120, **other):
    return command("SetInputEdgeTrig", dict({"chan": channel, "trigLvl": level, "trigEdge": 1}, **other))


def without(key):
    text = envelope("kest", ID, {"command": "StartMeasure", "data": {"tAcq": 7}})
    del text[key]
    return json.dumps(text).encode() + b"\n"


def failed(why):
    return f"Remote: DecodeMessage (Server) failed: {why}"


def unknown(kind, sent):
    return f"Remote: Unsupported Receiver Type: {kind} in '{sent.decode().strip()}')"


def cases():
    """What is sent, and what must come: a whole answer, or the text of an "error"."""
    yield command("isConnected", kind="server", device=""), CONNECTED
    yield edge(0), ACK
    yield edge(-1, -130), ACK
    for channel in (-2, CHANNELS, 1 << 40, -1 << 40):
        yield edge(channel, -1), ACK
    yield edge(1, -1 << 40), ACK  # forced into the range
    yield command("StartMeasure", {"tAcq": 1234}), ACK
    yield command("StartMeasure", {"tAcq": 1 << 50}), ACK
    yield command("StartMeasure", {"tAcq": -5.0}), ACK
    yield command("SelfDestruct"), ACK
    yield command("StartMeasure"), failed('there is no "data"')
    yield command("StartMeasure", {}), failed('there is no "tAcq"')
    yield command("StartMeasure", {"tAcq": "5"}), failed("not a number")
    yield command("StartMeasure", {"tAcq": 0.5}), failed("not exact")
    yield command("StartMeasure", [5]), failed("not an object")
    yield command("SetInputEdgeTrig", {"chan": 0, "trigLvl": 1}), failed('there is no "trigEdge"')
    for content in (7, None, [], {}, {"data": 1}):
        yield line("kest", ID, content), ACK
        yield line("server", "", content), ACK
    for kind, device in ("kest", ID), ("server", ""):
        yield line(kind, device, {"command": 7}), failed("not a string")
    for device in ("", ID + " ", ID.lower() + "x"):
        yield command("getConfig", device=device), f"Remote: DecodeMessage (Server): wrong receiver id: {device} @{ID}"
    sent = command("reboot", kind="server", device="")
    yield sent, f"Remote: Unsupported Command: reboot in '{sent.decode().strip()}')"
    for kind in ("client", "KEST", ""):
        sent = command("getConfig", kind=kind)
        yield sent, unknown(kind, sent)
    for sent in (b"\n", b"nonsense\n", b"{}\n", b"7\n", b'"\n', b"[" * 33 + b"]" * 33 + b"\n",
                 b"\x00\x1b[31m\n", b"\xff\xfe{}\n", NAMES[:-2] + b"\n", NAMES[:-1] + b"}\n", b"\xef\xbb\xbf" + NAMES,
                 *(without(key) for key in ("index", "sender", "receiver", "content")),
                 NAMES.replace(b'"index": 1', b'"index": -1'), NAMES.replace(b'"server"', b"null"),
                 NAMES.replace(b'"id": ""', b'"id": 5'), NAMES.replace(b"server", b"ser\xc3(ver")):
        yield sent, ""
    yield b"[" * 100000 + b"\n", ""
    yield b"[" + b'{"":0},' * 140000 + b"0]\n", ""  # more than ten times as large when it is opened
    yield command("x" * MIB, kind="server", device="")[-MIB - 1:], ""  # the longest line


class Link:
    def __init__(self, timeout=60):
        self.socket = socket.create_connection(("127.0.0.1", PORT), timeout=timeout)
        self.file = self.socket.makefile("rb")
        self.index = 0

    def send(self, data):
        self.socket.sendall(data)

    def read(self):
        """The answer, with the index that it must have; empty at the end."""
        answer = self.file.readline().decode()
        self.index += 1
        assert not answer or answer.endswith("\n") and json.loads(answer)["index"] == self.index, answer
        return answer[:-1]

    def expect(self, wanted):
        answer = self.read()
        if wanted.startswith("{"):
            assert answer == wanted.replace('"index":0', f'"index":{self.index}'), (answer, wanted)
        else:
            content = json.loads(answer)["content"]
            assert content["command"] == "error" and wanted in content["data"], (answer[:9999], wanted)
            assert len(content["data"]) < 9000

    def ask(self, data, wanted):
        self.send(data)
        self.expect(wanted)

    def leave(self, reset=False):
        if reset:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.file.close()
        self.socket.close()


def asks_everything():
    link = Link()
    for sent, wanted in cases():
        link.ask(sent, wanted)
    link.send(command("getConfig"))
    config = json.loads(link.read())
    assert list(config) == ["version", "index", "sender", "receiver", "content"]
    assert config["sender"] == config["receiver"] == {"type": "kest", "id": ID}
    assert config["content"]["data"]["ID"] == ID and config["content"]["data"]["ChansCfg"][0]["TrigLvl"] == -130
    link.leave()


def splits_and_joins():
    link = Link()
    for byte in command("isConnected", kind="server", device=""):
        link.send(bytes([byte]))
    link.expect(CONNECTED)
    link.send(command("x") + b"nonsense\n" + NAMES[:20])
    link.expect(ACK)
    link.expect("Unsupported Receiver Type")
    link.ask(b"\n", "Unsupported Receiver Type")
    link.send(command("x") * 3000)
    for _ in range(3000):
        link.expect(ACK)
    link.leave()


def sends_endless_lines():
    for length in (MIB + 1, 3 * MIB):
        link = Link()
        link.ask(b"x" * length, "is too long")
        assert link.read() == "", "a line that is too long ends the connection"
        link.leave()
    links = [Link() for _ in range(60)]
    for link in links:
        try:
            link.send(b"x" * (MIB - 1))
        except OSError:
            pass  # turned out: together they are too long
    for link in links:
        link.leave(reset=True)


def leaves_early():
    for count in range(200):
        link = Link()
        link.send(NAMES[:count % len(NAMES)])
        link.leave(reset=count % 2)
    for count in range(20):
        link = Link()
        link.send(command("getConfig") * 200)  # answers that nobody takes
        link.leave(reset=count % 2)


def comes_in_crowds():
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard if soft < 1200 else soft, hard))
    links = [Link() for _ in range(1000)]
    answered = 0
    for link in links:
        try:
            link.send(command("x"))
            answered += link.read() != ""
        except OSError:
            pass  # turned away
    assert 200 <= answered <= 256, answered
    for link in links:
        link.leave()


def sends_anything():
    draw = random.Random(12)
    link = Link()
    for _ in range(300):
        sent = bytearray(draw.choice([NAMES, command("getConfig"), edge(0)])[:-1])
        for _ in range(draw.randrange(1, 6)):
            sent[draw.randrange(len(sent))] = draw.choice([0, 9, 34, 44, 91, 125, 255, draw.randrange(256)])
        link.send(sent.replace(b"\n", b" ") + b"\n")
        assert link.read()
    link.leave()


def asks_rightly(stop, delays):
    """The client beside: every answer right, and soon."""
    link = Link()
    link.send(NAMES)
    names = link.read().replace('"index":1', '"index":0')
    assert json.loads(names)["content"]["data"][0]["Name"] == ID
    seen = []
    while not stop.is_set() or len(seen) < 100:
        begun = time.monotonic()
        link.ask(NAMES, names)
        seen.append(time.monotonic() - begun)
        time.sleep(0.002)
    delays.put(sorted(seen))


def floods(rate, delays):
    """99 malformed lines and a valid one, again and again."""
    link = Link()
    malformed = [b"nonsense\n", b"\xff\xfe\n", b"{}\n", NAMES[:-3] + b"\n", command("getConfig", kind="king")]
    batch = b"".join(malformed[i % 5] for i in range(99)) + command("isConnected", kind="server", device="")
    begun, lines = time.monotonic(), 0
    while time.monotonic() - begun < SECONDS:
        link.send(batch)
        for _ in range(99):
            assert b'"error"' in link.file.readline()
            link.index += 1
        link.expect(CONNECTED)
        lines += 100
        time.sleep(max(0, begun + lines / rate - time.monotonic()))
    delays.put(lines / (time.monotonic() - begun))


def start(function, *args):
    process = multiprocessing.Process(target=function, args=args, daemon=True)
    process.start()
    return process


def main():
    stop, delays, rates = multiprocessing.Event(), multiprocessing.Queue(), multiprocessing.Queue()
    beside = start(asks_rightly, stop, delays)
    flood = [start(floods, 2500, rates) for _ in range(8)]
    for attack in (asks_everything, splits_and_joins, sends_endless_lines, leaves_early, sends_anything):
        attack()
    for process in flood:
        process.join()
    comes_in_crowds()
    stop.set()
    seen = delays.get(timeout=60)
    beside.join()
    assert not any(process.exitcode for process in [beside, *flood])
    late = seen[len(seen) * 99 // 100] * 1e3
    print(f"{sum(rates.get() for _ in flood):.0f} lines a second, {len(seen)} questions beside, "
          f"99 % answered within {late:.2f} ms")
    assert late < DELAY


main()
