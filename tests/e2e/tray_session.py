"""What the X11 and the Wayland tray tests share: the person's data, the checks of a
second start and of an ending, and how a failed run is reported."""

import os
import subprocess
import sys
import time
import traceback

from virtual_desktop import ProcessEnded, StepFailed, wait_for

APP_NAME = "brisvane"  # the accessible application's name and its windows' class
EMAIL = "tester@brisvane.example"
PASSWORD = "secret password"
ALREADY_OPENED = "Application already opened.  Exiting ..."


def check(condition, message):
    if not condition:
        raise StepFailed(message)


def while_running(app, condition):
    """condition, failing at once when the application has ended meanwhile."""
    def checked():
        if app.poll() is not None:
            raise ProcessEnded(f"the application ended early with status {app.returncode}")
        return condition()
    return checked


def make_watched_folder(parent):
    folder = parent / "Family album"
    folder.mkdir()
    for index in range(5):
        (folder / f"photo-{index}.jpg").write_bytes(bytes(range(256)) * (index + 1))
    return folder


def log_in_by_typing(desktop, ui, email_field):
    """Types the e-mail address into email_field, which has the keyboard, then the
    password, as a person would; the panel must turn to its two tabs."""
    desktop.type_text(EMAIL)
    text = email_field.queryText()
    try:
        wait_for(lambda: text.getText(0, -1) == EMAIL, 5, "the typed e-mail address")
    except StepFailed:
        raise StepFailed(f"the e-mail field holds {text.getText(0, -1)!r} after typing "
                         f"{EMAIL!r}") from None
    desktop.key("Tab")
    desktop.type_text(PASSWORD)
    desktop.key("Return")
    pyatspi = ui.pyatspi
    tab_list = ui.wait_for_control(lambda name: True, 20, pyatspi.ROLE_PAGE_TAB_LIST,
                                   what="the tabs after logging in")
    tabs = [tab.name for tab in map(tab_list.getChildAtIndex, range(tab_list.childCount))
            if tab.getRole() == pyatspi.ROLE_PAGE_TAB]
    check(tabs == ["Status", "Settings"], f"the tabs after login are {tabs}")
    check(ui.find("E-mail address") is None, "the login screen stayed after login")


def second_start_hands_over(second, timeout=15):
    """A second copy, started while the first runs, must say so and end with status 0
    at once. Gives how long it took."""
    try:
        output, _ = second.communicate(timeout=timeout)
    except subprocess.TimeoutExpired:
        raise StepFailed(f"a second start still runs after {timeout} s instead of handing "
                         "over to the running copy") from None
    output = (output or b"").decode(errors="replace")
    check(second.returncode == 0 and ALREADY_OPENED in output,
          f"a second start should print {ALREADY_OPENED!r} and end with status 0; it ended "
          f"with status {second.returncode}, saying:\n{output}")


def ends_with_its_helper(app, what, within=15):
    """The application ends with status 0 within that many seconds after what, and its
    helper with it. Gives how long it took."""
    started = time.monotonic()
    try:
        status = app.wait(timeout=within)
    except subprocess.TimeoutExpired:
        raise StepFailed(f"the application still ran {within:g} s after {what}") from None
    took = time.monotonic() - started
    check(status == 0, f"the application ended with status {status} after {what}")
    # The helper shares the application's process group; it must not outlive it.
    wait_for(lambda: not _process_group_exists(app.pid), 10,
             "the helper to end with the application")
    return took


def _process_group_exists(group):
    try:
        os.killpg(group, 0)
        return True
    except ProcessLookupError:
        return False


def report_failure(failure, output):
    """The failure, and what the application printed (a file) before it."""
    if isinstance(failure, StepFailed):
        print(f"FAILED: {failure}")
    else:
        traceback.print_exc(file=sys.stdout)
    if output.exists():
        print("---- the application's output ----")
        print(output.read_text(errors="replace"))
