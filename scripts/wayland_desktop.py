"""A real Wayland desktop without a screen, with a status-notifier tray.

sway (headless, drawing in memory) is the compositor and waybar the bar whose tray
hosts status-notifier items; grim takes screenshots, wtype types into the focused
window, and sway's own tree tells which windows are there, where, whether they float
and which has the focus. Programs on it share a private session bus, which holds
the StatusNotifierWatcher while waybar runs, and with accessibility=True the AT-SPI
bus too. The tray host can be ended and started again, on a light or a dark bar,
while everything else goes on.

sway refuses to run as root. Root can hand the desktop to a throwaway user:
throwaway_user() makes one, as_user() runs a command as it.

    with WaylandDesktop(work_dir, accessibility=True) as desktop:
        app = desktop.start([...], env=desktop.app_environment(work_dir / "xdg"))
        desktop.start_tray_host("dark")
        item = wait_for(lambda: desktop.tray_item_of(app.pid), 5, "the tray item")
        desktop.activate_tray_item(item)
"""

import json
import os
import pwd
import re
import shutil
import signal
import subprocess
import sys
import time
from dataclasses import dataclass
from pathlib import Path

from virtual_desktop import (ProcessEnded, StepFailed, log_tail, read_line,
                             start_accessibility_bus, stop_process_group, wait_for)

SCREEN = (1280, 800)
BAR_HEIGHT = 24
BAR_COLOURS = {"light": "#f2f2f2", "dark": "#2b2b2b"}
WATCHER = "org.kde.StatusNotifierWatcher"
THROWAWAY_USER = "brisvane-e2e"
# Handed through to every program, so that a sanitizer build keeps its settings.
SANITIZER_OPTIONS = ("ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS")
TOOLS = ("sway", "swaymsg", "waybar", "grim", "wtype", "dbus-daemon", "dbus-send")
SCRATCHPAD = "__i3_scratch"
# sway's IPC socket ("sway-ipc.UID.PID.sock") goes into the runtime folder, and a
# socket's whole path must fit in 108 bytes; sway crashes on a longer one.
RUNTIME_DIR_MAX_LENGTH = 80
ROOT_TOOLS = ("setpriv", "useradd")


def _find_root_tool(name):
    # A test's PATH may leave out the administrator's folders that useradd is in.
    return shutil.which(name, path=f"{os.environ.get('PATH', os.defpath)}:/usr/sbin:/sbin")


def missing_root_tools():
    """What root lacks of the tools that hand a desktop to a throwaway user."""
    return [tool for tool in ROOT_TOOLS if _find_root_tool(tool) is None]


def throwaway_user(name=THROWAWAY_USER):
    """(uid, gid) of the unprivileged user a desktop started by root runs as, made on
    first use: no home, no login shell."""
    try:
        entry = pwd.getpwnam(name)
    except KeyError:
        # A run beside this one may make it at the same moment; then its user will do.
        subprocess.run([_find_root_tool("useradd"), "-M", "-d", "/nonexistent",
                        "-s", "/usr/sbin/nologin", name], capture_output=True)
        entry = pwd.getpwnam(name)
    return entry.pw_uid, entry.pw_gid


def as_user(uid, gid, args, env):
    """args run as that user with exactly env: nothing of the caller's environment,
    nor its supplementary groups, comes along."""
    return [_find_root_tool("setpriv"), f"--reuid={uid}", f"--regid={gid}", "--clear-groups", "env", "-i",
            *(f"{name}={value}" for name, value in env.items()), *args]


@dataclass(frozen=True)
class SwayWindow:
    con_id: int
    pid: int
    app_id: str
    title: str
    x: int
    y: int
    width: int
    height: int
    floating: bool
    focused: bool
    visible: bool  # on screen: not in the scratchpad, not behind another tab

    @property
    def rect(self):
        return f"{self.width}x{self.height}+{self.x}+{self.y}"

    def __str__(self):
        return (f"pid {self.pid} {self.app_id or self.title!r} {self.rect}"
                f"{' floating' if self.floating else ' tiled'}"
                f"{'' if self.visible else ' hidden'}{' focused' if self.focused else ''}")


