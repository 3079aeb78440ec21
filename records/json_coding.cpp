#include "json_coding.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <algorithm>
#include <string>

namespace {

class JSONCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "JSONError"; }
    std::string message(int value) const override {
        switch (static_cast<JSONError>(value)) {
            case JSONError::dataCorrupted:
                return "dataCorrupted";
            case JSONError::keyNotFound:
                return "keyNotFound";
            case JSONError::typeMismatch:
                return "typeMismatch";
        }
        return "unknown JSONError";
    }
};

[[noreturn]] void throwJSONError(JSONError error) {
    throw std::system_error(error);
}

QJsonValue requireMember(const QJsonObject& object, QLatin1StringView key) {
    const auto found = object.constFind(key);
    if (found == object.constEnd()) {
        throwJSONError(JSONError::keyNotFound);
    }
    return found.value();
}

constexpr char kHexDigits[] = "0123456789abcdef";

// The escape for a character JSON does not allow raw, or 0 when it may stand as it is.
char shortEscape(char16_t c) {
    switch (c) {
        case u'"':
            return '"';
        case u'\\':
            return '\\';
        case u'\b':
            return 'b';
        case u'\f':
            return 'f';
        case u'\n':
            return 'n';
        case u'\r':
            return 'r';
        case u'\t':
            return 't';
        default:
            return 0;
    }
}

bool isPlain(char16_t c) {
    return c >= 0x20 && c < 0x80 && c != u'"' && c != u'\\';
}

// isPlain for a whole block, written without an early exit so that the compiler
// can vectorise it: base64 envelopes and folder paths are long plain runs.
constexpr qsizetype kPlainBlock = 32;
bool isPlainBlock(const char16_t* chars) {
    unsigned notPlain = 0;
    for (qsizetype k = 0; k < kPlainBlock; ++k) {
        const char16_t c = chars[k];
        notPlain |= static_cast<unsigned>(c < 0x20) | static_cast<unsigned>(c >= 0x80) |
                    static_cast<unsigned>(c == u'"') | static_cast<unsigned>(c == u'\\');
    }
    return notPlain == 0;
}

void appendUnicodeEscape(QByteArray& out, char16_t c) {
    out.append("\\u")
        .append(kHexDigits[(c >> 12) & 0xF])
        .append(kHexDigits[(c >> 8) & 0xF])
        .append(kHexDigits[(c >> 4) & 0xF])
        .append(kHexDigits[c & 0xF]);
}

// A surrogate that is not half of a high-then-low pair.
bool isLoneSurrogate(QStringView text, qsizetype at) {
    const QChar c = text[at];
    if (c.isHighSurrogate()) {
        return at + 1 >= text.size() || !text[at + 1].isLowSurrogate();
    }
    return c.isLowSurrogate();
}

void appendEscaped(QByteArray& out, QStringView text) {
    const qsizetype size = text.size();
    qsizetype i = 0;
    while (i < size) {
        // Runs of plain ASCII are narrowed straight into the output; only the rare character
        // that needs an escape or a multi-byte UTF-8 form leaves this path.
        const char16_t* chars = reinterpret_cast<const char16_t*>(text.utf16());
        qsizetype end = i;
        while (end + kPlainBlock <= size && isPlainBlock(chars + end)) {
            end += kPlainBlock;
        }
        while (end < size && isPlain(chars[end])) {
            ++end;
        }
        if (end > i) {
            const qsizetype at = out.size();
            out.resize(at + (end - i));
            char* plain = out.data() + at;
            for (qsizetype k = i; k < end; ++k) {
                plain[k - i] = static_cast<char>(chars[k]);
            }
            i = end;
            continue;
        }
        const char16_t c = text[i].unicode();
        if (c >= 0x80) {
            // A whole run of well-formed non-ASCII text at once, so surrogate pairs stay
            // together. A lone surrogate has no UTF-8 form: it is written as an escape, so
            // that what was read is what is written back.
            while (end < size && text[end].unicode() >= 0x80 && !isLoneSurrogate(text, end)) {
                end += text[end].isHighSurrogate() ? 2 : 1;
            }
            if (end > i) {
                out.append(text.sliced(i, end - i).toUtf8());
                i = end;
            } else {
                appendUnicodeEscape(out, c);
                ++i;
            }
            continue;
        }
        if (const char escape = shortEscape(c); escape != 0) {
            out.append('\\').append(escape);
        } else {
            appendUnicodeEscape(out, c);
        }
        ++i;
    }
}

// Qt's parser drops a U+FEFF that begins a string (it decodes each string as if it were a
// document of its own), and skips one that begins the text. A folder's name may start with
// one, and a text that starts with one is not JSON, so each raw U+FEFF becomes its escape:
// inside a string it then stays the character it was, and anywhere else it is refused.
QByteArray withByteOrderMarksEscaped(QByteArrayView text) {
    constexpr QByteArrayView kRawMark = "\xEF\xBB\xBF";
    qsizetype mark = text.indexOf(kRawMark);
    if (mark < 0) {
        return QByteArray::fromRawData(text.data(), text.size());
    }
    QByteArray escaped;
    escaped.reserve(text.size() + 8);
    qsizetype copied = 0;
    for (; mark >= 0; mark = text.indexOf(kRawMark, mark + kRawMark.size())) {
        // After an odd run of backslashes the mark is itself being escaped, which JSON does
        // not allow: it stays raw so that the text stays refused.
        qsizetype backslashes = 0;
        while (mark - backslashes > 0 && text[mark - backslashes - 1] == '\\') {
            ++backslashes;
        }
        if (backslashes % 2 == 1) {
            continue;
        }
        escaped.append(text.sliced(copied, mark - copied)).append("\\ufeff");
        copied = mark + kRawMark.size();
    }
    escaped.append(text.sliced(copied));
    return escaped;
}

}  // namespace

