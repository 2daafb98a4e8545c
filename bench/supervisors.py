#!/usr/bin/env python3
"""Many supervisors at once, the memory of one, and what a screen costs on which nothing moves.

crowd   starts 50 VMs of the smallest guest, 8 at a time, and stops them: none lost, none left
memory  a supervisor's memory beside the frame buffer, with a viewer on 1920 x 1080 at 20 Hz
idle    packets to a viewer and processor time while a text screen stands still

Prints figures; the exit status is 1 when a VM or a process is lost or left, or a supervisor takes more
than its budget. Builds nothing: run it after `cmake --build --preset dev` (the guests) and `--preset
release` (the programs).
"""

import argparse
import contextlib
import json
import os
import pathlib
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import uuid

TREE = pathlib.Path(__file__).resolve().parent.parent
BUDGET = 12 * 1024  # KiB beside the frame buffer
DAMAGE, DAMAGE_DONE = 1, 64
TICK = os.sysconf("SC_CLK_TCK")


class Home:
    """A private library and launch service."""

    def __init__(self, binaries):
        self.path = pathlib.Path(tempfile.mkdtemp(prefix="tarv-bench."))
        self.bin = binaries
        self.ids = []
        settings = subprocess.run([TREE / "tools" / "write-settings", binaries, self.path / "data"],
                                  check=True, capture_output=True, text=True).stdout
        (self.path / "settings.ini").write_text(
            settings + f"engine_accel = tcg\nstop_wait = 1\nvlaunch_sock = {self.path}/vlaunchd\n")
        self.env = {"PATH": os.environ["PATH"], "HOME": str(self.path),
                    "TARV_SUPPORT_DIR": str(self.path / "support"), "TARV_MACHINE_READABLE": "1",
                    "TARV_CONFIG_PATH": str(self.path / "settings.ini")}

    def add(self, image, ram):
        identifier = str(uuid.uuid4())
        directory = self.path / "data" / "vms" / identifier
        images = self.path / "data" / "images"
        directory.mkdir(parents=True)
        images.mkdir(parents=True, exist_ok=True)
        shutil.copy(image, images / f"{identifier}.img")
        (directory / "config.yaml").write_text(
            f"name: vm{len(self.ids)}\nram:\n  size: {ram << 20}\n"
            f"hard_drives:\n- file: {identifier}.img\n")
        self.ids.append(identifier)
        return identifier

    def tarvctl(self, *arguments):
        done = subprocess.run([self.bin / "tarvctl", *arguments], env=self.env, check=False,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True)
        answer = json.loads(done.stdout)
        if answer["status"] != "OK":
            print(f"tarvctl {arguments[0]}: {answer['message']}")
        return answer["body"]

    def statuses(self):
        return {vm["id"]: vm["status"] for vm in self.tarvctl("list")}

    def supervisor(self, identifier):
        return self.tarvctl("show", identifier)["running"]

    def processes(self):
        found = []
        for entry in pathlib.Path("/proc").iterdir():
            with contextlib.suppress(OSError):
                line = (entry / "cmdline").read_bytes().decode(errors="replace")
                if entry.name.isdigit() and any(identifier in line for identifier in self.ids):
                    found.append(int(entry.name))
        return found

    def end(self):
        if running := [identifier for identifier, status in self.statuses().items()
                       if status in ("running", "malfunction")]:
            self.tarvctl("stop", "--force", *running)
        with socket.socket(socket.AF_UNIX) as service, contextlib.suppress(OSError):
            service.connect(str(self.path / "vlaunchd"))
            peer = service.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, struct.calcsize("3i"))
            os.kill(struct.unpack("3i", peer)[0], signal.SIGTERM)
            service.recv(1)  # the end of the stream is its end
        shutil.rmtree(self.path)


class Viewer:
    """Looks at a VM's first screen and takes what it is told."""

    def __init__(self, identifier):
        with socket.socket(socket.AF_UNIX) as service:
            service.connect(f"/tmp/com.quelda.tarvhv.{identifier}.{os.getuid()}.sock")
            service.sendall(b'display\r\n{"index":0}')
            _, fds, _, _ = socket.recv_fds(service, 65536, 4)
        self.frame, channel = fds
        self.channel = socket.socket(fileno=channel)

    def watch(self, seconds):
        """The number of packets that came."""
        packets, end = 0, time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            self.channel.settimeout(left)
            try:
                data, fds, _, _ = socket.recv_fds(self.channel, 64, 4)
            except TimeoutError:
                break
            for fd in fds:
                os.close(fd)
            kind, *arguments = struct.unpack("<I7i", data)
            packets += 1
            if kind == DAMAGE and arguments[5]:
                self.channel.send(struct.pack("<I7i", DAMAGE_DONE, arguments[4], *[0] * 6))
        return packets


