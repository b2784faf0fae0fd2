#!/usr/bin/env python3
"""A server as a client may meet it: scripted_server.py BEHAVIOUR [PORT]

Prints its port, then each line that it receives. Ends with its standard input."""
import json
import os
import socket
import sys
import threading
import time

NAME = "77"


def config(**other):
    channel = {"Index": 0, "Name": "Channel 1", "TrigMode": "Edge", "TrigLvl": -50, "TrigEdge": 0, "ChanOffs": 0,
               "ChanEna": 1, "DeadTime": 0, "TrigFeature": 1}
    known = {"DeviceType": 0, "ID": NAME, "Index": 0, "Model": "Distant", "LibType": 0, "NumChans": 2,
             "MeasMode": 3, "ChansCfg": [channel, dict(channel, Index=1)], "IsOpen": True, "IsInitialized": True}
    return dict(known, **other)


def line(content, kind="client", device="", **other):
    sender = {"type": "server" if kind == "client" else kind, "id": device}
    envelope = {"version": 0, "index": 0, "sender": sender, "receiver": {"type": kind, "id": device},
                "content": content}
    return json.dumps(dict(envelope, **other)).encode() + b"\n"


def names(*all):
    return line({"command": "getDeviceNames", "data": list(all)})


def named(name=NAME, **other):
    return dict({"Name": name, "libType": 0, "isInitialized": True, "err": 0}, **other)


def answer(message):
    command = message["content"]["command"]
    if command == "getDeviceNames":
        return names(named())
    if command == "getConfig":
        device = message["receiver"]["id"]
        return line({"command": "getConfig", "data": config(ID=device)}, "kest", device)
    return line({"command": "ack"})


def replacing(wanted, *replies):
    """An honest server, but for the answer to one command."""
    return lambda message: b"".join(replies) if message["content"]["command"] == wanted else answer(message)


def about_device(data):
    return replacing("getConfig", line({"command": "getConfig", "data": data}, "kest", NAME))


NONSENSE = [b"\n", b"nonsense\n", b"\xff\xfe\x80\n", b"[" * 40 + b"]" * 40 + b"\n", b"{}\n", line(7),
            line({"command": 7}), line({"command": "unknown"}), line({"command": "isConnected", "data": 7}),
            line({"command": "error", "data": "\x1b[31mred"}), line({"command": "ack"}, "king"),
            line({"command": "getConfig", "data": config()}, "kest", "another"),
            line({}, index="x"), line({"command": "getConfig", "data": []}, "kest", NAME)]

# What is answered to a message; a number: seconds before the link is closed.
ANSWERS = {
    "honest": answer,
    "silent": lambda message: b"",
    "http": lambda message: b"HTTP/1.1 400 Bad Request\r\nContent-Type: text/html\r\n\r\n",
    "random": lambda message: bytes((i * i * 7919 >> 5) & 255 for i in range(300000)),
    "endless line": lambda message: b"x" * (3 << 20),
    "half a line": lambda message: names(named())[:-20],
    "closes": lambda message: None,
    "nonsense": replacing("getDeviceNames", *NONSENSE),
    "error": lambda message: line({"command": "error", "data": "not today\nnor tomorrow"}),
    "no devices": replacing("getDeviceNames", names()),
    "names no array": replacing("getDeviceNames", line({"command": "getDeviceNames", "data": {}})),
    "many devices": replacing("getDeviceNames", names(*(named(f"n{i}") for i in range(1000)))),
    "odd devices": replacing("getDeviceNames", names(
        7, {}, named(""), named("x" * 300), named(err="x"), named("far", libType=1e300, err=1 << 40,
                                                                  isInitialized=7), named())),
    "another device": replacing("getConfig", line({"command": "getConfig", "data": config()}, "kest", "other")),
    "config no object": about_device([1, 2]),
    "odd config": about_device(config(ID="stolen", NumChans=1 << 40, ChansCfg=[{}] * 5000, MarkerEdges=["x"],
                                      Resolution="x", MeasMode=9, LibType=-7, SyncDiv=1 << 33)),
    "no config": replacing("getConfig"),
    "refuses config": replacing("getConfig", line({"command": "error", "data": "wrong receiver id"})),
    "no answers": replacing("StartMeasure"),
    "unasked": replacing("StartMeasure", line({"command": "ack"}), names(named("new")) * 1000,
                         line({"command": "getConfig", "data": config(Model="Other")}, "kest", NAME) * 1000),
    "split": lambda message: answer(message),
}


def serve(link, behaviour):
    received = b""
    while True:
        data = link.recv(65536)
        if not data:
            return
        received += data
        *lines, received = received.split(b"\n")
        for each in lines:
            print(each.decode(), flush=True)
            reply = ANSWERS[behaviour](json.loads(each))
            if reply is None:
                return
            if behaviour == "split":
                for byte in range(len(reply)):
                    link.sendall(reply[byte:byte + 1])
            else:
                link.sendall(reply)


def session(link, behaviour):
    try:
        with link:
            serve(link, behaviour)
    except OSError:
        pass


def accept(listener, behaviour):
    while True:
        link, _ = listener.accept()
        link.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        threading.Thread(target=session, args=(link, behaviour), daemon=True).start()


if __name__ == "__main__":
    listener = socket.create_server(("127.0.0.1", int(sys.argv[2]) if len(sys.argv) > 2 else 0))
    print(listener.getsockname()[1], flush=True)
    threading.Thread(target=accept, args=(listener, sys.argv[1]), daemon=True).start()
    sys.stdin.read()
    os._exit(0)
