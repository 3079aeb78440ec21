#pragma once

// The program's own lines for whoever reads its output: log lines on standard output, and
// the stops that end the program when it meets a state it cannot go on from.
//
// Each line is written in one piece and flushed at once, so that a reader of the pipe (the
// session log, a test) sees an event when it happens and never half a line of it.

#include <QAnyStringView>

namespace Diagnostics {

// The line and a line feed on standard output.
void printLine(QAnyStringView line);

// The line and a line feed on standard error; the program goes on.
void printErrorLine(QAnyStringView line);

// The line on standard error, then abort(): no clean-up runs, and a core dump or the
// sanitizers show where the program was.
[[noreturn]] void stopWithLine(QAnyStringView line);

// "<heading>: <reason>", then the stop.
[[noreturn]] void stop(QAnyStringView heading, QAnyStringView reason);

// "fatal: <reason>", then the stop.
[[noreturn]] void stop(QAnyStringView reason);

// The stop for a value that must be there and is not.
[[noreturn]] void stopUnwrappingNothing();

}  // namespace Diagnostics
