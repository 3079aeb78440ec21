"""The tray application on a real Wayland desktop, driven as a person would.

Usage: wayland_e2e.py <tray_e2e_app> <screenshot folder>

sway runs without a screen, first with no tray at all, then with waybar as the
status-notifier tray host, which is ended and started again on a light and on a
dark bar. The application must open as a window while there is no tray and come
back to the front on a second start, find every new tray, float its
panel when its item is activated, take the keyboard there, log in, watch a folder
until it is up to date, close on a second activation and on Escape, and end with
Ctrl+Q. Every screenshot of the bar must show its icon at 3:1 contrast or more.
Timings, window geometry and contrast figures are printed for people to quote; the
waits only fail the test where something never happens (the machine may be loaded),
and the figures are the benchmarks' to judge.

sway refuses to run as root: as root, the test copies the application into a
folder of a throwaway user and runs itself again as that user (--inner).
Exit status 77 (skipped) only when the desktop's programs are not installed.
"""

import argparse
import contextlib
import importlib.util
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.dont_write_bytecode = True  # nothing of a test run lands in the source tree
sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts"))
from tray_session import (APP_NAME, check, ends_with_its_helper,  # noqa: E402
                          log_in_by_typing, make_watched_folder, report_failure,
                          second_start_hands_over, while_running)
from virtual_desktop import AT_SPI_BUS_LAUNCHER, AccessibleApp, StepFailed, wait_for  # noqa: E402
from wayland_desktop import (  # noqa: E402
    BAR_COLOURS, BAR_HEIGHT, SANITIZER_OPTIONS, SCREEN, TOOLS, WaylandDesktop, as_user,
    missing_root_tools, throwaway_user)

SKIPPED = 77
PANEL_MAX_SIZE = (800, 700)  # a popup panel, not a screen-filling window
# The files this test runs from, copied for the throwaway user beside the application.
OWN_FILES = ("tests/e2e/wayland_e2e.py", "tests/e2e/icon_contrast.py",
             "tests/e2e/wayland_lsan.supp", "tests/e2e/tray_session.py", "scripts/wayland_desktop.py",
             "scripts/virtual_desktop.py")


def describe(windows):
    return "; ".join(map(str, windows)) or "no window"


