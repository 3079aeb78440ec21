#!/usr/bin/python3
"""How fast brisvane starts, and how much memory it keeps, on a real (virtual) desktop.

Runs the application of this build, with the demo helper as its child, under a private
Xvfb, openbox, trayer and session bus, and prints for each figure the median, minimum and
maximum of all runs beside its goal:

  tray icon   exec to the icon embedded in trayer and viewable (reported only)
  first ping  exec to the helper's first answered ping, which the application passes on
              as "o: answered ping 1" (goal: under 300 ms)
  memory      the application's VmRSS and VmHWM after polling for a while, logged in with
              three watched folders of small files (goal: under 40 MB); the helper's
              figures beside them, as the helper is not the application

Every run starts in a fresh temporary home ("cold": no autostart entry yet), then once
more in the same home ("warm"). The figures are printed, never judged: the machine is
shared, so compare medians, and look at the range.

usage: startup [--runs N] [--memory-seconds S]
"""

import argparse
import ctypes
import json
import os
import re
import selectors
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

# Filled in by the build.
APPLICATION = "$<TARGET_FILE:brisvane>"
TRAY_WATCH = "$<TARGET_FILE:startup_tray_watch>"

ICON_CLASS = "brisvane"
ICON_SIZE = "22x22"
START_TIMEOUT_S = 20.0
EXIT_TIMEOUT_S = 5.0
PING_GOAL_MS = 300.0
MEMORY_GOAL_MB = 40.0
FIRST_ANSWER = re.compile(r"answered ping 1$")
WATCHED_FOLDERS = (("Family", 1001), ("Work", 9007199254740993),
                   ("Photos", 4611686018427387917))
FILES_PER_FOLDER = 300
DISPLAY_NUMBERS = range(120, 200)


class BenchError(Exception):
    pass


def now_ns():
    # CLOCK_MONOTONIC, the clock the tray watcher stamps with.
    return time.monotonic_ns()


def become_subreaper():
    """Orphans of what we start (the helper, once its application is stopped) come to
    us, so we can wait for them to be gone before the next run."""
    PR_SET_CHILD_SUBREAPER = 36
    libc = ctypes.CDLL(None, use_errno=True)
    libc.prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)


def read_until(fd, done, timeout_s):
    """Reads fd until done(text) holds or it ends; the text read, or None on time-out."""
    text = b""
    deadline = time.monotonic() + timeout_s
    with selectors.DefaultSelector() as selector:
        selector.register(fd, selectors.EVENT_READ)
        while not done(text.decode(errors="replace")):
            left = deadline - time.monotonic()
            if left <= 0 or not selector.select(left):
                return None
            chunk = os.read(fd, 4096)
            if not chunk:
                break
            text += chunk
    return text.decode(errors="replace")


def wait_for(condition, timeout_s, interval_s=0.01):
    deadline = time.monotonic() + timeout_s
    while not condition():
        if time.monotonic() >= deadline:
            return False
        time.sleep(interval_s)
    return True


class Processes:
    """Everything started here, each in its own process group, ended on the way out."""

    def __init__(self):
        self.started = []

    def start(self, argv, **options):
        process = subprocess.Popen(argv, start_new_session=True, **options)
        self.started.append(process)
        return process

    def stop(self, process):
        """Ends the process and everything in its group, and waits for all of them."""
        children = children_of(process.pid)
        for sig in (signal.SIGTERM, signal.SIGKILL):
            try:
                os.killpg(process.pid, sig)
            except ProcessLookupError:
                pass
            if wait_for(lambda: process.poll() is not None and all(map(reaped, children)),
                        EXIT_TIMEOUT_S):
                break
        if process in self.started:
            self.started.remove(process)

    def stop_all(self):
        for process in reversed(list(self.started)):
            self.stop(process)


def children_of(pid):
    children = []
    for stat in Path("/proc").glob("[0-9]*/stat"):
        try:
            # "pid (comm) state ppid ...": the name may hold spaces and parentheses.
            fields = stat.read_text().rsplit(")", 1)[1].split()
        except (OSError, IndexError):
            continue
        if int(fields[1]) == pid:
            children.append(int(stat.parent.name))
    return children


def reaped(pid):
    """True once pid, a child of ours or an orphan adopted by us, is gone."""
    try:
        return os.waitpid(pid, os.WNOHANG)[0] == pid
    except ChildProcessError:
        return not Path(f"/proc/{pid}").exists()


def memory_of(pid):
    """VmRSS, VmHWM and the parts of VmRSS, in KiB."""
    figures = {}
    for line in Path(f"/proc/{pid}/status").read_text().splitlines():
        name, _, value = line.partition(":")
        if name in ("VmRSS", "VmHWM", "RssAnon", "RssFile", "RssShmem"):
            figures[name] = int(value.split()[0])
    return figures


