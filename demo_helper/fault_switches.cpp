// The demo helper's fault switches: environment variables that make it misbehave
// on purpose, so tests can check how the application copes. Unset or malformed
// values leave the helper behaving normally.
//
//   BRISVANE_DEMO_DELAY_MS=<n>          sleep n milliseconds before each answer
//                                       (the answer is still sealed fresh after it)
//   BRISVANE_DEMO_STATUS=<code>         answer with this HTTP status instead of 200;
//                                       the body is still a properly sealed answer
//   BRISVANE_DEMO_TIMESTAMP=stale       seal answers with now - 50 ms
//   BRISVANE_DEMO_TIMESTAMP=future      seal answers with now + 50 ms
//   BRISVANE_DEMO_TIMESTAMP=repeat      seal each answer with the previous answer's
//                                       timestamp (the first one with now)
//   BRISVANE_DEMO_GARBAGE=1             answer 200 with a body that is not JSON
//   BRISVANE_DEMO_BAD_KEY_BLOCK=<file>  if <file> does not exist: create it and
//                                       print a key block whose body is not base64,
//                                       then keep running; if it exists: print the
//                                       good block. So a restarted helper recovers.
//   BRISVANE_DEMO_EXIT_AFTER=<n>        exit (status 0) once n answers have been given;
//                                       0: right after printing the key block
//   BRISVANE_DEMO_SILENT=1              print nothing on standard output and never
//                                       answer, while still listening on the port
//   BRISVANE_DEMO_IGNORE_TERM=1         ignore SIGTERM, and the application's end too:
//                                       only SIGKILL (or SIGINT, SIGHUP) ends it
//   BRISVANE_DEMO_HOLD=<n>              take the first n requests and never answer them
//                                       (their connections stay open until the helper ends)
//   BRISVANE_DEMO_OVERSIZE=<n>          answer the n requests after those held with an
//                                       endless chunked body, a mebibyte a chunk
//   BRISVANE_DEMO_TRICKLE=<n>           send the n answers after those one byte every 10 ms
//
// And two seams that are not faults:
//
//   BRISVANE_DEMO_OPENER=<program>      run this instead of xdg-open to open folders
//                                       and web pages (tests record what is opened)
//   BRISVANE_DEMO_ANNOUNCE_ANSWERS=1    print "answered ping <n>" on standard output
//                                       once the answer to the n-th ping has been
//                                       written to its connection, for the first three
//                                       pings; the application passes the line on, so
//                                       a benchmark sees from outside when it was first
//                                       answered

#include "fault_switches.h"

#include <QByteArray>
#include <QtGlobal>
#include <utility>

namespace {

std::optional<qlonglong> integerVariable(const char* name) {
    bool isNumber = false;
    const qlonglong value = qEnvironmentVariable(name).toLongLong(&isNumber);
    return isNumber ? std::optional(value) : std::nullopt;
}

bool flagVariable(const char* name) {
    return qEnvironmentVariable(name) == u"1";
}

}  // namespace

FaultSwitches FaultSwitches::fromEnvironment() {
    FaultSwitches switches;

    if (const auto delay = integerVariable("BRISVANE_DEMO_DELAY_MS"); delay && *delay > 0) {
        switches.answerDelay = std::chrono::milliseconds(*delay);
    }
    if (const auto status = integerVariable("BRISVANE_DEMO_STATUS");
        status && *status >= 100 && *status <= 599) {
        switches.httpStatus = static_cast<int>(*status);
    }

    const QString timestamp = qEnvironmentVariable("BRISVANE_DEMO_TIMESTAMP");
    if (timestamp == u"stale") {
        switches.timestampFault = TimestampFault::stale;
    } else if (timestamp == u"future") {
        switches.timestampFault = TimestampFault::future;
    } else if (timestamp == u"repeat") {
        switches.timestampFault = TimestampFault::repeat;
    }

    switches.garbageBody = flagVariable("BRISVANE_DEMO_GARBAGE");
    switches.badKeyBlockMarker = qEnvironmentVariable("BRISVANE_DEMO_BAD_KEY_BLOCK");
    if (const auto count = integerVariable("BRISVANE_DEMO_EXIT_AFTER"); count && *count >= 0) {
        switches.exitAfterAnswers = *count;
    }
    switches.silent = flagVariable("BRISVANE_DEMO_SILENT");
    switches.ignoreTermination = flagVariable("BRISVANE_DEMO_IGNORE_TERM");

    switches.openerProgram = qEnvironmentVariable("BRISVANE_DEMO_OPENER");
    if (switches.openerProgram.isEmpty()) {
        switches.openerProgram = QStringLiteral("xdg-open");
    }
    switches.announceAnswers = flagVariable("BRISVANE_DEMO_ANNOUNCE_ANSWERS");
    for (const auto& [name, count] :
         {std::pair{"BRISVANE_DEMO_HOLD", &switches.heldRequests},
          std::pair{"BRISVANE_DEMO_OVERSIZE", &switches.oversizedAnswers},
          std::pair{"BRISVANE_DEMO_TRICKLE", &switches.trickledAnswers}}) {
        if (const auto value = integerVariable(name); value && *value > 0) {
            *count = *value;
        }
    }
    return switches;
}