def parse_sway_tree(tree):
    """The windows in `swaymsg -t get_tree` output (parsed JSON), scratchpad included."""
    windows = []

    def walk(node, workspace, floating):
        if node.get("type") == "workspace":
            workspace = node.get("name")
        if node.get("pid") is not None:
            rect = node["rect"]
            windows.append(SwayWindow(
                node["id"], node["pid"], node.get("app_id") or "", node.get("name") or "",
                rect["x"], rect["y"], rect["width"], rect["height"], floating,
                bool(node.get("focused")),
                bool(node.get("visible")) and workspace != SCRATCHPAD))
        for child in node.get("nodes", []):
            walk(child, workspace, floating)
        for child in node.get("floating_nodes", []):
            walk(child, workspace, True)

    walk(tree, None, False)
    return windows


class WaylandDesktop:
    """sway and a session bus on their own, in folders under root; the tray host
    comes and goes with start_tray_host() and stop_tray_host()."""

    def __init__(self, root, accessibility=False):
        self.root = Path(root)
        self.accessibility = accessibility
        self.runtime_dir = self.root / "run"
        self.bus_address = f"unix:path={self.runtime_dir / 'bus'}"
        self.wayland_display = None
        self.sway_socket = None
        self._processes = []
        self._tray_host = None
        self._tray_host_starts = 0
        self._tray_host_log = None

    def __enter__(self):
        if len(str(self.runtime_dir)) > RUNTIME_DIR_MAX_LENGTH:
            raise StepFailed(f"{self.runtime_dir} is too long a path for sockets; "
                             "give the desktop a shorter folder")
        try:
            for folder in ("run", "home", "config", "logs"):
                (self.root / folder).mkdir(mode=0o700, parents=True, exist_ok=True)
            self._start_session_bus()
            self._start_sway()
            self._plug_in_keyboard()
            if self.accessibility:
                self._start_accessibility_bus()
        except BaseException:
            self.close()
            raise
        return self

    def __exit__(self, *exc_info):
        self.close()

    def close(self):
        """Ends every process started here, newest first, with all its children, then
        whatever the session bus started on its own for them."""
        while self._processes:
            stop_process_group(self._processes.pop())
        self._tray_host = None
        self._end_stragglers()

    def _end_stragglers(self):
        # Services the bus starts on demand (and their children) are in no process
        # group of ours; they all carry this desktop's runtime folder, though.
        marker = f"XDG_RUNTIME_DIR={self.runtime_dir}".encode() + b"\0"
        for entry in Path("/proc").iterdir():
            if not entry.name.isdigit() or int(entry.name) == os.getpid():
                continue
            try:
                if marker in (entry / "environ").read_bytes():
                    os.kill(int(entry.name), signal.SIGKILL)
                    print(f"ended a leftover process of the desktop: "
                          f"{(entry / 'comm').read_text().strip()}", file=sys.stderr)
            except (OSError, ValueError):
                continue  # gone meanwhile, or another user's

    def start(self, args, env=None, **popen_args):
        """Starts a program in a process group of its own, ended by close()."""
        process = subprocess.Popen(args, env=env or self.environment(), start_new_session=True,
                                   **popen_args)
        self._processes.append(process)
        return process

    def environment(self):
        """The environment of a program on this desktop, and nothing else of the
        caller's but its PATH and sanitizer settings."""
        env = {name: value for name, value in os.environ.items()
               if name == "PATH" or name in SANITIZER_OPTIONS}
        env.setdefault("PATH", "/usr/bin:/bin")
        env.update(LANG="C.UTF-8", HOME=str(self.root / "home"),
                   XDG_CONFIG_HOME=str(self.root / "config"),
                   XDG_RUNTIME_DIR=str(self.runtime_dir),
                   DBUS_SESSION_BUS_ADDRESS=self.bus_address)
        if self.wayland_display:
            env["WAYLAND_DISPLAY"] = self.wayland_display
        if self.sway_socket:
            env["SWAYSOCK"] = str(self.sway_socket)
        return env

    def app_environment(self, root):
        """environment() for a Qt application, with every per-user folder but the
        runtime folder (where the display and the bus are) inside root. Never
        AT_SPI_BUS_ADDRESS: Qt then stays off the accessibility bus."""
        env = self.environment()
        root = Path(root)
        for variable, folder in (("HOME", "home"), ("XDG_CONFIG_HOME", "config"),
                                 ("XDG_STATE_HOME", "state"), ("XDG_DATA_HOME", "data"),
                                 ("XDG_CACHE_HOME", "cache")):
            path = root / folder
            path.mkdir(mode=0o700, parents=True, exist_ok=True)
            env[variable] = str(path)
        env["QT_QPA_PLATFORM"] = "wayland"
        if self.accessibility:
            env["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1"
        # The demo helper would open a real browser or file manager otherwise.
        env["BRISVANE_DEMO_OPENER"] = "true"
        return env

    def log_path(self, name):
        return self.root / "logs" / f"{name}.log"

    def open_log(self, name):
        return open(self.log_path(name), "ab")

    def _start_session_bus(self):
        with self.open_log("session-bus") as log:
            bus = self.start(["dbus-daemon", "--session", f"--address={self.bus_address}",
                              "--nofork", "--print-address=1"],
                             stdout=subprocess.PIPE, stderr=log)
        read_line(bus.stdout, 15, "the session bus", log=self.log_path("session-bus"))

    def _start_sway(self):
        config = self.root / "sway.conf"
        config.write_text(f"output HEADLESS-1 resolution {SCREEN[0]}x{SCREEN[1]}\n")
        env = self.environment()
        env.update(WLR_BACKENDS="headless", WLR_LIBINPUT_NO_DEVICES="1",
                   WLR_RENDERER="pixman")
        # Its complaints about DRM and Xwayland are expected without a screen.
        with self.open_log("sway") as log:
            sway = self.start(["sway", "-c", str(config)], env=env, stdout=log, stderr=log)

        def ready():
            if sway.poll() is not None:
                raise ProcessEnded(f"sway ended with status {sway.returncode}")
            displays = [p.name for p in self.runtime_dir.glob("wayland-*")
                        if not p.name.endswith(".lock")]
            sockets = list(self.runtime_dir.glob("sway-ipc.*.sock"))
            return displays and sockets and (displays[0], sockets[0])

        log = self.log_path("sway")
        self.wayland_display, self.sway_socket = wait_for(ready, 15, "sway's display", log=log)
        # Its IPC socket is there before sway answers on it.
        wait_for(lambda: self.swaymsg("-t", "get_version"), 15, "sway's IPC", log=log)

    def _plug_in_keyboard(self):
        # Without input devices the seat has no keyboard, and each wtype would plug one
        # in and pull it out again: clients see the keyboard go, and with it the focus,
        # which closes any window that closes on losing the focus. A keyboard that stays
        # is what a real desktop has: a wtype that waits (a day) before typing nothing.
        keyboard = None

        def plugged_in():
            nonlocal keyboard
            # A wtype that came before the seat was ready ends; it is started again.
            if keyboard is None or keyboard.poll() is not None:
                if keyboard is not None:
                    self._processes.remove(keyboard)
                with self.open_log("keyboard") as log:
                    keyboard = self.start(["wtype", "-s", str(24 * 3600 * 1000)], stdout=log,
                                          stderr=log)
            return any(device.get("type") == "keyboard"
                       for seat in json.loads(self.swaymsg("-t", "get_seats"))
                       for device in seat.get("devices", []))

        wait_for(plugged_in, 15, "the seat's keyboard", log=self.log_path("keyboard"))

    def _start_accessibility_bus(self):
        start_accessibility_bus(self)

    def accessibility_client(self):
        """pyatspi, connected to this desktop's accessibility bus."""
        for variable in ("AT_SPI_BUS_ADDRESS", "DISPLAY"):  # either would lead it elsewhere
            os.environ.pop(variable, None)
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = self.bus_address
        import pyatspi  # Debian's python3-pyatspi; only needed with accessibility
        return pyatspi

    # --- the session bus and the tray ----------------------------------------------------

    def dbus_call(self, destination, path, method, *args):
        """A method call on the session bus (dbus-send's argument syntax); its reply as
        text, or None when it failed."""
        result = subprocess.run(
            ["dbus-send", "--session", "--print-reply", f"--dest={destination}", path, method,
             *args], env=self.environment(), capture_output=True, text=True)
        return result.stdout if result.returncode == 0 else None

    def bus_has_owner(self, name):
        reply = self.dbus_call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus.NameHasOwner", f"string:{name}")
        return reply is not None and "boolean true" in reply

    def bus_name_pid(self, name):
        reply = self.dbus_call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus.GetConnectionUnixProcessID", f"string:{name}")
        match = reply and re.search(r"uint32 (\d+)", reply)
        return int(match.group(1)) if match else None

    def start_tray_host(self, shade):
        """Starts waybar with a tray on a "light" or "dark" bar; gives the moment
        (time.monotonic()) its status-notifier watcher appeared on the bus."""
        if self._tray_host is not None:
            raise StepFailed("a tray host runs already")
        config = self.root / "waybar.json"
        config.write_text(json.dumps({"layer": "top", "position": "top", "height": BAR_HEIGHT,
                                      "modules-right": ["tray"], "tray": {"spacing": 4}}))
        style = self.root / f"waybar-{shade}.css"
        style.write_text(f"window#waybar {{ background: {BAR_COLOURS[shade]}; }}\n")
        self._tray_host_starts += 1
        log_name = self._tray_host_log = f"waybar-{self._tray_host_starts}-{shade}"
        with self.open_log(log_name) as log:
            host = self._tray_host = self.start(["waybar", "-c", str(config), "-s", str(style)],
                                                stdout=log, stderr=log)

        def watching():
            if host.poll() is not None:
                raise ProcessEnded(f"waybar ended with status {host.returncode}")
            return self.bus_has_owner(WATCHER)

        wait_for(watching, 15, "waybar's status-notifier watcher", interval=0.02,
                 log=self.log_path(log_name))
        return time.monotonic()

    def tray_host_log_tail(self):
        """The last lines of the running (or last) waybar's log, to go with a failure."""
        return log_tail(self.log_path(self._tray_host_log))

    def stop_tray_host(self):
        """Ends waybar, as a crash or a restart of the bar would."""
        host, self._tray_host = self._tray_host, None
        if host is None:
            raise StepFailed("no tray host runs")
        self._processes.remove(host)
        stop_process_group(host)
        wait_for(lambda: not self.bus_has_owner(WATCHER), 5, "the watcher to leave the bus")

    def tray_items(self):
        """The watcher's registered items ("bus-name/object-path"); none without a watcher."""
        reply = self.dbus_call(WATCHER, "/StatusNotifierWatcher",
                               "org.freedesktop.DBus.Properties.Get", f"string:{WATCHER}",
                               "string:RegisteredStatusNotifierItems")
        return re.findall(r'string "([^"]*)"', reply or "")

    def tray_item_of(self, pid):
        """The registered item whose bus connection belongs to process pid, or None."""
        for item in self.tray_items():
            if self.bus_name_pid(item.split("/", 1)[0]) == pid:
                return item
        return None

    def activate_tray_item(self, item, x=0, y=0):
        """What the tray host does on a click on the item (it gives the click's place)."""
        name, _, path = item.partition("/")
        reply = self.dbus_call(name, "/" + (path or "StatusNotifierItem"),
                               "org.kde.StatusNotifierItem.Activate", f"int32:{x}", f"int32:{y}")
        if reply is None:
            raise StepFailed(f"the tray item {item} refused Activate")

    # --- windows and the screen ----------------------------------------------------------

    def swaymsg(self, *args):
        result = subprocess.run(["swaymsg", *args], env=self.environment(), capture_output=True,
                                text=True)
        if result.returncode != 0:
            raise StepFailed(f"swaymsg {' '.join(args)} failed: "
                             f"{(result.stdout + result.stderr).strip()}")
        return result.stdout

    def windows(self):
        return parse_sway_tree(json.loads(self.swaymsg("-t", "get_tree")))

    def windows_of(self, pid):
        return [window for window in self.windows() if window.pid == pid]

    def screenshot(self, path, region=None):
        """The screen, or region (x, y, width, height) of it, as a PNG file."""
        Path(path).parent.mkdir(parents=True, exist_ok=True)
        args = ["grim"]
        if region:
            x, y, width, height = region
            args += ["-g", f"{x},{y} {width}x{height}"]
        result = subprocess.run([*args, str(path)], env=self.environment(), capture_output=True,
                                text=True)
        if result.returncode != 0:
            raise StepFailed(f"grim failed: {result.stderr.strip()}")
        return Path(path)

    # --- acting like a person ------------------------------------------------------------

    def _wtype(self, *args):
        result = subprocess.run(["wtype", *args], env=self.environment(), capture_output=True,
                                text=True)
        if result.returncode != 0:
            raise StepFailed(f"wtype {' '.join(args)} failed: {result.stderr.strip()}")

    def type_text(self, text):
        """Types text into the focused window."""
        self._wtype("-d", "20", "--", text)

    def key(self, combination):
        """Presses a key by its XKB name with modifiers held: "Tab", "ctrl+q"."""
        *modifiers, key = combination.split("+")
        args = [arg for modifier in modifiers for arg in ("-M", modifier)]
        args += ["-k", key]
        args += [arg for modifier in reversed(modifiers) for arg in ("-m", modifier)]
        self._wtype(*args)
