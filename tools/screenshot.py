#!/usr/bin/env python3
"""Starts Tarv as a person would, on a virtual screen and in a private home, and saves a picture.

Accepts the agreement through tarvctl, adds a VM, starts it from the list with a double-click, waits
for the guest's picture in its window, saves the screen as a PNG and ends all that it started. A step
that fails is named, and the exit status is 1.
"""

import argparse
import contextlib
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

TOOLS = pathlib.Path(__file__).resolve().parent
SCREEN = "1480x620x24"


class StepFailed(Exception):
    """A step did not come to its end; the text says which and why."""


def say(text):
    print(f"screenshot: {text}", flush=True)


def wait_for(what, seconds, probe):
    """Calls probe until it answers something true, and returns that."""
    deadline = time.monotonic() + seconds
    while True:
        answer = probe()
        if answer:
            return answer
        if time.monotonic() > deadline:
            raise StepFailed(f"{what}: nothing after {seconds} s")
        time.sleep(0.1)


class Session:
    """A private home, screen, window manager and session bus, and what runs in them."""

    def __init__(self, binaries, screen=SCREEN):
        self.bin = binaries
        self.screen = screen
        self.children = []
        self.home = pathlib.Path(tempfile.mkdtemp(prefix="tarv-shot."))
        self.env = {k: v for k, v in os.environ.items()
                    if not k.startswith(("TARV_", "DBUS_", "XDG_", "QT_", "WAYLAND", "LANG"))}
        self.env.update(HOME=str(self.home), XDG_CONFIG_HOME=str(self.home / "config"),
                        XDG_CACHE_HOME=str(self.home / "cache"),
                        XDG_RUNTIME_DIR=str(self.home / "runtime"),
                        QT_QPA_PLATFORM="xcb", LC_ALL="C.UTF-8",
                        TARV_SUPPORT_DIR=str(self.home / "support"),
                        TARV_CONFIG_PATH=str(self.home / "settings.ini"))
        (self.home / "runtime").mkdir(mode=0o700)
        self.vm = None

    def start(self, name, command, **options):
        log = open(self.home / f"{name}.log", "wb")
        try:
            child = subprocess.Popen(command, env=self.env, stdin=subprocess.DEVNULL, stderr=log,
                                     **{"stdout": log, **options})
        except OSError as error:
            raise StepFailed(f"starting {name}: {error}") from error
        self.children.append((name, child))
        return child

    def run(self, *command, timeout=60):
        try:
            return subprocess.run(command, env=self.env, stdin=subprocess.DEVNULL, timeout=timeout,
                                  capture_output=True, text=True, check=False)
        except (OSError, subprocess.TimeoutExpired) as error:
            raise StepFailed(f"{command[0]}: {error}") from error

    def tarvctl(self, *arguments):
        self.env["TARV_MACHINE_READABLE"] = "1"
        result = self.run(str(self.bin / "tarvctl"), *arguments)
        del self.env["TARV_MACHINE_READABLE"]
        try:
            answer = json.loads(result.stdout)
        except ValueError:
            answer = {"message": result.stdout + result.stderr}
        if result.returncode != 0:
            raise StepFailed(f"tarvctl {arguments[0]}: status {result.returncode}: "
                             f"{answer.get('message', '').strip()}")
        return answer.get("body")

    def open_desktop(self):
        read, write = os.pipe()
        self.start("Xvfb", ["Xvfb", "-displayfd", str(write), "-screen", "0", self.screen, "-nolisten",
                            "tcp"], pass_fds=[write])
        os.close(write)
        with os.fdopen(read) as stream:
            number = stream.readline().strip()
        if not number:
            raise StepFailed("starting Xvfb: it ended; " + self.log("Xvfb"))
        self.env["DISPLAY"] = f":{number}"
        bus = self.start("dbus-daemon", ["dbus-daemon", "--session", "--nofork", "--print-address"],
                         stdout=subprocess.PIPE)
        self.env["DBUS_SESSION_BUS_ADDRESS"] = bus.stdout.readline().decode().strip()
        # Its command runs once it manages windows: one that is opened before is lost now and then.
        ready = self.home / "openbox.ready"
        self.start("openbox", ["openbox", "--startup", f"touch {ready}"])
        wait_for("starting the window manager", 30, ready.exists)
        self.run("xsetroot", "-solid", "#3b5266")

    def log(self, name):
        path = self.home / f"{name}.log"
        return path.read_text(errors="replace").strip()[-600:] if path.exists() else ""

    def window(self, pattern):
        """The id of the visible window whose title matches, or none."""
        found = self.run("xdotool", "search", "--onlyvisible", "--name", pattern).stdout.split()
        return found[-1] if found else None

    def geometry(self, window):
        text = self.run("xdotool", "getwindowgeometry", "--shell", window).stdout
        values = dict(line.split("=") for line in text.split() if "=" in line)
        return tuple(int(values[k]) for k in ("X", "Y", "WIDTH", "HEIGHT"))

    def grey(self, window):
        """The window's pixels, one byte of grey each."""
        return subprocess.run(["import", "-window", window, "-colorspace", "gray", "-depth", "8",
                               "gray:-"], env=self.env, capture_output=True, check=False).stdout

    def end(self):
        if self.vm:
            with contextlib.suppress(StepFailed):
                self.tarvctl("stop", "--force", self.vm)
        for _, child in reversed(self.children):
            if child.poll() is None:
                child.send_signal(signal.SIGTERM)
                try:
                    child.wait(10)
                except subprocess.TimeoutExpired:
                    child.kill()
                    child.wait()
        self.end_launch_service()
        shutil.rmtree(self.home, ignore_errors=True)

    def end_launch_service(self):
        """The launch service outlives its clients by design; this one is ours alone."""
        for entry in pathlib.Path("/proc").iterdir():
            with contextlib.suppress(OSError):
                if entry.name.isdigit() and str(self.home).encode() in (entry / "environ").read_bytes():
                    if (entry / "exe").resolve() == self.bin / "vlaunchd":
                        os.kill(int(entry.name), signal.SIGTERM)