class Desktop:
    """A session bus, Xvfb on a free display, openbox and trayer."""

    def __init__(self, processes):
        self.processes = processes
        self.environment = {}

    def start(self):
        bus = self.processes.start(["dbus-daemon", "--session", "--nofork", "--print-address=1"],
                                   stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        address = read_until(bus.stdout.fileno(), lambda text: "\n" in text, 10)
        if not address:
            raise BenchError("the session bus did not start")
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = address.strip()

        self.environment["DISPLAY"] = self._start_xvfb()
        self.processes.start(["openbox"], env=self.env(), stdout=subprocess.DEVNULL,
                             stderr=subprocess.DEVNULL)
        if not wait_for(self._window_manager_runs, 10, 0.05):
            raise BenchError("openbox did not start")
        self.processes.start(["trayer", "--edge", "top", "--align", "right", "--widthtype",
                              "pixel", "--width", "200", "--height", "24"],
                             env=self.env(), stdout=subprocess.DEVNULL,
                             stderr=subprocess.DEVNULL)
        # The tray watcher waits for trayer to own the tray before each start.

    def env(self, **extra):
        environment = dict(os.environ)
        for name in list(environment):
            if name.startswith(("BRISVANE_", "XDG_", "QT_")) or name in (
                    "WAYLAND_DISPLAY", "AT_SPI_BUS_ADDRESS"):
                del environment[name]
        environment.update(self.environment)
        environment.update(extra)
        return environment

    def _start_xvfb(self):
        for number in DISPLAY_NUMBERS:
            if (Path(f"/tmp/.X{number}-lock").exists()
                    or Path(f"/tmp/.X11-unix/X{number}").exists()):
                continue
            ready_read, ready_write = os.pipe()
            xvfb = self.processes.start(
                ["Xvfb", f":{number}", "-noreset", "-nolisten", "tcp", "-screen", "0",
                 "1280x800x24", "-displayfd", str(ready_write)],
                pass_fds=(ready_write,), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            os.close(ready_write)
            said = read_until(ready_read, lambda text: "\n" in text, 10)
            os.close(ready_read)
            if said and said.strip() == str(number):
                return f":{number}"
            self.processes.stop(xvfb)  # lost the number to someone else: try the next
        raise BenchError("no free X display number")

    def _window_manager_runs(self):
        check = subprocess.run(["xprop", "-root", "_NET_SUPPORTING_WM_CHECK"], env=self.env(),
                               capture_output=True, text=True)
        return "window id" in check.stdout


class Home:
    """A temporary home for one application: configuration, state, runtime folder."""

    def __init__(self):
        self.path = Path(tempfile.mkdtemp(prefix="brisvane-startup-"))
        for folder in ("config", "state", "cache", "data"):
            (self.path / folder).mkdir()
        (self.path / "runtime").mkdir(mode=0o700)

    def env(self):
        return {
            "XDG_CONFIG_HOME": str(self.path / "config"),
            "XDG_STATE_HOME": str(self.path / "state"),
            "XDG_CACHE_HOME": str(self.path / "cache"),
            "XDG_DATA_HOME": str(self.path / "data"),
            "XDG_RUNTIME_DIR": str(self.path / "runtime"),
            "QT_QPA_PLATFORM": "xcb",
            "BRISVANE_DEMO_OPENER": "true",
            "BRISVANE_DEMO_ANNOUNCE_ANSWERS": "1",
        }

    def autostart_entries(self):
        folder = self.path / "config" / "autostart"
        return sorted(entry.name for entry in folder.iterdir()) if folder.is_dir() else []

    def seed_logged_in_with_folders(self):
        """The demo helper's state: logged in, watching folders of small files."""
        folders = []
        for name, group_id in WATCHED_FOLDERS:
            folder = self.path / "watched" / name
            folder.mkdir(parents=True)
            for index in range(FILES_PER_FOLDER):
                (folder / f"file{index:04}.txt").write_bytes(os.urandom(512))
            folders.append({"Path": str(folder), "GroupID": group_id, "Enabled": True})
        state = {"LoggedIn": True, "UserName": "ann@example.org", "Folders": folders}
        state_file = self.path / "state" / "brisvane-demo" / "state.json"
        state_file.parent.mkdir(parents=True)
        state_file.write_text(json.dumps(state))

    def remove(self):
        shutil.rmtree(self.path, ignore_errors=True)


class Application:
    """One start of the application, its standard output stamped as it arrives."""

    def __init__(self, processes, desktop, home):
        self.processes = processes
        self.output = b""
        self.log = open(home.path / "stderr.txt", "wb")
        self.started_ns = now_ns()
        self.process = processes.start([APPLICATION], cwd=home.path,
                                       env=desktop.env(**home.env()),
                                       stdout=subprocess.PIPE, stderr=self.log)

    def first_answer_ns(self, selector):
        """Reads what is there; the stamp of the first answered ping when this read
        brought it."""
        chunk = os.read(self.process.stdout.fileno(), 65536)
        stamp = now_ns()
        seen_before = any(map(FIRST_ANSWER.search, self.lines()))
        self.output += chunk
        if not chunk:
            selector.unregister(self.process.stdout)
        if not seen_before and any(map(FIRST_ANSWER.search, self.lines())):
            return stamp
        return None

    def lines(self):
        return self.output.decode(errors="replace").splitlines()

    def helper_pid(self):
        children = children_of(self.process.pid)
        return children[0] if children else None

    def stop(self):
        self.processes.stop(self.process)
        self.process.stdout.close()
        self.log.close()

    def describe_failure(self, what):
        tail = "\n".join(self.lines()[-15:])
        errors = Path(self.log.name).read_text(errors="replace").strip()
        return f"{what}\n--- standard output (end):\n{tail}\n--- standard error:\n{errors}"


def timed_start(processes, desktop, home):
    """Milliseconds from exec to the tray icon, and to the first answered ping."""
    watch = processes.start([TRAY_WATCH, ICON_CLASS, ICON_SIZE, str(int(START_TIMEOUT_S * 1000))],
                            env=desktop.env(), stdout=subprocess.PIPE)
    try:
        said = read_until(watch.stdout.fileno(), lambda text: text.endswith("\n"), START_TIMEOUT_S)
        if said != "ready\n":
            raise BenchError(f"the tray watcher did not get ready: {said!r}")
        application = Application(processes, desktop, home)
        try:
            tray_ns, ping_ns = wait_for_icon_and_answer(watch, application)
            return ((tray_ns - application.started_ns) / 1e6,
                    (ping_ns - application.started_ns) / 1e6)
        finally:
            application.stop()
    finally:
        processes.stop(watch)
        watch.stdout.close()


def wait_for_icon_and_answer(watch, application):
    """The monotonic stamps of the icon shown and of the first answered ping."""
    tray_ns = ping_ns = None
    watch_text = ""
    deadline = time.monotonic() + START_TIMEOUT_S
    with selectors.DefaultSelector() as selector:
        selector.register(watch.stdout, selectors.EVENT_READ)
        selector.register(application.process.stdout, selectors.EVENT_READ)
        while tray_ns is None or ping_ns is None:
            if application.process.poll() is not None:
                raise BenchError(application.describe_failure(
                    f"the application ended with status {application.process.returncode}"))
            if time.monotonic() >= deadline:
                missing = "the tray icon" if tray_ns is None else "the first answered ping"
                raise BenchError(application.describe_failure(
                    f"no sign of {missing} within {START_TIMEOUT_S:.0f} s"))
            for key, _ in selector.select(0.1):
                if key.fileobj is not watch.stdout:
                    ping_ns = application.first_answer_ns(selector) or ping_ns
                    continue
                chunk = os.read(watch.stdout.fileno(), 4096).decode()
                if not chunk:
                    selector.unregister(watch.stdout)
                watch_text += chunk
                shown = re.search(r"^shown (\d+)", watch_text, re.MULTILINE)
                if shown:
                    tray_ns = int(shown.group(1))
    return tray_ns, ping_ns


def start_up_runs(processes, desktop, runs):
    figures = {"cold": ([], []), "warm": ([], [])}
    for run in range(1, runs + 1):
        home = Home()
        try:
            for kind in ("cold", "warm"):
                tray_ms, ping_ms = timed_start(processes, desktop, home)
                figures[kind][0].append(tray_ms)
                figures[kind][1].append(ping_ms)
                print(f"  run {run} {kind}: tray icon {tray_ms:7.1f} ms, "
                      f"first ping {ping_ms:7.1f} ms", flush=True)
                if kind == "cold" and not home.autostart_entries():
                    print("  (the cold start wrote no autostart entry: the warm start is "
                          "not warm)", flush=True)
        finally:
            home.remove()
    return figures


def memory_run(processes, desktop, seconds):
    """KiB figures of the application and of its helper after `seconds` of polling, and
    the application's VmRSS every ten seconds on the way."""
    home = Home()
    try:
        home.seed_logged_in_with_folders()
        application = Application(processes, desktop, home)
        try:
            if not wait_for(lambda: any(map(FIRST_ANSWER.search, read_now(application))),
                            START_TIMEOUT_S, 0.05):
                raise BenchError(application.describe_failure("the helper never answered"))
            trend = []
            for elapsed in range(1, seconds + 1):
                time.sleep(max(0.0, application.started_ns / 1e9 + elapsed - now_ns() / 1e9))
                read_now(application)
                if application.process.poll() is not None:
                    raise BenchError(application.describe_failure("the application ended"))
                if elapsed % 10 == 0 or elapsed == seconds:
                    trend.append((elapsed, memory_of(application.process.pid)["VmRSS"]))
            helper = application.helper_pid()
            return (memory_of(application.process.pid),
                    memory_of(helper) if helper else None, trend)
        finally:
            application.stop()
    finally:
        home.remove()


def read_now(application):
    """Drains what the application has written, so its pipe never fills."""
    with selectors.DefaultSelector() as selector:
        selector.register(application.process.stdout, selectors.EVENT_READ)
        while selector.get_map() and selector.select(0):
            application.first_answer_ns(selector)
    return application.lines()


def row(figure, values, unit, goal=None):
    median = statistics.median(values)
    goal_text = f"< {goal:g} {unit}" if goal is not None else "-"
    met = ("yes" if median < goal else "NO") if goal is not None else ""
    return (f"{figure:<28}{len(values):>5}{median:>10.1f}{min(values):>10.1f}"
            f"{max(values):>10.1f}  {unit:<4}{goal_text:>12}  {met}")


def print_table(start_figures, memory):
    print()
    print(f"{'figure':<28}{'runs':>5}{'median':>10}{'min':>10}{'max':>10}  "
          f"{'unit':<4}{'goal':>12}  met")
    for kind in ("cold", "warm"):
        tray, ping = start_figures[kind]
        print(row(f"tray icon shown ({kind})", tray, "ms"))
        print(row(f"first ping answered ({kind})", ping, "ms", PING_GOAL_MS))
    if memory:
        application, helper, trend = memory
        print(row("application VmRSS", [application["VmRSS"] * 1024 / 1e6], "MB", MEMORY_GOAL_MB))
        print(row("application VmHWM", [application["VmHWM"] * 1024 / 1e6], "MB", MEMORY_GOAL_MB))
        if helper:
            print(row("helper VmRSS (not the app)", [helper["VmRSS"] * 1024 / 1e6], "MB"))
            print(row("helper VmHWM (not the app)", [helper["VmHWM"] * 1024 / 1e6], "MB"))
        print("application VmRSS = {:.1f} MB own memory (RssAnon) + {:.1f} MB mapped files "
              "(RssFile, mostly shared libraries) + {:.1f} MB shared memory (RssShmem)".format(
                  *(application[part] * 1024 / 1e6 for part in ("RssAnon", "RssFile", "RssShmem"))))
        print("application VmRSS on the way: " + ", ".join(
            f"{elapsed} s {kib * 1024 / 1e6:.1f} MB" for elapsed, kib in trend))


def parse_arguments():
    parser = argparse.ArgumentParser(
        description="Start-up time and memory of brisvane under Xvfb, openbox and trayer.")
    parser.add_argument("--runs", type=int, default=7,
                        help="fresh homes to start in, each cold then warm (default 7)")
    parser.add_argument("--memory-seconds", type=int, default=60,
                        help="how long to poll before the memory is read; 0 skips it "
                             "(default 60)")
    arguments = parser.parse_args()
    if arguments.runs < 1 or arguments.memory_seconds < 0:
        parser.error("--runs must be at least 1 and --memory-seconds at least 0")
    return arguments


def end_on_signal(number, _frame):
    raise SystemExit(128 + number)


def main():
    arguments = parse_arguments()
    for tool in ("Xvfb", "openbox", "trayer", "xprop", "dbus-daemon"):
        if not shutil.which(tool):
            sys.exit(f"startup: {tool} is missing (scripts/install-deps.sh installs it)")
    # Also when started in the background, where the shell leaves SIGINT ignored.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    signal.signal(signal.SIGTERM, end_on_signal)
    signal.signal(signal.SIGHUP, end_on_signal)
    become_subreaper()

    processes = Processes()
    try:
        desktop = Desktop(processes)
        desktop.start()
        print(f"brisvane start-up on {desktop.environment['DISPLAY']}: {APPLICATION}")
        print(f"{arguments.runs} fresh homes, each started cold then warm:", flush=True)
        start_figures = start_up_runs(processes, desktop, arguments.runs)
        memory = None
        if arguments.memory_seconds:
            print(f"memory: logged in, {len(WATCHED_FOLDERS)} folders of {FILES_PER_FOLDER} "
                  f"files, read after {arguments.memory_seconds} s ...", flush=True)
            memory = memory_run(processes, desktop, arguments.memory_seconds)
        print_table(start_figures, memory)
    except BenchError as error:
        sys.exit(f"startup: {error}")
    except KeyboardInterrupt:
        sys.exit("startup: interrupted")
    finally:
        processes.stop_all()


if __name__ == "__main__":
    main()
