#include "diagnostics.h"

#include <QByteArray>
#include <QString>
#include <cstdio>
#include <cstdlib>

namespace Diagnostics {
namespace {

// The text in the locale's encoding, as qPrintable() gives it, and written with fputs(), so a
// line reads exactly as the printf() family would have written it.
void writeLine(std::FILE* stream, QAnyStringView line) {
    const QByteArray bytes = (line.toString() + u'\n').toLocal8Bit();
    std::fputs(bytes.constData(), stream);
    std::fflush(stream);
}

}  // namespace

void printLine(QAnyStringView line) {
    writeLine(stdout, line);
}

void printErrorLine(QAnyStringView line) {
    writeLine(stderr, line);
}

void stopWithLine(QAnyStringView line) {
    writeLine(stderr, line);
    std::abort();
}

void stop(QAnyStringView heading, QAnyStringView reason) {
    stopWithLine(heading.toString() + QLatin1String(": ") + reason.toString());
}

void stop(QAnyStringView reason) {
    stop(u"fatal", reason);
}

void stopUnwrappingNothing() {
    stop(u"Unexpectedly found nil while unwrapping an Optional value");
}

}  // namespace Diagnostics
