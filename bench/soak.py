#!/usr/bin/python3
"""brisvane's memory and CPU over minutes with 10,000 watched folders.

Runs the application of this build, with the demo helper as its child, under a private
Xvfb, openbox, trayer and session bus, in a fresh home where the demo helper's state is
logged in with 10,000 watched (empty) folders. Once the helper has answered the first
ping, which carries all the folders, prints at the end of every sample period:

  the application's VmRSS and VmHWM, and its CPU time over the period as a share of one
  core; the helper's VmRSS beside them (the helper is not the application); and what the
  application sent the helper in the period, per second, as the kernel counts it on their
  connections: its pings carry the folder list back once it has taken the helper's
  answer, so a few kB/s mean that it never did.

At the end: how VmRSS grew from the first sample to the last (goal: at most 150 MB
resident, flat after the first minute). The figures are printed, never judged.

usage: soak [--minutes N] [--seconds-per-sample S] [--folders N]
"""

import argparse
import re
import subprocess
import sys
import time
from pathlib import Path

sys.dont_write_bytecode = True  # nothing of a run lands beside the scripts
from bench_desktop import (Application, BenchError, Desktop, Home,  # noqa: E402
                           Processes, cpu_seconds, megabytes, memory_of, missing_tools,
                           prepare_to_run)

# Filled in by the build.
APPLICATION = "$<TARGET_FILE:brisvane>"

GROUP_IDS = (1001, 9007199254740993, 4611686018427387917)
# The helper starts a scan for every folder at once; 10,000 take a while to answer.
FIRST_ANSWER_TIMEOUT_S = 120.0


def seed_folders(home, count):
    """Empty watched folders, spread over the demo account's groups."""
    root = home.path / "watched"
    folders = []
    for index in range(count):
        folder = root / f"{index // 100:03}" / f"Album {index:05}"
        folder.mkdir(parents=True)
        folders.append((folder, GROUP_IDS[index % len(GROUP_IDS)]))
    home.write_demo_state(folders)


def helper_port(helper_pid):
    """The loopback port the helper was told to answer on."""
    for argument in Path(f"/proc/{helper_pid}/cmdline").read_bytes().split(b"\0"):
        if argument.startswith(b"-port="):
            return int(argument[len(b"-port="):])
    raise BenchError("the helper was started without -port=")


def bytes_sent_to(port):
    """Bytes sent on each open connection to 127.0.0.1:port, by local address. Taken
    from the kernel's TCP figures, since /proc's write counters miss send calls."""
    sockets = subprocess.run(["ss", "-Htin", "state", "established", "dst", f"127.0.0.1:{port}"],
                             capture_output=True, text=True, check=True).stdout
    # Each connection: its addresses on one line, then its TCP figures on the next.
    sent = {}
    for addresses, figures in re.findall(r"^\S*\s*\d+\s+\d+\s+(\S+)\s+\S+\s*\n(.*)$",
                                         sockets, re.MULTILINE):
        found = re.search(r"bytes_sent:(\d+)", figures)
        sent[addresses] = int(found.group(1)) if found else 0
    return sent


class Sampler:
    """The application's and its helper's figures at the end of each period."""

    def __init__(self, application):
        self.application = application
        self.pid = application.process.pid
        self.helper = application.helper_pid()
        if self.helper is None:
            raise BenchError(application.describe_failure("the helper is not running"))
        self.port = helper_port(self.helper)
        self.last = self._counters()

    def _counters(self):
        return time.monotonic(), cpu_seconds(self.pid), bytes_sent_to(self.port)

    def sample(self):
        """VmRSS, VmHWM and the helper's VmRSS in MB, CPU % of one core and kB sent to
        the helper per second since the last sample."""
        now = self._counters()
        elapsed = now[0] - self.last[0]
        cpu_percent = 100 * (now[1] - self.last[1]) / elapsed
        # A connection opened since the last sample counts from nothing.
        sent = sum(count - self.last[2].get(addresses, 0) for addresses, count in now[2].items())
        self.last = now
        memory = memory_of(self.pid)
        return (megabytes(memory["VmRSS"]), megabytes(memory["VmHWM"]),
                megabytes(memory_of(self.helper)["VmRSS"]), cpu_percent, sent / 1e3 / elapsed)


def soak(processes, desktop, arguments):
    home = Home()
    try:
        print(f"writing {arguments.folders} watched folders ...", flush=True)
        seed_folders(home, arguments.folders)
        application = Application(APPLICATION, processes, desktop, home)
        try:
            started = time.monotonic()
            application.wait_for_first_answer(FIRST_ANSWER_TIMEOUT_S)
            print(f"first answer with the folders after {time.monotonic() - started:.1f} s",
                  flush=True)
            return sample_periods(application, arguments)
        finally:
            application.stop()
    finally:
        home.remove()


def sample_periods(application, arguments):
    period = arguments.seconds_per_sample
    samples = max(1, round(arguments.minutes * 60 / period))
    print(f"{'at':>7}  {'VmRSS':>8}  {'VmHWM':>8}  {'CPU':>7}  {'to helper':>11}  "
          f"{'helper VmRSS':>12}")
    sampler = Sampler(application)
    rss = []
    next_sample = time.monotonic()
    for index in range(1, samples + 1):
        next_sample += period
        while (left := next_sample - time.monotonic()) > 0:
            time.sleep(min(1.0, left))
            application.read_now()
            application.check_running()
        app_rss, app_hwm, helper_rss, cpu_percent, sent = sampler.sample()
        rss.append(app_rss)
        print(f"{index * period:>5g} s  {app_rss:>5.1f} MB  {app_hwm:>5.1f} MB  "
              f"{cpu_percent:>5.1f} %  {sent:>6.0f} kB/s  {helper_rss:>9.1f} MB", flush=True)
    return rss


def parse_arguments():
    parser = argparse.ArgumentParser(
        description="Memory and CPU of brisvane over minutes with 10,000 watched folders.")
    parser.add_argument("--minutes", type=float, default=10,
                        help="how long to sample for (default 10)")
    parser.add_argument("--seconds-per-sample", type=float, default=60,
                        help="the length of one sample period (default 60)")
    parser.add_argument("--folders", type=int, default=10000,
                        help="how many folders the helper reports (default 10000)")
    arguments = parser.parse_args()
    if arguments.minutes <= 0 or arguments.seconds_per_sample <= 0 or arguments.folders < 1:
        parser.error("--minutes, --seconds-per-sample and --folders must be positive")
    return arguments


def main():
    arguments = parse_arguments()
    missing = missing_tools("ss")
    if missing:
        sys.exit(f"soak: {', '.join(missing)} missing (scripts/install-deps.sh installs them)")
    prepare_to_run()

    processes = Processes()
    try:
        desktop = Desktop(processes)
        desktop.start()
        print(f"brisvane soak on {desktop.environment['DISPLAY']}: {APPLICATION}", flush=True)
        rss = soak(processes, desktop, arguments)
        growth = rss[-1] - rss[0]
        print(f"VmRSS from the first sample to the last: {rss[0]:.1f} MB -> {rss[-1]:.1f} MB, "
              f"{growth:+.1f} MB ({100 * growth / rss[0]:+.1f} %)")
        print("goal: at most 150 MB resident, flat after the first minute")
    except BenchError as error:
        sys.exit(f"soak: {error}")
    except KeyboardInterrupt:
        sys.exit("soak: interrupted")
    finally:
        processes.stop_all()


if __name__ == "__main__":
    main()
