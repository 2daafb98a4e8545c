#!/usr/bin/env python3
"""What a viewer costs a VM that sends input as fast as it may.

A guest repaints its screen as often as it can, and one viewer looks at it. Undisturbed rounds and
rounds in which a second viewer floods the guest with one kind of input (wheel, key, move, button)
take turns. Prints for each kind the guest's speed as a ratio to the undisturbed rounds beside it, the
slowest answer to `status`, how much the supervisor and QEMU grew, and how many packets were taken.
The exit status is 1 when a budget is exceeded. Builds nothing: run it after `cmake --build --preset
dev` (the guests) and `--preset release` (the programs).
"""

import argparse
import contextlib
import mmap
import os
import pathlib
import socket
import statistics
import struct
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import supervisors  # noqa: E402  the private library and the viewer

SPEED, STATUS, GROWTH = 0.9, 0.1, 4096  # at least, seconds at most, KiB at most
RATE = 3900  # packets a second: just below what a viewer is refused for
MODE, KEY, POINTER_ABS, WHEEL = 2, 66, 67, 69
PLACE = 4096 + (540 * 1920 + 960) * 4 + 2  # the red of a pixel in the middle of the guest's picture


def packet(kind, *arguments):
    return struct.pack("<I7i", kind, *arguments, *[0] * (7 - len(arguments)))


FLOODS = {
    "wheel": lambda i: packet(WHEEL, 32 if i % 2 else -32),
    "key": lambda i: packet(KEY, 0x1e + i // 2 % 8, i % 2 ^ 1),
    "button": lambda i: packet(POINTER_ABS, 10, 10, 7 if i % 2 else 0),
    "move": lambda i: packet(POINTER_ABS, i % 1900, i % 1000),
}


class Watcher(threading.Thread):
    """A viewer that takes what it is told, and counts the guest's frames."""

    def __init__(self, identifier):
        super().__init__(daemon=True)
        self.viewer = supervisors.Viewer(identifier)
        self.frames = self.last = 0
        self.map(self.viewer.frame)
        self.ended = False
        self.start()

    def map(self, frame):
        self.memory = mmap.mmap(frame, 0, prot=mmap.PROT_READ)
        self.whole = len(self.memory) > PLACE

    def run(self):
        channel = self.viewer.channel
        channel.settimeout(0.2)
        while not self.ended:
            with contextlib.suppress(TimeoutError):
                data, fds, _, _ = socket.recv_fds(channel, 64, 4)
                kind, *arguments = struct.unpack("<I7i", data)
                if kind == MODE:
                    self.map(fds[0])
                if kind == supervisors.DAMAGE and arguments[5]:
                    if self.whole:
                        self.count()
                    channel.send(packet(supervisors.DAMAGE_DONE, arguments[4]))
                for fd in fds:
                    os.close(fd)

    def count(self):
        """Adds the frames since the last look. Seven bits of a frame's number are in each row."""
        number = self.memory[PLACE] >> 1
        self.frames += (number - self.last) % 128
        self.last = number


def status_seconds(identifier):
    begin = time.monotonic()
    with socket.socket(socket.AF_UNIX) as service:
        service.settimeout(30)
        service.connect(f"/tmp/com.quelda.tarvhv.{identifier}.{os.getuid()}.sock")
        service.sendall(b"status\r\n")
        while service.recv(65536):
            pass
    return time.monotonic() - begin


def flood(identifier, make, seconds):
    """Sends at the rate for so long; the number of packets that found room."""
    viewer = supervisors.Viewer(identifier)
    viewer.channel.setblocking(False)
    viewer.channel.send(packet(65, 0))  # does not look
    begin, sent, tried = time.monotonic(), 0, 0
    while (passed := time.monotonic() - begin) < seconds:
        while tried < passed * RATE:
            tried += 1
            with contextlib.suppress(BlockingIOError):
                viewer.channel.send(make(sent))
                sent += 1
        time.sleep(0.002)
    viewer.channel.close()
    os.close(viewer.frame)
    return sent


def measure(watcher, identifier, pids, make, seconds):
    """Frames a second, the slowest status, growth of each process in KiB, packets taken."""
    before = {name: supervisors.kibibytes(pid)[0] for name, pid in pids.items()}
    most, slowest, sent = dict(before), 0, [0]
    flooder = threading.Thread(
        target=lambda: sent.append(flood(identifier, make, seconds) if make else 0))
    begin, first = time.monotonic(), watcher.frames
    flooder.start()
    while time.monotonic() - begin < seconds:
        slowest = max(slowest, status_seconds(identifier))
        for name, pid in pids.items():
            most[name] = max(most[name], supervisors.kibibytes(pid)[0])
        time.sleep(0.1)
    speed = (watcher.frames - first) / (time.monotonic() - begin)
    flooder.join()
    return speed, slowest, {name: most[name] - before[name] for name in pids}, sent[-1]


def run(watcher, identifier, pids, name, arguments):
    ratios, slowest, grown, sent = [], 0, dict.fromkeys(pids, 0), 0
    for _ in range(arguments.rounds):
        calm = measure(watcher, identifier, pids, None, arguments.seconds)[0]
        speed, answer, growth, count = measure(watcher, identifier, pids, FLOODS[name],
                                               arguments.seconds)
        calm = (calm + measure(watcher, identifier, pids, None, arguments.seconds)[0]) / 2
        ratios.append(speed / calm)
        slowest, sent = max(slowest, answer), sent + count
        grown = {key: max(grown[key], growth[key]) for key in pids}
    ratio = statistics.median(ratios)
    print(f"{name:6} guest at {ratio:.2f} of its speed ({calm:.0f} frames a second); status within {slowest * 1000:.0f} ms; "
          f"supervisor +{grown['supervisor']} KiB, engine +{grown['engine']} KiB; "
          f"{sent / arguments.rounds / arguments.seconds:.0f} packets a second taken", flush=True)
    return ratio >= SPEED and slowest <= STATUS and grown["supervisor"] <= GROWTH


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("kinds", nargs="*", default=list(FLOODS))
    parser.add_argument("--bin", type=pathlib.Path, default=supervisors.TREE / "build/release/bin")
    parser.add_argument("--guests", type=pathlib.Path,
                        default=supervisors.TREE / "build/dev/tests/guest")
    parser.add_argument("--seconds", type=float, default=6)
    parser.add_argument("--rounds", type=int, default=3)
    arguments = parser.parse_args()
    home = supervisors.Home(arguments.bin)
    try:
        identifier = home.add(arguments.guests / "repaint1000.img", 64)
        home.tarvctl("start", identifier)
        running = home.supervisor(identifier)
        watcher = Watcher(identifier)
        time.sleep(3)
        pids = {"supervisor": running["pid"], "engine": running["engine_pid"]}
        good = [run(watcher, identifier, pids, name, arguments) for name in arguments.kinds]
        watcher.ended = True
        watcher.join()
    finally:
        home.end()
    return 0 if all(good) else 1


if __name__ == "__main__":
    sys.exit(main())
