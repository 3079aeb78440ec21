// The record decoders on arbitrary bytes, the way an answer's plaintext is tried as a
// folder list, a group list and a request; whatever decodes must survive being
// encoded and decoded again unchanged.

#include <QByteArray>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <system_error>
#include <vector>

#include "fuzz_check.h"
#include "records/json_coding.h"
#include "records/records.h"

namespace {

template <typename T>
std::optional<T> decoded(const QByteArray& text) {
    try {
        return JSONDecode<T>(text);
    } catch (const std::system_error& refusal) {
        FUZZ_CHECK(refusal.code().category() == JSONErrorCategory());
        return std::nullopt;
    }
}

// What decodes as T must survive being encoded and decoded again unchanged.
template <typename T>
std::optional<T> decodedAndRoundTripped(const QByteArray& text) {
    const std::optional<T> first = decoded<T>(text);
    const std::optional<T> again = first ? decoded<T>(JSONEncode(*first)) : std::nullopt;
    FUZZ_CHECK(again == first);
    FUZZ_CHECK(!again || JSONEncode(*again) == JSONEncode(*first));
    return first;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray text(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    for (const DirItem& item :
         decodedAndRoundTripped<std::vector<DirItem>>(text).value_or(std::vector<DirItem>())) {
        const double progress = item.progress();
        FUZZ_CHECK(progress >= 0.0 && progress <= 1.0);
        FUZZ_CHECK(item.icon() ==
                   QLatin1String(progress == 1.0 ? "internaldrive" : "arrow.clockwise"));
    }
    decodedAndRoundTripped<std::vector<GroupItem>>(text);
    decodedAndRoundTripped<TypeIDAndData>(text);
    return 0;
}
