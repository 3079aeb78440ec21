#pragma once

// SIGTERM, SIGINT and SIGHUP from the session (a logout, Ctrl+C in a terminal, a
// terminal closed) end the application the way Quit does: the event loop returns and
// the helper is stopped on the way out, instead of being left behind.

// Installs the handlers; the application object must exist. Once per process.
void QuitOnTerminationSignals();
