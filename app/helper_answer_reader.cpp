#include "helper_answer_reader.h"

#include <cstring>
#include <system_error>

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

QByteArrayView trimmed(QByteArrayView text) {
    while (!text.isEmpty() && isBlank(text.front())) {
        text = text.sliced(1);
    }
    while (!text.isEmpty() && isBlank(text.back())) {
        text.chop(1);
    }
    return text;
}

// The quote that ends the string whose text starts at `from`, or `end`. Strings
// are most of a report, so they are skipped with memchr rather than byte by byte;
// a quote is escaped exactly when an odd run of backslashes comes before it.
qsizetype closingQuote(const char* data, qsizetype from, qsizetype end) {
    qsizetype at = from;
    while (at < end) {
        const void* quote = std::memchr(data + at, '"', static_cast<std::size_t>(end - at));
        if (quote == nullptr) {
            return end;
        }
        at = static_cast<const char*>(quote) - data;
        qsizetype backslashes = 0;
        while (at - backslashes - 1 >= from && data[at - backslashes - 1] == '\\') {
            ++backslashes;
        }
        if (backslashes % 2 == 0) {
            return at;
        }
        ++at;
    }
    return end;
}

}  // namespace

std::optional<QList<QByteArrayView>> SplitJSONArray(QByteArrayView text) {
    text = trimmed(text);
    if (text.size() < 2 || text.front() != '[' || text.back() != ']') {
        return std::nullopt;
    }
    QList<QByteArrayView> elements;
    const char* const data = text.data();
    const qsizetype end = text.size() - 1;  // the closing bracket
    qsizetype elementStart = 1;
    int depth = 0;
    bool inString = false;
    for (qsizetype at = 1; at < end; ++at) {
        const char c = data[at];
        if (inString) {
            at = closingQuote(data, at, end);
            if (at == end) {
                return std::nullopt;
            }
            inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > kSplitJSONArrayMaxDepth) {
                return std::nullopt;
            }
        } else if (c == ']' || c == '}') {
            if (--depth < 0) {
                return std::nullopt;
            }
        } else if (c == ',' && depth == 0) {
            const QByteArrayView element = trimmed(text.sliced(elementStart, at - elementStart));
            if (element.isEmpty()) {
                return std::nullopt;
            }
            elements.append(element);
            elementStart = at + 1;
        }
    }
    if (inString || depth != 0) {
        return std::nullopt;
    }
    const QByteArrayView last = trimmed(text.sliced(elementStart, end - elementStart));
    if (last.isEmpty()) {
        // "[]" has no elements; "[1,]" is malformed.
        return elements.isEmpty() ? std::optional(elements) : std::nullopt;
    }
    elements.append(last);
    return elements;
}

HelperAnswer HelperAnswerReader::read(const QByteArray& text) {
    std::lock_guard lock(lock_);
    if (!lastFolderText_.isEmpty() && text == lastFolderText_) {
        return lastFolders_;  // shares its data, which tells the model nothing changed
    }
    const std::optional<QList<QByteArrayView>> elements = SplitJSONArray(text);
    if (elements && !elements->isEmpty()) {
        if (std::optional<QList<DirItem>> folders = readFromLastFolders(*elements)) {
            // A copy shares the bytes, so the views stay valid while it is kept.
            lastFolderText_ = text;
            lastFolderElements_ = *elements;
            lastFolders_ = *folders;
            return std::move(*folders);
        }
    }
    QJsonValue value;
    try {
        value = json::parse(text);
    } catch (const std::system_error&) {
        return UndecodableAnswer{};
    }
    return ReadHelperAnswer(value);
}

std::optional<QList<DirItem>> HelperAnswerReader::readFromLastFolders(
    const QList<QByteArrayView>& elements) {
    QList<DirItem> folders;
    folders.reserve(elements.size());
    for (qsizetype index = 0; index < elements.size(); ++index) {
        if (index < lastFolderElements_.size() && elements[index] == lastFolderElements_[index]) {
            folders.append(lastFolders_[index]);
            continue;
        }
        try {
            folders.append(DirItem::readJSON(json::parse(elements[index])));
        } catch (const std::system_error&) {
            return std::nullopt;  // not a folder list: let the full rule decide
        }
    }
    return folders;
}
