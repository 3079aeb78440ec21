#!/usr/bin/python3
"""How fast brisvane starts, and how much memory and CPU it takes, on a real (virtual)
desktop.

Runs the application of this build, with the demo helper as its child, under a private
Xvfb, openbox, trayer and session bus, and prints for each figure the median, minimum and
maximum of all runs beside its goal:

  tray icon   exec to the icon embedded in trayer and viewable (reported only)
  first ping  exec to the helper's first answered ping, which the application passes on
              as "o: answered ping 1" (goal: under 300 ms)
  memory      the application's VmRSS and VmHWM after polling for a while, logged in with
              three watched folders of small files (goal: under 40 MB); the helper's
              figures beside them, as the helper is not the application
  at rest     logged in with the same folders, settled, pinging ten times a second: the
              application's CPU time over a stretch of seconds, as a share of one core
              (goal: at most 0.3 %); then its panel opened once over D-Bus (the
              freedesktop Activate a second start calls), closed with Escape, and the
              VmRSS a few seconds later (goal: at most 40 MB)

Every start-up run starts in a fresh temporary home ("cold": no autostart entry yet), then
once more in the same home ("warm"); every rest run in a fresh home. The figures are
printed, never judged: the machine is shared, so compare medians, and look at the range.

usage: startup [--runs N] [--memory-seconds S] [--rest-runs N] [--cpu-seconds S]
"""

import argparse
import contextlib
import os
import re
import selectors
import statistics
import subprocess
import sys
import time

sys.dont_write_bytecode = True  # nothing of a run lands beside the scripts
from bench_desktop import (START_TIMEOUT_S, Application, BenchError, Desktop,  # noqa: E402
                           Home, Processes, cpu_seconds, megabytes, memory_of,
                           missing_tools, prepare_to_run, read_until, wait_for)

# Filled in by the build.
APPLICATION = "$<TARGET_FILE:brisvane>"
TRAY_WATCH = "$<TARGET_FILE:startup_tray_watch>"

ICON_CLASS = "brisvane"
ICON_SIZE = "22x22"
PING_GOAL_MS = 300.0
MEMORY_GOAL_MB = 40.0
REST_CPU_GOAL_PERCENT = 0.3
WATCHED_FOLDERS = (("Family", 1001), ("Work", 9007199254740993),
                   ("Photos", 4611686018427387917))
FILES_PER_FOLDER = 300
# After the first answer: the folders' scans end and the start-up's work is done.
REST_SETTLE_S = 10
# After the panel closed: what it let go of is given back by then.
AFTER_PANEL_S = 5
# The panel is far bigger than the tray icon, the application's other window.
PANEL_MIN_SIDE = 200
ACTIVATE = ["gdbus", "call", "--session", "--dest", "app.brisvane.Brisvane",
            "--object-path", "/app/brisvane/Brisvane",
            "--method", "org.freedesktop.Application.Activate", "@a{sv} {}"]


def timed_start(processes, desktop, home):
    """Milliseconds from exec to the tray icon, and to the first answered ping."""
    watch = processes.start([TRAY_WATCH, ICON_CLASS, ICON_SIZE, str(int(START_TIMEOUT_S * 1000))],
                            env=desktop.env(), stdout=subprocess.PIPE)
    try:
        said = read_until(watch.stdout.fileno(), lambda text: text.endswith("\n"), START_TIMEOUT_S)
        if said != "ready\n":
            raise BenchError(f"the tray watcher did not get ready: {said!r}")
        application = Application(APPLICATION, processes, desktop, home)
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
            application.check_running()
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


def seed_watched_folders(home):
    """Logged in, watching three folders of small files."""
    folders = []
    for name, group_id in WATCHED_FOLDERS:
        folder = home.path / "watched" / name
        folder.mkdir(parents=True)
        for index in range(FILES_PER_FOLDER):
            (folder / f"file{index:04}.txt").write_bytes(os.urandom(512))
        folders.append((folder, group_id))
    home.write_demo_state(folders)