class WaylandTrayTest:
    def __init__(self, desktop, app, app_command, app_env, watched, screenshots, work):
        self.desktop = desktop
        self.app = app
        self.app_command = app_command
        self.app_env = app_env
        self.watched = watched
        self.screenshots = screenshots
        self.bar_probe = work / "bar-probe.png"
        self.ui = None
        self.item = None
        self.icon_centre = (SCREEN[0] - BAR_HEIGHT // 2, BAR_HEIGHT // 2)
        self.shortfalls = []

    def run(self):
        self.opens_as_a_window_without_a_tray()
        self.second_start_brings_the_window_to_the_front()
        self.joins_a_new_tray("light", "light-busy")
        self.joins_a_new_tray("dark", "dark-busy")
        self.activation_opens_a_floating_panel()
        self.login_by_typing_at_once()
        self.watched_folder_gets_up_to_date()
        self.activation_closes_the_panel()
        self.joins_a_new_tray("light", "light-idle")
        self.focus_elsewhere_closes_the_panel()
        self.second_start_opens_the_panel_escape_closes_it()
        self.ctrl_q_ends_the_application()
        check(not self.shortfalls, "; ".join(self.shortfalls))

    # --- helpers -------------------------------------------------------------------------

    def expect(self, condition, message):
        """A measurement the later steps do not build on: a shortfall is reported at
        once and fails the test at its end, after every other figure is known."""
        if not condition:
            print(f"SHORTFALL: {message}")
            self.shortfalls.append(message)

    def alive(self, condition):
        return while_running(self.app, condition)

    def app_windows(self):
        return self.desktop.windows_of(self.app.pid)

    def shoot(self, name):
        time.sleep(0.5)  # the panel (or the tray) finishes drawing
        path = self.desktop.screenshot(self.screenshots / f"{name}.png")
        print(f"  screenshot {path.name}")
        return path

    def shoot_bar(self, name, shade):
        """A screenshot once the tray shows the icon, with the icon's contrast judged."""
        from icon_contrast import measure_screenshot  # needs PIL, checked before the run

        colour = BAR_COLOURS[shade]

        def icon_drawn():
            self.desktop.screenshot(self.bar_probe, region=(0, 0, SCREEN[0], BAR_HEIGHT))
            return measure_screenshot(self.bar_probe, BAR_HEIGHT, colour).box
        # An icon drawn in the bar's own colour never shows: the judgement below says so.
        # The wait is long because a loaded machine (or a sanitizer build) can take
        # seconds between the item's registration and waybar drawing its pixmap.
        drawn = True
        try:
            wait_for(icon_drawn, 15, "the icon in the bar")
        except StepFailed:
            drawn = False
        contrast = measure_screenshot(self.shoot(name), BAR_HEIGHT, colour)
        print(f"  {name}: {contrast.summary()}")
        if not drawn:
            print(self.desktop.tray_host_log_tail())
        self.expect(contrast.legible, f"the icon on the {shade} bar ({name}.png) is not "
                                      f"legible: {contrast.summary()}")
        if contrast.box:
            left, top, right, bottom = contrast.box
            self.icon_centre = ((left + right) // 2, (top + bottom) // 2)

    def start_second_copy(self):
        """Starts the application again as it was started; it must hand over to the
        running copy and end within a few seconds."""
        second = self.desktop.start(self.app_command, env=self.app_env, stdout=subprocess.PIPE,
                                    stderr=subprocess.STDOUT)
        started = time.monotonic()
        second_start_hands_over(second)
        print(f"  the second start said so and ended with status 0 after "
              f"{time.monotonic() - started:.2f} s")

    def wait_for_floating_panel(self, what):
        """The application's panel once it shows, floating and with the focus."""
        started = time.monotonic()
        window = wait_for(self.alive(lambda: [w for w in self.app_windows() if w.visible]),
                          10, what)[0]
        check(window.floating, f"the panel shows tiled, not floating: {window}")
        try:
            window = wait_for(self.alive(lambda: next(
                (w for w in self.app_windows() if w.visible and w.focused), None)), 10,
                "the panel to take the focus")
        except StepFailed:
            raise StepFailed(f"the panel does not take the focus: "
                             f"{describe(self.app_windows())}") from None
        print(f"  the panel after {time.monotonic() - started:.2f} s: {window}")
        return window

    def wait_for_panel_to_close(self, what):
        started = time.monotonic()
        try:
            wait_for(self.alive(lambda: not self.app_windows()), 10, what)
        except StepFailed:
            raise StepFailed(f"the panel stayed: {describe(self.app_windows())}") from None
        print(f"  the panel closed after {time.monotonic() - started:.2f} s")

    # --- the steps -----------------------------------------------------------------------

    def opens_as_a_window_without_a_tray(self):
        print("without a tray, the application opens as a window")
        window = wait_for(self.alive(self.app_windows), 30, "the application's window")[0]
        print(f"  its window: {window}")
        self.ui = AccessibleApp(self.desktop, APP_NAME)

    def second_start_brings_the_window_to_the_front(self):
        print("a second start hands over to the running copy, which comes to the front")
        self.desktop.swaymsg(f"[pid={self.app.pid}] move scratchpad")
        wait_for(lambda: not any(w.visible for w in self.app_windows()), 10,
                 "the window to go to the scratchpad")
        self.start_second_copy()
        try:
            window = wait_for(self.alive(lambda: next(
                (w for w in self.app_windows() if w.visible and w.focused), None)), 5,
                "the first copy's window at the front")
        except StepFailed:
            raise StepFailed(f"the first copy's window did not come to the front after a "
                             f"second start: {describe(self.app_windows())}") from None
        print(f"  its window: {window}")

    def joins_a_new_tray(self, shade, shot):
        print(f"a new tray host on a {shade} bar gets the item")
        if self.item is not None:
            self.desktop.stop_tray_host()
        watcher_seen = self.desktop.start_tray_host(shade)
        try:
            self.item = wait_for(self.alive(lambda: self.desktop.tray_item_of(self.app.pid)),
                                 15, "the item", interval=0.02)
        except StepFailed:
            raise StepFailed(f"the application put no item into the {shade} tray within 15 s "
                             f"of its watcher appearing; the tray holds "
                             f"{self.desktop.tray_items()}") from None
        delay = time.monotonic() - watcher_seen
        print(f"  item {self.item} registered {delay:.2f} s after the watcher appeared")
        self.shoot_bar(shot, shade)

    def activation_opens_a_floating_panel(self):
        print("activating the item opens the panel, floating, with the focus")
        self.desktop.activate_tray_item(self.item, *self.icon_centre)
        window = self.wait_for_floating_panel("the panel after activating the item")
        check(window.width <= PANEL_MAX_SIZE[0] and window.height <= PANEL_MAX_SIZE[1],
              f"the panel is {window.width}x{window.height}, larger than a popup's "
              f"{PANEL_MAX_SIZE[0]}x{PANEL_MAX_SIZE[1]}")

    def login_by_typing_at_once(self):
        print("the keyboard is in the first field: typing logs in")
        # No click first: the panel must have put the keyboard there itself.
        log_in_by_typing(self.desktop, self.ui, self.ui.wait_for_control("E-mail address", 15))
        self.shoot("panel-status")

    def watched_folder_gets_up_to_date(self):
        print("a folder watched for Family gets up to date")
        pyatspi = self.ui.pyatspi
        self.ui.press(self.ui.wait_for_control("Settings", 10, pyatspi.ROLE_PAGE_TAB))
        self.ui.press(self.ui.wait_for_control("Watch a new folder for Family", 20))
        # The group's row for the folder comes from the helper's answer to the request.
        self.ui.wait_for_control(str(self.watched), 20, what="the folder's row under Family")
        self.shoot("panel-settings")
        self.ui.press(self.ui.wait_for_control("Status", 10, pyatspi.ROLE_PAGE_TAB))
        started = time.monotonic()
        self.ui.wait_for_control(f"{self.watched.name}: Up to date", 60,
                                 pyatspi.ROLE_PROGRESS_BAR)
        print(f"  up to date {time.monotonic() - started:.1f} s after the Status tab showed")
        self.shoot("panel-uptodate")
        self.shoot_bar("dark-idle", "dark")

    def activation_closes_the_panel(self):
        print("activating the item again closes the panel")
        self.desktop.activate_tray_item(self.item, *self.icon_centre)
        self.wait_for_panel_to_close("the panel to close on a second activation")

    def focus_elsewhere_closes_the_panel(self):
        print("the panel closes when the keyboard goes elsewhere")
        self.desktop.activate_tray_item(self.item, *self.icon_centre)
        self.wait_for_floating_panel("the panel after activating the item")
        self.desktop.swaymsg("workspace number 2")
        self.wait_for_panel_to_close("the panel to close on another workspace")
        self.desktop.swaymsg("workspace number 1")

    def second_start_opens_the_panel_escape_closes_it(self):
        print("a second start with a tray opens the panel; Escape closes it")
        self.start_second_copy()
        self.wait_for_floating_panel("the panel after a second start")
        self.desktop.key("Escape")
        self.wait_for_panel_to_close("the panel to close on Escape")

    def ctrl_q_ends_the_application(self):
        print("Ctrl+Q in the panel ends the application")
        # The panel ignores its item for a moment after it closed, so that the click
        # that took the focus from it does not open it again as it arrives.
        time.sleep(1)
        self.desktop.activate_tray_item(self.item, *self.icon_centre)
        self.wait_for_floating_panel("the panel after activating the item")
        self.desktop.key("ctrl+q")
        ends_with_its_helper(self.app, "Ctrl+Q")


def run_session(app_path, screenshots):
    """The whole test, as the user the desktop runs as. Gives the exit status."""
    # A timeout's SIGTERM must still end the desktop: the with-blocks below do that.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))
    started = time.monotonic()
    screenshots.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(prefix="brisvane-wl-e2e-") as work:
        work = Path(work)
        watched = make_watched_folder(work)
        output = work / "app-output.txt"
        try:
            with WaylandDesktop(work / "desktop", accessibility=True) as desktop, \
                    open(output, "wb") as sink:
                command = [str(app_path), f"--pick={watched}"]
                env = desktop.app_environment(work / "xdg")
                if "ASAN_OPTIONS" in env:
                    # The toolkit's own leaks are told apart by where they were made,
                    # which takes whole stacks through libraries built without frame
                    # pointers.
                    env["ASAN_OPTIONS"] += ":fast_unwind_on_malloc=0"
                    env["LSAN_OPTIONS"] = "suppressions=" + str(
                        Path(__file__).resolve().with_name("wayland_lsan.supp"))
                app = desktop.start(command, env=env, stdout=sink, stderr=subprocess.STDOUT)
                try:
                    WaylandTrayTest(desktop, app, command, env, watched, screenshots,
                                    work).run()
                except BaseException:
                    with contextlib.suppress(StepFailed):
                        desktop.screenshot(screenshots / "failure.png")
                        print("the screen at the failure: failure.png")
                    raise
        except Exception as failure:
            report_failure(failure, output)
            return 1
    print(f"Wayland end-to-end test passed in {time.monotonic() - started:.1f} s")
    return 0


def run_as_throwaway_user(app_path, screenshots):
    """sway refuses root, so the test runs again as a throwaway user, on copies of
    the application, its helper and this test's own files in a folder that user owns
    (the build tree may sit where it cannot enter). Gives that run's exit status."""
    uid, gid = throwaway_user()
    stage = Path(tempfile.mkdtemp(prefix="brisvane-wl-"))
    try:
        app = stage / "bin" / app_path.name
        app.parent.mkdir()
        shutil.copy2(app_path, app)
        shutil.copytree(app_path.parent.parent / "libexec" / "brisvane",
                        stage / "libexec" / "brisvane")
        source_root = Path(__file__).resolve().parents[2]
        for name in OWN_FILES:
            (stage / "source" / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(source_root / name, stage / "source" / name)
        for folder in ("tmp", "screenshots"):
            (stage / folder).mkdir()
        for folder, subfolders, files in os.walk(stage):
            for path in [folder, *(os.path.join(folder, name) for name in subfolders + files)]:
                os.chown(path, uid, gid)

        env = {"PATH": "/usr/bin:/bin", "TMPDIR": str(stage / "tmp")}
        env.update((name, value) for name, value in os.environ.items()
                   if name in SANITIZER_OPTIONS)
        inner = subprocess.Popen(as_user(uid, gid, [
            sys.executable, str(stage / "source" / OWN_FILES[0]), "--inner", str(app),
            str(stage / "screenshots")], env))
        # A Ctrl+C reaches the inner run by itself; a SIGTERM is handed on, so that it
        # ends its desktop before it goes.
        signal.signal(signal.SIGINT, signal.SIG_IGN)
        signal.signal(signal.SIGTERM, lambda *_: inner.send_signal(signal.SIGTERM))
        status = inner.wait()
        screenshots.mkdir(parents=True, exist_ok=True)
        for shot in sorted((stage / "screenshots").glob("*.png")):
            shutil.copy(shot, screenshots / shot.name)
        print(f"screenshots in {screenshots}")
        return status
    finally:
        shutil.rmtree(stage, ignore_errors=True)


def missing_requirements():
    missing = [tool for tool in (*TOOLS, AT_SPI_BUS_LAUNCHER) if shutil.which(tool) is None]
    missing += [package for module, package in (("PIL", "python3-pil"),
                                                ("pyatspi", "python3-pyatspi"))
                if importlib.util.find_spec(module) is None]
    if os.geteuid() == 0:
        missing += missing_root_tools()
    return missing


def main():
    parser = argparse.ArgumentParser(description="brisvane's tray on a real Wayland desktop.")
    parser.add_argument("app", type=Path, help="the tray_e2e_app executable")
    parser.add_argument("screenshots", type=Path, help="the folder for the screenshots")
    parser.add_argument("--inner", action="store_true", help=argparse.SUPPRESS)
    args = parser.parse_args()
    missing = missing_requirements()
    if missing:
        print(f"SKIPPED: {', '.join(missing)} not installed; "
              "install them with scripts/install-deps.sh")
        return SKIPPED

    app, screenshots = args.app.resolve(), args.screenshots.resolve()
    if not args.inner:
        (screenshots / "failure.png").unlink(missing_ok=True)  # from an earlier run
        if os.geteuid() == 0:
            return run_as_throwaway_user(app, screenshots)
    status = run_session(app, screenshots)
    if not args.inner:
        print(f"screenshots in {screenshots}")
    return status


if __name__ == "__main__":
    sys.exit(main())