const std::error_category& JSONErrorCategory() {
    static const JSONCategory category;
    return category;
}

std::error_code make_error_code(JSONError error) {
    return {static_cast<int>(error), JSONErrorCategory()};
}

void JSONWriter::separate() {
    if (needsComma_) {
        out_.append(',');
    }
    needsComma_ = false;
}

void JSONWriter::beginObject() {
    separate();
    out_.append('{');
}

void JSONWriter::endObject() {
    out_.append('}');
    needsComma_ = true;
}

void JSONWriter::beginArray() {
    separate();
    out_.append('[');
}

void JSONWriter::endArray() {
    out_.append(']');
    needsComma_ = true;
}

void JSONWriter::key(QLatin1StringView name) {
    separate();
    out_.append('"');
    // Record keys are plain ASCII: no need to widen them first.
    if (std::all_of(name.begin(), name.end(), [](char c) { return isPlain(uchar(c)); })) {
        out_.append(name.data(), name.size());
    } else {
        appendEscaped(out_, QString(name));
    }
    out_.append("\":");
}

void JSONWriter::value(const QString& text) {
    separate();
    out_.reserve(out_.size() + text.size() + 2);
    out_.append('"');
    appendEscaped(out_, text);
    out_.append('"');
    needsComma_ = true;
}

void JSONWriter::valueFromUTF8(QByteArrayView utf8) {
    separate();
    // Multi-byte sequences pass through as they are; only quotes, backslashes
    // and control characters need escapes, written as appendEscaped writes them.
    // The escapes are counted first so that the text is written in one pass.
    auto extraBytes = [](unsigned char c) -> qsizetype {
        if (c == '"' || c == '\\') {
            return 1;
        }
        if (c >= 0x20) {
            return 0;
        }
        return shortEscape(c) != 0 ? 1 : 5;
    };
    qsizetype extra = 0;
    for (const char c : utf8) {
        extra += extraBytes(static_cast<unsigned char>(c));
    }
    const qsizetype at = out_.size();
    out_.resize(at + utf8.size() + extra + 2);
    char* write = out_.data() + at;
    *write++ = '"';
    for (const char c : utf8) {
        const auto byte = static_cast<unsigned char>(c);
        if (const qsizetype escapeSize = extraBytes(byte); escapeSize == 0) {
            *write++ = c;
        } else if (escapeSize == 1) {
            *write++ = '\\';
            *write++ = byte == '"' || byte == '\\' ? c : shortEscape(byte);
        } else {
            for (const char digit :
                 {'\\', 'u', '0', '0', kHexDigits[byte >> 4], kHexDigits[byte & 0xF]}) {
                *write++ = digit;
            }
        }
    }
    *write = '"';
    needsComma_ = true;
}

void JSONWriter::value(QLatin1StringView text) {
    value(QString(text));
}

void JSONWriter::value(std::int64_t number) {
    separate();
    out_.append(QByteArray::number(static_cast<qlonglong>(number)));
    needsComma_ = true;
}

void JSONWriter::value(bool flag) {
    separate();
    out_.append(flag ? "true" : "false");
    needsComma_ = true;
}

void JSONWriter::null() {
    separate();
    out_.append("null");
    needsComma_ = true;
}

namespace json {

QJsonValue parse(QByteArrayView text) {
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(withByteOrderMarksEscaped(text), &error);
    if (error.error != QJsonParseError::NoError) {
        throwJSONError(JSONError::dataCorrupted);
    }
    if (document.isObject()) {
        return document.object();
    }
    if (document.isArray()) {
        return document.array();
    }
    throwJSONError(JSONError::dataCorrupted);
}

QJsonObject requireObject(const QJsonValue& value) {
    if (!value.isObject()) {
        throwJSONError(JSONError::typeMismatch);
    }
    return value.toObject();
}

QJsonArray requireArray(const QJsonValue& value) {
    if (!value.isArray()) {
        throwJSONError(JSONError::typeMismatch);
    }
    return value.toArray();
}

QString requireString(const QJsonObject& object, QLatin1StringView key) {
    const QJsonValue value = requireMember(object, key);
    if (!value.isString()) {
        throwJSONError(JSONError::typeMismatch);
    }
    return value.toString();
}

bool requireBool(const QJsonObject& object, QLatin1StringView key) {
    const QJsonValue value = requireMember(object, key);
    if (!value.isBool()) {
        throwJSONError(JSONError::typeMismatch);
    }
    return value.toBool();
}

std::int64_t requireInt64(const QJsonObject& object, QLatin1StringView key) {
    const QJsonValue value = requireMember(object, key);
    if (!value.isDouble()) {
        throwJSONError(JSONError::typeMismatch);
    }
    // Qt keeps an integer literal as a 64-bit integer, and gives back the fallback for a
    // number that is not a whole number in range; two different fallbacks tell the two apart.
    const qint64 number = value.toInteger(0);
    if (number != value.toInteger(1)) {
        throwJSONError(JSONError::typeMismatch);
    }
    return number;
}

QStringList requireStringArray(const QJsonObject& object, QLatin1StringView key) {
    const QJsonArray array = requireArray(requireMember(object, key));
    QStringList strings;
    strings.reserve(array.size());
    for (const QJsonValue& element : array) {
        if (!element.isString()) {
            throwJSONError(JSONError::typeMismatch);
        }
        strings.append(element.toString());
    }
    return strings;
}

std::optional<QString> optionalString(const QJsonObject& object, QLatin1StringView key) {
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull()) {
        return std::nullopt;
    }
    if (!value.isString()) {
        throwJSONError(JSONError::typeMismatch);
    }
    return value.toString();
}

}  // namespace json