def keep_polling(application, seconds):
    """Lets the application run for that long, draining its output on the way."""
    deadline = time.monotonic() + seconds
    while (left := deadline - time.monotonic()) > 0:
        time.sleep(min(1.0, left))
        application.read_now()
        application.check_running()


@contextlib.contextmanager
def logged_in_application(processes, desktop):
    """The application in a fresh home with the watched folders, once it has answered."""
    home = Home()
    try:
        seed_watched_folders(home)
        application = Application(APPLICATION, processes, desktop, home)
        try:
            application.wait_for_first_answer()
            yield application
        finally:
            application.stop()
    finally:
        home.remove()


def memory_run(processes, desktop, seconds):
    """KiB figures of the application and of its helper after `seconds` of polling, and
    the application's VmRSS every ten seconds on the way."""
    with logged_in_application(processes, desktop) as application:
        trend = []
        for elapsed in range(1, seconds + 1):
            time.sleep(max(0.0, application.started_ns / 1e9 + elapsed - time.monotonic()))
            application.read_now()
            application.check_running()
            if elapsed % 10 == 0 or elapsed == seconds:
                trend.append((elapsed, memory_of(application.process.pid)["VmRSS"]))
        helper = application.helper_pid()
        return (memory_of(application.process.pid),
                memory_of(helper) if helper else None, trend)


def panels(desktop, pid):
    """The application's viewable windows of a panel's size."""
    found = []
    for window in desktop.run("xdotool", "search", "--onlyvisible", "--pid", str(pid)).split():
        geometry = dict(line.split("=", 1) for line in desktop.run(
            "xdotool", "getwindowgeometry", "--shell", window).split())
        if min(int(geometry.get("WIDTH", 0)), int(geometry.get("HEIGHT", 0))) >= PANEL_MIN_SIDE:
            found.append(window)
    return found


def open_and_close_panel(desktop, application):
    """Brings the panel up the way a second start does, and sends it away with Escape."""
    pid = application.process.pid
    desktop.run(*ACTIVATE, check=True)
    if not wait_for(lambda: panels(desktop, pid), 10, 0.1):
        raise BenchError(application.describe_failure("Activate brought no panel up"))
    # The panel takes the keyboard as it opens.
    desktop.run("xdotool", "key", "Escape", check=True)
    if not wait_for(lambda: not panels(desktop, pid), 10, 0.1):
        raise BenchError(application.describe_failure("the panel stayed open after Escape"))


def rest_run(processes, desktop, cpu_s):
    """The application's CPU % of one core at rest, and its VmRSS in KiB after the panel
    was opened once and closed again."""
    with logged_in_application(processes, desktop) as application:
        keep_polling(application, REST_SETTLE_S)
        pid = application.process.pid
        cpu_before, started = cpu_seconds(pid), time.monotonic()
        keep_polling(application, cpu_s)
        cpu_percent = 100 * (cpu_seconds(pid) - cpu_before) / (time.monotonic() - started)
        open_and_close_panel(desktop, application)
        keep_polling(application, AFTER_PANEL_S)
        return cpu_percent, memory_of(pid)["VmRSS"]


def rest_runs(processes, desktop, runs, cpu_s):
    figures = ([], [])
    for run in range(1, runs + 1):
        cpu_percent, rss = rest_run(processes, desktop, cpu_s)
        figures[0].append(cpu_percent)
        figures[1].append(megabytes(rss))
        print(f"  run {run}: CPU at rest {cpu_percent:.2f} % of one core, "
              f"VmRSS after the panel {megabytes(rss):.1f} MB", flush=True)
    return figures


def row(figure, values, unit, goal=None, at_most=False, digits=1):
    """One figure's line; goal is an upper bound, reached only below it unless at_most."""
    median = statistics.median(values)
    goal_text = f"{'<=' if at_most else '<'} {goal:g} {unit}" if goal is not None else "-"
    met = ""
    if goal is not None:
        met = "yes" if median < goal or (at_most and median == goal) else "NO"
    return (f"{figure:<32}{len(values):>5}{median:>10.{digits}f}{min(values):>10.{digits}f}"
            f"{max(values):>10.{digits}f}  {unit:<4}{goal_text:>12}  {met}")


