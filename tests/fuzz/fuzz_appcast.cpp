// The update feed as it comes from the network: parsed, then the newest item chosen. A feed
// is either refused as malformed, naming the line, or gives items that hold what the updater
// relies on; the item chosen is newer than the running version and than every other item.

#include <QByteArrayView>
#include <QString>
#include <QStringView>
#include <QUrl>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "app/platform/updates/appcast.h"
#include "app/platform/updates/updater_error.h"
#include "fuzz_check.h"
#include "version_comparator.h"

namespace {

void checkNewest(const std::vector<AppcastItem>& items, QStringView current) {
    const std::optional<AppcastItem> newest = NewestAppcastItem(items, current);
    if (!newest) {
        for (const AppcastItem& item : items) {
            FUZZ_CHECK(CompareVersions(item.version, current) <= 0);
        }
        return;
    }
    FUZZ_CHECK(CompareVersions(newest->version, current) > 0);
    bool seen = false;
    for (const AppcastItem& item : items) {
        const auto order = CompareVersions(item.version, newest->version);
        FUZZ_CHECK(order <= 0);
        // Of items with equal versions, the feed's first is offered.
        if (order == 0 && !seen) {
            seen = true;
            FUZZ_CHECK(item.url == newest->url && item.edSignature == newest->edSignature);
        }
    }
    FUZZ_CHECK(seen);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<AppcastItem> items;
    try {
        items = ParseAppcast(
            QByteArrayView(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)));
    } catch (const UpdaterFailure& failure) {
        FUZZ_CHECK(failure.error() == UpdaterError::malformedFeed);
        FUZZ_CHECK(failure.detail().startsWith(u"line "));
        return 0;
    }
    for (const AppcastItem& item : items) {
        FUZZ_CHECK(!item.version.isEmpty() && !item.shortVersionString.isEmpty());
        FUZZ_CHECK(item.url.isValid() && !item.url.isRelative());
        FUZZ_CHECK(item.length >= -1);
        FUZZ_CHECK(item.edSignature.isEmpty() || item.edSignature.size() == 64);
    }
    checkNewest(items, u"1.0");
    for (const AppcastItem& item : items) {
        checkNewest(items, item.version);
    }
    return 0;
}
