"""A real X desktop without a screen, for driving the tray application by hand.

Xvfb, the openbox window manager and the trayer tray host make a desktop in which
a QSystemTrayIcon embeds; xdotool clicks and types into it, `import` takes
screenshots. Programs on it get a private session bus (holding no status-notifier
watcher, so Qt embeds its tray icon the older way); with accessibility=True the
AT-SPI bus launcher runs on that bus too, so controls can be found by their
accessible names.

    with VirtualDesktop(accessibility=True) as desktop:
        app = desktop.start([...], env=desktop.app_environment(xdg_root))
        x, y = wait_for(lambda: desktop.tray_icon_centre("brisvane"), 20, "the tray icon")
        desktop.click(x, y)

Run as a script, it shows the application's panel once (see show_panel_tour) and
leaves three screenshots behind.
"""

import argparse
import contextlib
import os
import re
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import traceback
from dataclasses import dataclass
from pathlib import Path

SCREEN = "1280x800x24"
TRAYER = ["trayer", "--edge", "top", "--align", "right", "--widthtype", "pixel",
          "--width", "200", "--height", "24"]
AT_SPI_BUS_LAUNCHER = "/usr/libexec/at-spi-bus-launcher"
# The icon a tray host embeds is small; the application's other windows are not.
TRAY_ICON_MAX_SIDE = 64


class StepFailed(RuntimeError):
    """A step of a scripted session did not do what it should."""


class ProcessEnded(StepFailed):
    """A program that a step waits for has ended: waiting longer cannot help."""


def log_tail(path, lines=30):
    """The last lines of a component's log, to go with a failure; empty without one."""
    try:
        text = Path(path).read_text(errors="replace").rstrip()
    except OSError:
        return ""
    tail = text.splitlines()[-lines:]
    return f"\n---- the end of {path} ----\n" + "\n".join(tail) if tail else f"\n({path} is empty)"


def wait_for(condition, timeout, what, interval=0.1, log=None):
    """Polls condition() until it gives something truthy and returns that.

    A component that has only just started may refuse to answer for a while (a socket
    that is there before its owner listens on it, a bus name not yet taken): a condition
    that raises StepFailed is asked again until the deadline, and only then does the wait
    fail, with the last refusal and the end of log (a path) when one is given. A
    ProcessEnded fails it at once."""
    deadline = time.monotonic() + timeout
    refusal = None
    while True:
        try:
            value = condition()
            if value:
                return value
        except ProcessEnded as ended:
            raise ProcessEnded(f"{ended}{log_tail(log) if log else ''}") from None
        except StepFailed as failure:
            refusal = failure
        if time.monotonic() >= deadline:
            last = f" (the last attempt: {refusal})" if refusal else ""
            raise StepFailed(f"timed out after {timeout:g} s waiting for {what}{last}"
                             f"{log_tail(log) if log else ''}")
        time.sleep(interval)


def read_line(stream, timeout, what, log=None):
    """The first line a starting program writes to stream (a pipe), within timeout."""
    deadline = time.monotonic() + timeout
    line = b""
    while not line.endswith(b"\n"):
        remaining = deadline - time.monotonic()
        if remaining <= 0 or not select.select([stream], [], [], remaining)[0]:
            raise StepFailed(f"{what} wrote nothing within {timeout:g} s"
                             f"{log_tail(log) if log else ''}")
        chunk = os.read(stream.fileno(), 256)
        if not chunk:
            raise ProcessEnded(f"{what} ended before it wrote its line"
                               f"{log_tail(log) if log else ''}")
        line += chunk
    return line.decode(errors="replace").strip()


@dataclass(frozen=True)
class Window:
    id: str
    name: str
    instance: str
    wm_class: str
    width: int
    height: int
    x: int  # absolute
    y: int

    @property
    def centre(self):
        return self.x + self.width // 2, self.y + self.height // 2


# '  0x1a00003 "brisvane": ("brisvane" "brisvane")  22x22+0+0  +1257+1'
_TREE_LINE = re.compile(
    r'^\s*(0x[0-9a-f]+) (?:"(.*)"|\(has no name\)): \("([^"]*)" "([^"]*)"\)'
    r'\s+(\d+)x(\d+)[+-]-?\d+[+-]-?\d+\s+\+(-?\d+)\+(-?\d+)')


