#include "diagnostics/diagnostics.h"
#include "key_exchange.h"
#include "stops.h"

namespace {

constexpr QStringView kBeginMarker = u"-----BEGIN PUBLIC KEY-----";
constexpr QStringView kBeginLine = u"-----BEGIN PUBLIC KEY-----\n";
constexpr QStringView kEndLine = u"\n-----END PUBLIC KEY-----";

}  // namespace

QString PEMFromString(const QString& text) {
    if (!text.contains(kBeginMarker)) {
        throw std::system_error(PEMError::doesNotExist);
    }
    // The body is what lies between the first marker line and the next one, if any.
    const qsizetype begin = text.indexOf(kBeginLine);
    if (begin < 0) {
        // The marker is there but never ends its line: the text cannot be split at the line.
        Diagnostics::stop(kKeyExchangeStopHeading,
                          "the public key block's BEGIN marker is not followed by a line feed");
    }
    const qsizetype bodyStart = begin + kBeginLine.size();
    const qsizetype nextBegin = text.indexOf(kBeginLine, bodyStart);
    const QStringView piece = QStringView(text).sliced(bodyStart).first(
        (nextBegin < 0 ? text.size() : nextBegin) - bodyStart);
    const qsizetype end = piece.indexOf(kEndLine);
    const QStringView body = end < 0 ? piece : piece.first(end);
    if (body.isEmpty()) {
        throw std::system_error(PEMError::doesNotExist);
    }
    return body.toString();
}

std::optional<QString> PEMSearchString(const QString& text) {
    try {
        return PEMFromString(text);
    } catch (const std::system_error& error) {
        if (error.code() != PEMError::doesNotExist) {
            throw;
        }
        return std::nullopt;
    }
}
