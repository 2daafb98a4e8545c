#!/usr/bin/python3
"""Stands between a supervisor and QEMU and fails at a chosen moment.

The file "plan" beside it holds "WHEN COMMAND DEED": WHEN is before or after; or answer, which is before
the answer is passed on, or event, before an event is. COMMAND is one of the machine protocol's,
"greeting" or an event's name. DEED is kill, exit, hang (QEMU goes on, unheard), close (its monitor) or
blind (closes its display, and goes on). Then the file "reached" is there. Without a plan QEMU is run as
it is.
"""
import ctypes
import json
import os
import pathlib
import re
import select
import signal
import socket
import subprocess
import sys

QEMU = "/usr/bin/qemu-system-x86_64"


def fail(deed, engine, supervisor, display):
    pathlib.Path(sys.argv[0]).with_name("reached").touch()
    if deed == "blind":
        display.shutdown(socket.SHUT_RDWR)
        return
    if deed == "hang":
        signal.signal(signal.SIGTERM, signal.SIG_IGN)
        while True:
            signal.pause()
    if deed == "close":
        supervisor.close()
        while True:
            signal.pause()
    if engine:
        engine.kill()
        engine.wait()
    if deed == "exit":
        sys.exit("qemu: -device ghost: no device of this name")
    os.kill(os.getpid(), signal.SIGKILL)


def relay(supervisor, monitor, act, displays):
    """Passes lines on, both ways, until one side ends."""
    names, rest = {}, {supervisor: b"", monitor: b""}
    while True:
        for source in select.select([supervisor, monitor], [], [])[0]:
            data, fds, _, _ = socket.recv_fds(source, 65536, 4)
            if not data:
                return
            *lines, rest[source] = (rest[source] + data).split(b"\n")
            for line in lines:
                message = json.loads(line)
                if source is supervisor:
                    name = names[message["id"]] = message["execute"]
                    if name == "getfd" and message["arguments"]["fdname"] == "display":
                        displays.append(socket.socket(fileno=os.dup(fds[0])))
                    act("before", name)
                    socket.send_fds(monitor, [line + b"\n"], fds if name == "getfd" else [])
                    continue
                if "event" in message:
                    act("event", message["event"])
                elif "id" in message:
                    act("answer", names[message["id"]])
                supervisor.sendall(line + b"\n")
                if "QMP" in message:
                    act("after", "greeting")
                elif "id" in message:
                    act("after", names[message["id"]])
            for fd in fds:
                os.close(fd)


def main():
    plan = pathlib.Path(sys.argv[0]).with_name("plan")
    if not plan.exists():
        os.execv(QEMU, [QEMU, *sys.argv[1:]])
    when, command, deed = plan.read_text().split()
    line = " ".join(sys.argv)
    supervisor = socket.socket(fileno=int(re.search(r"id=monitor,fd=(\d+)", line)[1]))
    inherited = [int(fd) for name, fd in re.findall(r"id=(\w+),fd=(\d+)", line) if name != "monitor"]
    engine, displays = None, []

    def act(now, name):
        if (now, name) == (when, command):
            fail(deed, engine, supervisor, *displays[:1] or [None])

    act("before", "greeting")
    monitor, theirs = socket.socketpair()
    arguments = [re.sub(r"(id=monitor,fd=)\d+", rf"\g<1>{theirs.fileno()}", word)
                 for word in sys.argv[1:]]
    engine = subprocess.Popen([QEMU, *arguments], pass_fds=[theirs.fileno(), *inherited],
                              preexec_fn=lambda: ctypes.CDLL(None).prctl(1, signal.SIGKILL))
    theirs.close()
    relay(supervisor, monitor, act, displays)
    sys.exit(engine.wait())


main()
