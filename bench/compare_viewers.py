#!/usr/bin/env python3
"""Processor time of a guest's screen shown by Tarv and by a SPICE viewer, side by side.

The guest repaints 1920 x 1080 pixels at 20 Hz. Each round runs Tarv (engine, supervisor, viewer) and
then remote-viewer (the same engine over SPICE, viewer) for the same time on a virtual screen of their
own, and takes the processor time of all processes but the X server. Prints the median ratio, and
what an open window costs while nothing moves. Builds nothing: run it after `cmake --build --preset
dev` (the guests) and `--preset release` (the programs).
"""

import argparse
import os
import pathlib
import re
import shutil
import signal
import statistics
import subprocess
import sys
import time
import uuid

TREE = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(TREE / "tools"))
import screenshot  # noqa: E402  the private session: screen, bus, home

screenshot.SCREEN = "2048x1280x24"
TICK = os.sysconf("SC_CLK_TCK")


def processor_seconds(pids):
    """User and system time of processes, all their threads."""
    total = 0
    for pid in pids:
        fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
        total += int(fields[11]) + int(fields[12])
    return total / TICK


def measure(pids, seconds):
    before = processor_seconds(pids)
    start = time.monotonic()
    time.sleep(seconds)
    return (processor_seconds(pids) - before) / (time.monotonic() - start)


def write_vm(session, image):
    identifier = str(uuid.uuid4())
    directory = session.home / "data" / "vms" / identifier
    images = session.home / "data" / "images"
    directory.mkdir(parents=True)
    images.mkdir(parents=True, exist_ok=True)
    shutil.copy(image, images / f"{identifier}.img")
    subprocess.run(["qemu-img", "convert", "-f", "raw", "-O", "qcow2", images / f"{identifier}.img",
                    images / f"{identifier}.qcow2"], check=True)
    (directory / "config.yaml").write_text(
        f"name: bench\nuuid: {identifier}\ncpu:\n  count: 1\nram:\n  size: 67108864\n"
        f"firmware: bios\nhard_drives:\n  - file: {identifier}.qcow2\n    controller: ablk\n"
        "network:\n  - mode: disconnected\n")
    return identifier


def prepare(binaries, image):
    session = screenshot.Session(binaries)
    session.open_desktop()
    (session.home / "data").mkdir()
    (session.home / "settings.ini").write_text(subprocess.run(
        [TREE / "tools" / "write-settings", session.bin, session.home / "data"], check=True,
        capture_output=True, text=True).stdout + "engine_accel = tcg\n")
    session.tarvctl("eula", "accept")
    return session, write_vm(session, image)


def own_processes(session, names):
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        try:
            if entry.name.isdigit() and (entry / "exe").resolve().name in names and \
                    str(session.home).encode() in (entry / "environ").read_bytes():
                found.append(int(entry.name))
        except OSError:
            continue
    return found


def show_in_tarv(session, identifier):
    session.start("tarv", [str(session.bin / "tarv")])
    screenshot.wait_for("the list", 60, lambda: session.window("^Virtual Machines$"))
    session.env["TARV_TARV_VIEWER"] = str(session.bin / "tarv")
    session.tarvctl("start", "-v", identifier)
    session.vm = identifier
    screenshot.wait_for("the VM's window", 60, lambda: session.window("^bench$"))


def run_tarv(arguments, image):
    """Processor seconds a second of engine, supervisor and viewer."""
    session, identifier = prepare(arguments.bin, image)
    try:
        show_in_tarv(session, identifier)
        time.sleep(arguments.warm_up)
        parts = {name: own_processes(session, [name])
                 for name in ("qemu-system-x86_64", "tarvvm", "tarv")}
        before = {name: processor_seconds(pids) for name, pids in parts.items()}
        total = measure([pid for pids in parts.values() for pid in pids], arguments.seconds)
        detail = ", ".join(f"{name} {(processor_seconds(pids) - before[name]) / arguments.seconds:.3f}"
                           for name, pids in parts.items())
        print(f"  tarv           {total:.3f}  ({detail})", flush=True)
        return total
    finally:
        session.end()


def engine_command(session, identifier, socket):
    """The engine's own command line, its display over SPICE instead."""
    command = session.tarvctl("show", "--command", identifier)
    line = [command["program"], *command["arguments"]]
    kept = []
    for word, value in zip(line, line[1:] + [""]):
        if kept and kept[-1] is None:
            kept[-1] = ""
        elif word == "-S":
            continue  # the supervisor lets it run once it listens
        elif word == "-display" or (word in ("-chardev", "-mon") and "monitor" in value):
            kept.append(None)  # this option's value goes too
        else:
            kept.append(word)
    # What the supervisor would have handed in as descriptors leads nowhere here.
    kept = [re.sub(r"^socket,id=(\w+),fd=.*", r"null,id=\1", word) for word in kept if word]
    return kept + ["-display", "none", "-spice", f"unix=on,addr={socket},disable-ticketing=on"]


def run_spice(arguments, image):
    session, identifier = prepare(arguments.bin, image)
    try:
        socket = session.home / "spice.sock"
        engine = session.start("engine", engine_command(session, identifier, socket))
        screenshot.wait_for("the engine's socket", 30,
                            lambda: socket.exists() or engine.poll() is not None)
        viewer = session.start("viewer", ["remote-viewer", f"spice+unix://{socket}"])
        time.sleep(arguments.warm_up)
        if engine.poll() is not None or viewer.poll() is not None:
            raise screenshot.StepFailed("SPICE: " + session.log("engine") + session.log("viewer"))
        total = measure([engine.pid, viewer.pid], arguments.seconds)
        print(f"  remote-viewer  {total:.3f}", flush=True)
        return total
    finally:
        session.end()


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bin", type=pathlib.Path, default=TREE / "build/release/bin")
    parser.add_argument("--guests", type=pathlib.Path, default=TREE / "build/dev/tests/guest")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--seconds", type=float, default=20)
    parser.add_argument("--warm-up", type=float, default=8)
    arguments = parser.parse_args()
    arguments.bin = arguments.bin.resolve()
    ratios = []
    try:
        for number in range(arguments.rounds):
            print(f"round {number + 1}: processor seconds a second", flush=True)
            ours = run_tarv(arguments, arguments.guests / "repaint20.img")
            theirs = run_spice(arguments, arguments.guests / "repaint20.img")
            ratios.append(ours / theirs)
            print(f"  ratio          {ratios[-1]:.3f}")
        print(f"median ratio {statistics.median(ratios):.3f} (goal: at most 0.45)")
        print("idle: the bars, nothing moves")
        run_tarv(arguments, arguments.guests / "bars.img")
        return 0
    except screenshot.StepFailed as failure:
        print(f"compare_viewers: {failure}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    sys.exit(main())