def parse_window_tree(text):
    """The windows of `xwininfo -root -tree` output that carry a WM_CLASS."""
    windows = []
    for line in text.splitlines():
        match = _TREE_LINE.match(line)
        if match:
            wid, name, instance, wm_class, width, height, x, y = match.groups()
            windows.append(Window(wid, name or "", instance, wm_class,
                                  int(width), int(height), int(x), int(y)))
    return windows


def trayer_command(background=None):
    """trayer, on its own background colour ("#rrggbb") when one is given."""
    if background is None:
        return TRAYER
    return TRAYER + ["--transparent", "true", "--alpha", "0",
                     "--tint", "0x" + background.lstrip("#")]


class VirtualDesktop:
    """Xvfb, openbox, trayer and a session bus; each component's output goes to a log of
    its own in log_dir (a fresh temporary folder by default), whose end a failed wait for
    the component shows."""

    def __init__(self, accessibility=False, tray_background=None, log_dir=None):
        self.accessibility = accessibility
        self.tray_background = tray_background
        self.display = None
        self.bus_address = None
        self._processes = []
        self._tray = None
        self._own_log_dir = log_dir is None
        self.log_dir = Path(log_dir or tempfile.mkdtemp(prefix="brisvane-desktop-logs-"))
        self.log_dir.mkdir(parents=True, exist_ok=True)

    def log_path(self, component):
        return self.log_dir / f"{component}.log"

    def open_log(self, component):
        return open(self.log_path(component), "ab")

    def __enter__(self):
        try:
            self._start_x_server()
            with self.open_log("openbox") as log:
                self.start(["openbox"], stdout=log, stderr=log)
            self._start_tray()
            self._start_session_bus()
            if self.accessibility:
                self._start_accessibility_bus()
        except BaseException:
            self.close()
            raise
        return self

    def __exit__(self, *exc_info):
        self.close()

    def close(self):
        """Ends every process started here, newest first, with all its children."""
        while self._processes:
            process = self._processes.pop()
            stop_process_group(process)
        if self._own_log_dir:
            shutil.rmtree(self.log_dir, ignore_errors=True)

    def _start_tray(self):
        def started():
            # A trayer that found the display not ready yet ends; it is started again.
            if self._tray is None or self._tray.poll() is not None:
                if self._tray is not None:
                    self._processes.remove(self._tray)
                with self.open_log("trayer") as log:
                    self._tray = self.start(trayer_command(self.tray_background), stdout=log,
                                            stderr=log)
            return self.tray() is not None

        wait_for(started, 15, "the trayer tray host", log=self.log_path("trayer"))

    def restart_tray(self, background):
        """Ends the tray host and starts it again on another background, as a panel
        restarting with a new theme does."""
        stop_process_group(self._tray)
        self._processes.remove(self._tray)
        self._tray = None
        wait_for(lambda: self.tray() is None, 10, "the old tray host to go")
        self.tray_background = background
        self._start_tray()

    def tray(self):
        """trayer's window, or None."""
        return next((w for w in self.windows() if w.wm_class == "trayer"), None)

    def start(self, args, env=None, **popen_args):
        """Starts a program in a process group of its own, ended by close()."""
        process = subprocess.Popen(args, env=env or self.environment(), start_new_session=True,
                                   **popen_args)
        self._processes.append(process)
        return process

    def environment(self):
        """The environment of a program on this desktop: its display, and its session
        bus when there is one. Never AT_SPI_BUS_ADDRESS: Qt then stays off the bus."""
        env = dict(os.environ)
        for variable in ("WAYLAND_DISPLAY", "AT_SPI_BUS_ADDRESS", "DBUS_SESSION_BUS_ADDRESS",
                         "QT_QPA_PLATFORM", "QT_QPA_PLATFORMTHEME"):
            env.pop(variable, None)
        env["DISPLAY"] = self.display
        env["QT_QPA_PLATFORM"] = "xcb"
        if self.bus_address:
            env["DBUS_SESSION_BUS_ADDRESS"] = self.bus_address
        if self.accessibility:
            env["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1"
        return env

    def app_environment(self, root):
        """environment() with every per-user folder inside root, so the application
        touches neither the user's autostart entries nor their state."""
        env = self.environment()
        root = Path(root)
        for variable, folder in (("HOME", "home"), ("XDG_CONFIG_HOME", "config"),
                                 ("XDG_STATE_HOME", "state"), ("XDG_DATA_HOME", "data"),
                                 ("XDG_CACHE_HOME", "cache"), ("XDG_RUNTIME_DIR", "runtime")):
            path = root / folder
            path.mkdir(mode=0o700, parents=True, exist_ok=True)
            env[variable] = str(path)
        # The demo helper would open a real browser or file manager otherwise.
        env["BRISVANE_DEMO_OPENER"] = "true"
        return env

    def _start_x_server(self):
        # Xvfb picks a free display itself and writes its number on the pipe; one that ends
        # first (another server took the display it chose) is started again until the
        # deadline. -noreset: the AT-SPI launcher's closing X connection must not reset it.
        deadline = time.monotonic() + 15

        def started():
            read_end, write_end = os.pipe()
            try:
                with self.open_log("Xvfb") as log:
                    server = subprocess.Popen(
                        ["Xvfb", "-displayfd", str(write_end), "-noreset", "-nolisten", "tcp",
                         "-screen", "0", SCREEN],
                        pass_fds=(write_end,), start_new_session=True, stdout=log, stderr=log)
                self._processes.append(server)
                os.close(write_end)
                write_end = None
                with os.fdopen(read_end, "rb", buffering=0) as stream:
                    read_end = None
                    number = read_line(stream, max(deadline - time.monotonic(), 0.1),
                                       "Xvfb")
            except ProcessEnded:
                self._processes.remove(server)
                stop_process_group(server)
                raise StepFailed("Xvfb ended before it reported its display") from None
            finally:
                for end in (read_end, write_end):
                    if end is not None:
                        os.close(end)
            return ":" + number

        self.display = wait_for(started, 15, "Xvfb's display", log=self.log_path("Xvfb"))

    def _start_session_bus(self):
        # Without a bus of its own a program on this display would have libdbus
        # autolaunch one, which outlives the desktop.
        with self.open_log("session-bus") as log:
            bus = self.start(["dbus-daemon", "--session", "--nofork", "--print-address=1"],
                             stdout=subprocess.PIPE, stderr=log)
        self.bus_address = read_line(bus.stdout, 15, "the session bus",
                                     log=self.log_path("session-bus"))

    def _start_accessibility_bus(self):
        start_accessibility_bus(self)

    def bus_has_owner(self, name):
        reply = subprocess.run(
            ["dbus-send", "--session", "--print-reply", "--dest=org.freedesktop.DBus",
             "/org/freedesktop/DBus", "org.freedesktop.DBus.NameHasOwner", f"string:{name}"],
            env=self.environment(), capture_output=True, text=True)
        return "boolean true" in reply.stdout

    def accessibility_client(self):
        """pyatspi, connected to this desktop's accessibility bus."""
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = self.bus_address
        os.environ["DISPLAY"] = self.display
        import pyatspi  # Debian's python3-pyatspi; only needed with accessibility
        return pyatspi

    # --- looking at the screen -------------------------------------------------------

    def _x(self, *args, check=True):
        result = subprocess.run(list(args), env=self.environment(), capture_output=True,
                                text=True)
        if check and result.returncode != 0:
            raise StepFailed(f"{' '.join(args)} failed: {result.stderr.strip()}")
        return result.stdout

    def windows(self):
        return parse_window_tree(self._x("xwininfo", "-root", "-tree", check=False))

    def is_viewable(self, window_id):
        return "IsViewable" in self._x("xwininfo", "-id", window_id, check=False)

    def viewable_windows(self, wm_class, min_width=1, min_height=1):
        """The mapped windows of that WM_CLASS (class or instance) at least that big."""
        return [w for w in self.windows()
                if wm_class in (w.wm_class, w.instance) and w.width >= min_width
                and w.height >= min_height and self.is_viewable(w.id)]

    def tray_icon_centre(self, wm_class):
        """The absolute centre of the application's icon once the tray holds it, or None.
        Before the tray embeds it the icon is a window of its own at the screen's corner."""
        windows = self.windows()
        trays = [w for w in windows if w.wm_class == "trayer"]
        for icon in windows:
            if wm_class in (icon.wm_class, icon.instance) \
                    and 1 < icon.width <= TRAY_ICON_MAX_SIDE and icon.height <= TRAY_ICON_MAX_SIDE \
                    and any(_inside(icon.centre, tray) for tray in trays) \
                    and self.is_viewable(icon.id):
                return icon.centre
        return None

    def screenshot(self, path):
        Path(path).parent.mkdir(parents=True, exist_ok=True)
        self._x("import", "-window", "root", str(path))
        return Path(path)

    # --- acting like a person ----------------------------------------------------------

    def click(self, x, y):
        self._x("xdotool", "mousemove", str(x), str(y), "click", "1")

    def type_text(self, text):
        self._x("xdotool", "type", "--delay", "30", "--", text)

    def key(self, *keys):
        """Presses keys in xdotool's names: "Tab", "Return", "ctrl+q"."""
        self._x("xdotool", "key", "--delay", "50", *keys)


def _inside(point, window):
    x, y = point
    return window.x <= x < window.x + window.width and window.y <= y < window.y + window.height


def start_accessibility_bus(desktop):
    """Starts the AT-SPI bus launcher on a desktop's session bus (a VirtualDesktop or a
    WaylandDesktop) and waits until its bus is there."""
    with desktop.open_log("at-spi-bus-launcher") as log:
        launcher = desktop.start([AT_SPI_BUS_LAUNCHER, "--launch-immediately", "--a11y=1"],
                                 stdout=log, stderr=log)

    def ready():
        if launcher.poll() is not None:
            raise ProcessEnded(f"the AT-SPI bus launcher ended with status {launcher.returncode}")
        return desktop.bus_has_owner("org.a11y.Bus")

    wait_for(ready, 15, "the AT-SPI bus launcher", log=desktop.log_path("at-spi-bus-launcher"))


def stop_process_group(process, grace=3.0):
    """SIGTERM to the process's whole group; SIGKILL to whatever is left after grace,
    or as soon as the leader is gone (its children may outlive it)."""
    _signal_group(process, signal.SIGTERM)
    try:
        process.wait(timeout=grace)
    except subprocess.TimeoutExpired:
        pass
    _signal_group(process, signal.SIGKILL)
    process.wait()
    if process.stdout:
        process.stdout.close()


def _signal_group(process, sig):
    try:
        os.killpg(process.pid, sig)
    except ProcessLookupError:
        pass


class AccessibleApp:
    """An application's accessible tree on the desktop's AT-SPI bus."""

    def __init__(self, desktop, app_name, timeout=30):
        self.pyatspi = desktop.accessibility_client()
        self.root = wait_for(lambda: self._find_application(app_name), timeout,
                             f"{app_name} on the accessibility bus")

    def _find_application(self, name):
        try:
            registry_desktop = self.pyatspi.Registry.getDesktop(0)
            for index in range(registry_desktop.childCount):
                application = registry_desktop.getChildAtIndex(index)
                if application is not None and application.name == name:
                    return application
        except Exception as refusal:  # the registry is started on demand and may not answer yet
            raise StepFailed(f"the accessibility registry did not answer: {refusal}") from None
        return None

    def find(self, name, role=None, showing=True):
        """The first control whose accessible name is name (or for which name(text) is
        true) with that role, or None. Names change as the application runs, so the
        tree is read afresh each time."""
        matches = name if callable(name) else name.__eq__
        self.root.clear_cache()
        return self._search(self.root, matches, role, showing, depth=0)

    def _search(self, node, matches, role, showing, depth):
        if depth > 40:
            return None
        try:
            if matches(node.name) and (role is None or node.getRole() == role) and \
                    (not showing or node.getState().contains(self.pyatspi.STATE_SHOWING)):
                return node
            children = [node.getChildAtIndex(i) for i in range(node.childCount)]
        except Exception:  # the control went away while being read
            return None
        for child in children:
            if child is not None:
                found = self._search(child, matches, role, showing, depth + 1)
                if found is not None:
                    return found
        return None

    def wait_for_control(self, name, timeout, role=None, what=None):
        return wait_for(lambda: self.find(name, role), timeout, what or f'the control "{name}"')

    def press(self, control):
        """Runs the control's "Press" action, as a screen reader would."""
        actions = control.queryAction()
        for index in range(actions.nActions):
            if actions.getName(index) == "Press":
                actions.doAction(index)
                return
        raise StepFailed(f'"{control.name}" offers no Press action')

    def centre(self, control):
        box = control.queryComponent().getExtents(self.pyatspi.DESKTOP_COORDS)
        return box.x + box.width // 2, box.y + box.height // 2


def show_panel_tour(app_path, screenshot_dir, work_dir):
    """Opens brisvane's panel from the tray, logs in, watches a small folder for
    Family through the folder chooser, and takes screenshots of the login screen,
    the status tab and the settings tab. Gives the screenshots' paths."""
    work_dir, screenshot_dir = Path(work_dir), Path(screenshot_dir)
    watched = work_dir / "Holiday photos"
    watched.mkdir()
    for index in range(4):
        (watched / f"picture-{index}.jpg").write_bytes(bytes(range(256)) * (index + 1))
    shots = []
    with VirtualDesktop(accessibility=True) as desktop, \
            open(work_dir / "brisvane.log", "wb") as log:
        app = desktop.start([str(app_path)], env=desktop.app_environment(work_dir / "xdg"),
                            stdout=log, stderr=subprocess.STDOUT)

        def take(name):
            time.sleep(0.5)  # the panel finishes drawing, the bar its animation
            shots.append(desktop.screenshot(screenshot_dir / f"{name}.png"))

        try:
            desktop.click(*wait_for(lambda: desktop.tray_icon_centre("brisvane"), 30,
                                    "the tray icon"))
            ui = AccessibleApp(desktop, "brisvane")
            email = ui.wait_for_control("E-mail address", 15)
            take("login")

            desktop.click(*ui.centre(email))
            desktop.type_text("demo@brisvane.example")
            desktop.key("Tab")
            desktop.type_text("demo password")
            desktop.key("Return")
            tab_role = ui.pyatspi.ROLE_PAGE_TAB
            desktop.click(*ui.centre(ui.wait_for_control("Settings", 20, tab_role)))
            desktop.click(*ui.centre(ui.wait_for_control("Watch a new folder for Family", 20)))
            choose_in_folder_chooser(desktop, ui, watched)

            desktop.click(*ui.centre(ui.wait_for_control("Status", 10, tab_role)))
            ui.wait_for_control(f"{watched.name}: Up to date", 60, ui.pyatspi.ROLE_PROGRESS_BAR)
            take("status")
            desktop.click(*ui.centre(ui.wait_for_control("Settings", 10, tab_role)))
            ui.wait_for_control(str(watched), 20)
            take("settings")

            desktop.key("ctrl+q")
            try:
                app.wait(timeout=15)
            except subprocess.TimeoutExpired:
                raise StepFailed("brisvane did not end after Ctrl+Q") from None
        except Exception:
            with contextlib.suppress(StepFailed):
                print(f"the screen at the failure: "
                      f"{desktop.screenshot(screenshot_dir / 'failure.png')}", file=sys.stderr)
            raise
    return shots


def choose_in_folder_chooser(desktop, ui, folder):
    """Answers Qt's own folder chooser as a person would: the path typed into its
    name field, then Return."""
    title = "Choose a folder to watch"
    ui.wait_for_control(title, 15)
    time.sleep(0.5)  # the chooser fills its list and focuses the name field
    desktop.type_text(str(folder))
    # A Return may only close the completion list that typing opened under the field.
    for _ in range(3):
        desktop.key("Return")
        try:
            wait_for(lambda: ui.find(title) is None, 2, "the folder chooser to close")
            return
        except StepFailed:
            continue
    raise StepFailed("the folder chooser did not take the typed path")


def main():
    parser = argparse.ArgumentParser(description=show_panel_tour.__doc__)
    parser.add_argument("app", type=Path, help="the brisvane executable")
    parser.add_argument("screenshots", type=Path, help="the folder for the screenshots")
    args = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="brisvane-tour-") as work_dir:
        try:
            shots = show_panel_tour(args.app.resolve(), args.screenshots.resolve(), work_dir)
        except Exception as failure:
            if not isinstance(failure, StepFailed):
                traceback.print_exc()
            log = Path(work_dir) / "brisvane.log"
            if log.exists():
                print("---- brisvane's output ----", file=sys.stderr)
                sys.stderr.write(log.read_text(errors="replace"))
            print(f"run: {failure}", file=sys.stderr)
            return 1
    for path in shots:
        print(path)
    return 0


if __name__ == "__main__":
    sys.exit(main())
