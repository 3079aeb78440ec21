// The record decoders on arbitrary bytes, the way an answer's plaintext is tried as a
// folder list, a group list and a request; whatever decodes must survive being
// encoded and decoded again unchanged.

#include <QByteArray>
#include <cstddef>
#include <cstdint>
#include <system_error>
#include <vector>

#include "app/records.h"
#include "fuzz_check.h"
#include "key_exchange/json_coding.h"

namespace {

template <typename T>
bool decodes(const QByteArray& text, T* decoded) {
    try {
        *decoded = JSONDecode<T>(text);
        return true;
    } catch (const std::system_error& refusal) {
        FUZZ_CHECK(refusal.code().category() == JSONErrorCategory());
        return false;
    }
}

template <typename T>
void checkRoundTrip(const T& decoded) {
    const QByteArray encoded = JSONEncode(decoded);
    T again;
    FUZZ_CHECK(decodes(encoded, &again));
    FUZZ_CHECK(again == decoded);
    FUZZ_CHECK(JSONEncode(again) == encoded);
}

void checkDerived(const DirItem& item) {
    const double progress = item.progress();
    FUZZ_CHECK(progress >= 0.0 && progress <= 1.0);
    const QString icon = item.icon();
    FUZZ_CHECK(icon == QLatin1String("internaldrive") || icon == QLatin1String("arrow.clockwise"));
    FUZZ_CHECK((progress == 1.0) == (icon == QLatin1String("internaldrive")));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray text(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));

    std::vector<DirItem> dirItems;
    if (decodes(text, &dirItems)) {
        for (const DirItem& item : dirItems) {
            checkDerived(item);
        }
        checkRoundTrip(dirItems);
    }
    std::vector<GroupItem> groupItems;
    if (decodes(text, &groupItems)) {
        checkRoundTrip(groupItems);
    }
    TypeIDAndData request;
    if (decodes(text, &request)) {
        checkRoundTrip(request);
    }
    return 0;
}
