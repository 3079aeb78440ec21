// Answers as the model reads them, one reader for a run of them: the reader takes folders
// that repeat the previous report from that report, yet whatever it gives must be what the
// full, strict rule gives for the same text. The array splitter it relies on must agree with
// the JSON parser about every array the parser accepts.

#include <QByteArray>
#include <QByteArrayView>
#include <QJsonArray>
#include <QJsonValue>
#include <QList>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <system_error>
#include <variant>

#include "app/helper_answer.h"
#include "app/helper_answer_reader.h"
#include "fuzz_check.h"
#include "records/json_coding.h"

namespace {

std::optional<QJsonValue> parsed(QByteArrayView text) {
    try {
        return json::parse(text);
    } catch (const std::system_error& refusal) {
        FUZZ_CHECK(refusal.code() == JSONError::dataCorrupted);
        return std::nullopt;
    }
}

// The strict rule the reader's short cut must never depart from.
HelperAnswer fullRead(const QByteArray& text) {
    const std::optional<QJsonValue> value = parsed(text);
    return value ? ReadHelperAnswer(*value) : HelperAnswer(UndecodableAnswer{});
}

bool sameAnswer(const HelperAnswer& left, const HelperAnswer& right) {
    if (left.index() != right.index()) {
        return false;
    }
    return std::visit(
        [&right](const auto& value) {
            using T = std::decay_t<decltype(value)>;
            if constexpr (std::is_same_v<T, UndecodableAnswer>) {
                return true;
            } else {
                return value == std::get<T>(right);
            }
        },
        left);
}

// An element may be a scalar, which the parser takes only inside an array.
std::optional<QJsonValue> parsedElement(QByteArrayView element) {
    const std::optional<QJsonValue> wrapped = parsed(QByteArray('[' + element.toByteArray() + ']'));
    if (!wrapped || wrapped->toArray().size() != 1) {
        return std::nullopt;
    }
    return wrapped->toArray().at(0);
}

// The splitter leaves text nested deeper than its limit to the full parse; with no more
// brackets than that, no element can be so deep.
void checkSplit(const QByteArray& text) {
    const std::optional<QJsonValue> value = parsed(text);
    if (!value || !value->isArray() ||
        text.count('[') + text.count('{') > kSplitJSONArrayMaxDepth + 1) {
        return;
    }
    const QJsonArray array = value->toArray();
    const std::optional<QList<QByteArrayView>> elements = SplitJSONArray(text);
    FUZZ_CHECK(elements.has_value());
    FUZZ_CHECK(elements->size() == array.size());
    for (qsizetype index = 0; index < elements->size(); ++index) {
        FUZZ_CHECK(parsedElement(elements->at(index)) == array.at(index));
    }
}

}  // namespace

// The input is a run of answers separated by NUL bytes, which JSON text cannot hold.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    HelperAnswerReader reader;
    for (const QByteArray& text : input.split('\0')) {
        checkSplit(text);
        FUZZ_CHECK(sameAnswer(reader.read(text), fullRead(text)));
    }
    return 0;
}