def print_table(start_figures, memory, rest):
    print()
    print(f"{'figure':<32}{'runs':>5}{'median':>10}{'min':>10}{'max':>10}  "
          f"{'unit':<4}{'goal':>12}  met")
    for kind in ("cold", "warm"):
        tray, ping = start_figures[kind]
        print(row(f"tray icon shown ({kind})", tray, "ms"))
        print(row(f"first ping answered ({kind})", ping, "ms", PING_GOAL_MS))
    if memory:
        application, helper, trend = memory
        print(row("application VmRSS", [megabytes(application["VmRSS"])], "MB", MEMORY_GOAL_MB))
        print(row("application VmHWM", [megabytes(application["VmHWM"])], "MB", MEMORY_GOAL_MB))
        if helper:
            print(row("helper VmRSS (not the app)", [megabytes(helper["VmRSS"])], "MB"))
            print(row("helper VmHWM (not the app)", [megabytes(helper["VmHWM"])], "MB"))
        print("application VmRSS = {:.1f} MB own memory (RssAnon) + {:.1f} MB mapped files "
              "(RssFile, mostly shared libraries) + {:.1f} MB shared memory (RssShmem)".format(
                  *(megabytes(application[part]) for part in ("RssAnon", "RssFile", "RssShmem"))))
        print("application VmRSS on the way: " + ", ".join(
            f"{elapsed} s {megabytes(kib):.1f} MB" for elapsed, kib in trend))
    if rest:
        cpu, panel_rss = rest
        print(row("CPU at rest (of one core)", cpu, "%", REST_CPU_GOAL_PERCENT, True, 2))
        print(row("VmRSS after the panel once", panel_rss, "MB", MEMORY_GOAL_MB, True))


def parse_arguments():
    parser = argparse.ArgumentParser(
        description="Start-up time and memory of brisvane under Xvfb, openbox and trayer.")
    parser.add_argument("--runs", type=int, default=7,
                        help="fresh homes to start in, each cold then warm (default 7)")
    parser.add_argument("--memory-seconds", type=int, default=60,
                        help="how long to poll before the memory is read; 0 skips it "
                             "(default 60)")
    parser.add_argument("--rest-runs", type=int, default=3,
                        help="fresh homes to measure CPU at rest and memory after the panel "
                             "in; 0 skips them (default 3)")
    parser.add_argument("--cpu-seconds", type=int, default=20,
                        help="how long the CPU time at rest is summed over (default 20)")
    arguments = parser.parse_args()
    if (arguments.runs < 1 or arguments.memory_seconds < 0 or arguments.rest_runs < 0
            or arguments.cpu_seconds < 1):
        parser.error("--runs and --cpu-seconds must be at least 1, --memory-seconds and "
                     "--rest-runs at least 0")
    return arguments


def main():
    arguments = parse_arguments()
    missing = missing_tools("xdotool", "gdbus")
    if missing:
        sys.exit(f"startup: {', '.join(missing)} missing (scripts/install-deps.sh installs them)")
    prepare_to_run()

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
        rest = None
        if arguments.rest_runs:
            print(f"at rest: {arguments.rest_runs} fresh homes, logged in, "
                  f"{len(WATCHED_FOLDERS)} folders, CPU over {arguments.cpu_seconds} s after "
                  f"{REST_SETTLE_S} s to settle, then the panel once ...", flush=True)
            rest = rest_runs(processes, desktop, arguments.rest_runs, arguments.cpu_seconds)
        print_table(start_figures, memory, rest)
    except BenchError as error:
        sys.exit(f"startup: {error}")
    except KeyboardInterrupt:
        sys.exit("startup: interrupted")
    finally:
        processes.stop_all()


if __name__ == "__main__":
    main()