def prepare(session, arguments):
    say("a private home with settings and the agreement accepted")
    documents = session.home / "support" / "documentation"
    documents.mkdir(parents=True)
    shutil.copy(TOOLS.parent / "resources" / "License.rtf", documents)
    settings = subprocess.run([TOOLS / "write-settings", session.bin, session.home / "data"],
                              check=True, capture_output=True, text=True).stdout
    (session.home / "data").mkdir()
    (session.home / "settings.ini").write_text(settings)
    session.tarvctl("eula", "accept")
    say(f"a VM named {arguments.name}")
    session.tarvctl("create", "--ram-size", "268435456", "--disk-size", "1073741824",
                    "--cpu-count", "1", arguments.name, arguments.image)
    session.vm = arguments.name


def start_from_list(session, arguments):
    say("the list")
    application = session.start("tarv", [str(session.bin / "tarv")])

    def list_window():
        if application.poll() is not None:
            raise StepFailed(f"starting tarv: it ended with {application.returncode}; "
                             + session.log("tarv"))
        return session.window("^Virtual Machines$")

    window = wait_for("the VM list's window", 60, list_window)
    x, y, width, height = session.geometry(window)
    session.run("xdotool", "windowmove", window, "24", "48")
    say("a double-click on the VM")
    # The row is found as a person would who can't see: one double-click after the other, downwards.
    for step in range(94, height, 14):
        x, y, width, height = session.geometry(window)
        session.run("xdotool", "mousemove", str(x + width // 3), str(y + step), "click",
                    "--repeat", "2", "--delay", "60", "1")
        try:
            wait_for("the VM", 1.5, lambda: running(session))
            return window
        except StepFailed:
            continue
    raise StepFailed("the double-click: the VM did not start; " + session.log("tarv"))


def running(session):
    body = session.tarvctl("show", session.vm)
    return str(body.get("status", "")).lower() in ("running", "starting")


def echoes(session, window):
    """Whether what is typed appears in the window; it is taken back.

    The boot loader shows a menu first, in which "c" opens its prompt.
    """
    session.run("xdotool", "key", "c")
    time.sleep(0.6)
    before = session.grey(window)
    session.run("xdotool", "type", "--delay", "40", "WWW")
    time.sleep(0.6)
    after = session.grey(window)
    session.run("xdotool", "key", "--delay", "40", *["BackSpace"] * 4)
    changed = sum(abs(a - b) > 64 for a, b in zip(after, before))
    # Three letters change some dozens of pixels; a screen that is being drawn, far more.
    return len(after) == len(before) and 50 < changed < 600


def wait_for_prompt(session, arguments):
    say("the guest's picture")
    guest = wait_for("the VM's window", 120, lambda: session.window(f"^{arguments.name}$"))
    _, _, width, _ = session.geometry(guest)
    session.run("xdotool", "windowmove", guest, str(1480 - width - 24), "48")
    session.run("xdotool", "windowfocus", "--sync", guest)
    say("the guest's prompt, which answers to the keyboard")
    wait_for("the guest's prompt", 180, lambda: echoes(session, guest))
    wait_for("the VM as running", 60,
             lambda: session.tarvctl("show", session.vm)["status"] == "running")
    session.run("xdotool", "type", "--delay", "60", "ls")
    session.run("xdotool", "key", "Return")
    settle(session, guest)


def settle(session, window):
    """Waits until two pictures of a window, a second apart, are nearly the same."""
    before = session.grey(window)
    for _ in range(20):
        time.sleep(1)
        after = session.grey(window)
        if len(after) == len(before) and sum(abs(a - b) > 24 for a, b in zip(after, before)) < 40:
            return
        before = after


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bin", type=pathlib.Path, required=True, help="directory of the programs")
    parser.add_argument("--name", required=True, help="name of the VM")
    parser.add_argument("--image", required=True, help="image that the VM is made from")
    parser.add_argument("picture", type=pathlib.Path, help="PNG file to write")
    arguments = parser.parse_args()
    session = Session(arguments.bin.resolve())
    try:
        session.open_desktop()
        prepare(session, arguments)
        start_from_list(session, arguments)
        wait_for_prompt(session, arguments)
        result = session.run("import", "-window", "root", f"png:{arguments.picture}")
        if result.returncode != 0:
            raise StepFailed(f"saving {arguments.picture}: {result.stderr.strip()}")
        say(f"saved {arguments.picture}")
        return 0
    except StepFailed as failure:
        print(f"screenshot: FAILED: {failure}", file=sys.stderr)
        return 1
    finally:
        session.end()


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    sys.exit(main())
