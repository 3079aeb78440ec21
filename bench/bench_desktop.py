"""What the Python benchmarks share: a private virtual desktop, the application started in
a fresh home on it, and the figures /proc gives of a running process.

Lives beside the scripts in the build's bin/, where they import it from.
"""

import ctypes
import json
import os
import re
import selectors
import shutil
import signal
import subprocess
import tempfile
import time
from pathlib import Path

START_TIMEOUT_S = 20.0
EXIT_TIMEOUT_S = 5.0
FIRST_ANSWER = re.compile(r"answered ping 1$")
DISPLAY_NUMBERS = range(120, 200)
CLOCK_TICKS_PER_S = os.sysconf("SC_CLK_TCK")


class BenchError(Exception):
    pass


def now_ns():
    # CLOCK_MONOTONIC, the clock the tray watcher stamps with.
    return time.monotonic_ns()


def prepare_to_run():
    """Ends on SIGTERM and SIGHUP through the scripts' clean-up, and makes this process
    the reaper of orphans: the helper, once its application is stopped, comes to us, so
    we can wait for it to be gone before the next run."""
    # Also when started in the background, where the shell leaves SIGINT ignored.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    signal.signal(signal.SIGTERM, _end_on_signal)
    signal.signal(signal.SIGHUP, _end_on_signal)
    PR_SET_CHILD_SUBREAPER = 36
    libc = ctypes.CDLL(None, use_errno=True)
    libc.prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)


def _end_on_signal(number, _frame):
    raise SystemExit(128 + number)


def missing_tools(*extra):
    """The desktop's programs, and the extra ones named, that are not installed."""
    tools = ("Xvfb", "openbox", "trayer", "xprop", "dbus-daemon") + extra
    return [tool for tool in tools if not shutil.which(tool)]


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


def _stat_fields(pid):
    """The fields of /proc/<pid>/stat after the name, which may hold spaces and
    parentheses: fields[0] is the state, fields[1] the parent."""
    return Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()


def children_of(pid):
    children = []
    for stat in Path("/proc").glob("[0-9]*/stat"):
        try:
            fields = _stat_fields(stat.parent.name)
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


def cpu_seconds(pid):
    """User and system CPU time the process has used, all its threads together."""
    fields = _stat_fields(pid)
    # utime and stime, fields 14 and 15 of the whole line.
    return (int(fields[11]) + int(fields[12])) / CLOCK_TICKS_PER_S


def megabytes(kib):
    return kib * 1024 / 1e6


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

    def run(self, *argv, check=False):
        """A desktop tool run to its end; its standard output. With check, one that fails
        is a BenchError."""
        done = subprocess.run(argv, env=self.env(), capture_output=True, text=True, timeout=10)
        if check and done.returncode != 0:
            raise BenchError(f"{' '.join(argv)} failed: {done.stderr.strip()}")
        return done.stdout

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
        return "window id" in self.run("xprop", "-root", "_NET_SUPPORTING_WM_CHECK")


class Home:
    """A temporary home for one application: configuration, state, runtime folder."""

    def __init__(self):
        self.path = Path(tempfile.mkdtemp(prefix="brisvane-bench-"))
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

    def write_demo_state(self, folders):
        """The demo helper's state: logged in, watching these (path, group ID) folders."""
        state = {"LoggedIn": True, "UserName": "ann@example.org",
                 "Folders": [{"Path": str(path), "GroupID": group_id, "Enabled": True}
                             for path, group_id in folders]}
        state_file = self.path / "state" / "brisvane-demo" / "state.json"
        state_file.parent.mkdir(parents=True)
        state_file.write_text(json.dumps(state))

    def remove(self):
        shutil.rmtree(self.path, ignore_errors=True)


class Application:
    """One start of the application, its standard output stamped as it arrives."""

    def __init__(self, executable, processes, desktop, home):
        self.processes = processes
        self.output = b""
        self.log = open(home.path / "stderr.txt", "wb")
        self.started_ns = now_ns()
        self.process = processes.start([executable], cwd=home.path,
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

    def read_now(self):
        """Drains what the application has written, so its pipe never fills."""
        with selectors.DefaultSelector() as selector:
            selector.register(self.process.stdout, selectors.EVENT_READ)
            while selector.get_map() and selector.select(0):
                self.first_answer_ns(selector)
        return self.lines()

    def wait_for_first_answer(self, timeout_s=START_TIMEOUT_S):
        if not wait_for(lambda: any(map(FIRST_ANSWER.search, self.read_now())), timeout_s,
                        0.05):
            raise BenchError(self.describe_failure("the helper never answered"))

    def check_running(self):
        if self.process.poll() is not None:
            raise BenchError(self.describe_failure(
                f"the application ended with status {self.process.returncode}"))

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