def kibibytes(pid):
    """Resident memory of a process, all of it and beside shared memory; its share of both."""
    text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    sizes = {line.split(":")[0]: int(line.split()[1]) for line in text.splitlines()[1:]}
    status = pathlib.Path(f"/proc/{pid}/status").read_text()
    shared = int(status.split("RssShmem:")[1].split()[0])
    return sizes["Rss"] - shared, sizes["Pss"] - sizes["Pss_Shmem"], sizes["Anonymous"]


def processor_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / TICK


def crowd(home, guests, count):
    ids = [home.add(guests / "text.img", 16) for _ in range(count)]
    begin = time.monotonic()
    home.tarvctl("start", *ids)
    started = time.monotonic() - begin
    states = home.statuses()
    running = sum(states[identifier] == "running" for identifier in ids)
    sizes = [kibibytes(home.supervisor(identifier)["pid"]) for identifier in ids]
    begin = time.monotonic()
    home.tarvctl("stop", "--force", *ids)
    stopped = time.monotonic() - begin
    states = home.statuses()
    down = sum(states[identifier] == "stopped" for identifier in ids)
    left = home.processes()
    sockets = [identifier for identifier in ids if
               os.path.exists(f"/tmp/com.quelda.tarvhv.{identifier}.{os.getuid()}.sock")]
    print(f"crowd: {running} of {count} run after {started:.1f} s, {down} are down after "
          f"{stopped:.1f} s; {len(left)} processes and {len(sockets)} sockets are left")
    print(f"  a supervisor's share without frame buffer: at most {max(size[1] for size in sizes)} KiB,"
          f" anonymous {max(size[2] for size in sizes)} KiB")
    return running == count == down and not left and not sockets


def memory(home, guests):
    identifier = home.add(guests / "repaint20.img", 64)
    home.tarvctl("start", identifier)
    pid = home.supervisor(identifier)["pid"]
    before = kibibytes(pid)
    viewer = Viewer(identifier)
    viewer.watch(10)
    rest, share, anonymous = kibibytes(pid)
    print(f"memory: {before[0]} KiB resident without a viewer; with one, beside the frame buffer, "
          f"{rest} KiB resident, {share} KiB as its share, {anonymous} KiB anonymous "
          f"(budget {BUDGET} KiB)")
    return rest < BUDGET


def idle(home, guests, seconds):
    identifier = home.add(guests / "text.img", 64)
    home.tarvctl("start", identifier)
    running = home.supervisor(identifier)
    viewer = Viewer(identifier)
    viewer.watch(5)
    pids = {"supervisor": running["pid"], "engine": running["engine_pid"]}
    before = {name: processor_seconds(pid) for name, pid in pids.items()}
    packets = viewer.watch(seconds)
    used = ", ".join(f"{name} {(processor_seconds(pid) - before[name]) / seconds * 100:.2f} %"
                     for name, pid in pids.items())
    print(f"idle: {packets / seconds:.1f} packets a second; of a core: {used}")
    return True


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("parts", nargs="*", default=["crowd", "memory", "idle"])
    parser.add_argument("--bin", type=pathlib.Path, default=TREE / "build/release/bin")
    parser.add_argument("--guests", type=pathlib.Path, default=TREE / "build/dev/tests/guest")
    parser.add_argument("--count", type=int, default=50)
    parser.add_argument("--seconds", type=float, default=20)
    arguments = parser.parse_args()
    parts = {"crowd": lambda home: crowd(home, arguments.guests, arguments.count),
             "memory": lambda home: memory(home, arguments.guests),
             "idle": lambda home: idle(home, arguments.guests, arguments.seconds)}
    sound = True
    for name in arguments.parts:
        home = Home(arguments.bin.resolve())
        try:
            sound = parts[name](home) and sound
        finally:
            home.end()
    return 0 if sound else 1


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    sys.exit(main())
