// Reading the feed: both places the versions may stand, namespaces, faults, and the choice of
// the newest item.

#include <gtest/gtest.h>

#include "app/platform/appcast.h"
#include "app/platform/updater_error.h"
#include "key_exchange/base64.h"

namespace {

const QByteArray kSignature(64, '\x5a');

QByteArray Feed(const QByteArray& items, const QByteArray& prefix = "sparkle") {
    return "<?xml version=\"1.0\"?>\n<rss version=\"2.0\" xmlns:" + prefix +
           "=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>"
           "<title>brisvane</title>" +
           items + "</channel></rss>";
}

QByteArray SignatureText() {
    return Base64Encode(kSignature).toLatin1();
}

UpdaterError ParseError(const QByteArray& feed) {
    try {
        ParseAppcast(feed);
    } catch (const UpdaterFailure& failure) {
        EXPECT_TRUE(failure.detail().startsWith(u"line ")) << failure.detail().toStdString();
        return failure.error();
    }
    ADD_FAILURE() << "accepted: " << feed.toStdString();
    return UpdaterError::installFailed;
}

TEST(UpdaterAppcast, VersionsAsElementsOrEnclosureAttributesReadAlike) {
    const QByteArray asElements =
        "<item><title>1.6</title><sparkle:version>6</sparkle:version>"
        "<sparkle:shortVersionString>1.6</sparkle:shortVersionString>"
        "<enclosure url=\"https://brisvane.example/u.tar.gz\" length=\"1234\" "
        "sparkle:edSignature=\"" +
        SignatureText() + "\"/></item>";
    const QByteArray asAttributes =
        "<item><title>1.6</title><enclosure url=\"https://brisvane.example/u.tar.gz\" "
        "length=\"1234\" sparkle:version=\"6\" sparkle:shortVersionString=\"1.6\" "
        "sparkle:edSignature=\"" +
        SignatureText() + "\"/></item>";
    // Only the namespace counts, not the prefix the publisher chose for it.
    QByteArray otherPrefix = asElements;
    otherPrefix.replace("sparkle:", "s:");
    for (const QByteArray& feed : {Feed(asElements), Feed(asAttributes), Feed(otherPrefix, "s")}) {
        const std::vector<AppcastItem> items = ParseAppcast(feed);
        ASSERT_EQ(items.size(), 1u) << feed.toStdString();
        EXPECT_EQ(items[0].title, u"1.6");
        EXPECT_EQ(items[0].version, u"6");
        EXPECT_EQ(items[0].shortVersionString, u"1.6");
        EXPECT_EQ(items[0].url, QUrl(QStringLiteral("https://brisvane.example/u.tar.gz")));
        EXPECT_EQ(items[0].length, 1234);
        EXPECT_EQ(items[0].edSignature, kSignature);
    }
}

TEST(UpdaterAppcast, OptionalPartsAndItemsWithoutArchive) {
    const std::vector<AppcastItem> items =
        ParseAppcast(Feed("<item><title>News</title><description>no archive</description></item>"
                          "<item><sparkle:version>7</sparkle:version>"
                          "<sparkle:minimumSystemVersion>13.0</sparkle:minimumSystemVersion>"
                          "<enclosure url=\"https://brisvane.example/7.tar.gz\"/></item>"));
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].shortVersionString, u"7");
    EXPECT_EQ(items[0].length, -1);
    EXPECT_TRUE(items[0].edSignature.isEmpty());
}

TEST(UpdaterAppcast, MalformedFeedsAreRefusedWithTheirLine) {
    const QByteArray goodEnclosureStart = "<item><sparkle:version>6</sparkle:version><enclosure ";
    // clang-format off
    const QByteArray cases[] = {
        "",
        "not xml at all",
        "<html><body>Not found</body></html>",
        "<rss version=\"2.0\"></rss>",
        Feed("<item><sparkle:version>6</sparkle:version>"),  // unclosed
        Feed(goodEnclosureStart + "length=\"1\"/></item>"),
        Feed(goodEnclosureStart + "url=\"updates/u.tar.gz\"/></item>"),
        Feed(goodEnclosureStart + "url=\"https://b.example/u\" length=\"-1\"/></item>"),
        Feed(goodEnclosureStart + "url=\"https://b.example/u\" length=\" 12\"/></item>"),
        Feed(goodEnclosureStart + "url=\"https://b.example/u\" length=\"12a\"/></item>"),
        Feed(goodEnclosureStart + "url=\"https://b.example/u\" sparkle:edSignature=\"WlpaWg\"/></item>"),
        Feed(goodEnclosureStart + "url=\"https://b.example/u\" sparkle:edSignature=\"WlpaWg==\"/></item>"),
        Feed("<item><version>6</version><enclosure url=\"https://b.example/u\"/></item>"),
    };
    // clang-format on
    for (const QByteArray& feed : cases) {
        EXPECT_EQ(ParseError(feed), UpdaterError::malformedFeed) << feed.toStdString();
    }
}

TEST(UpdaterAppcast, NewestItemAboveTheRunningVersion) {
    std::vector<AppcastItem> items;
    for (const char* version : {"3", "10", "9", "11b1", "2"}) {
        AppcastItem item;
        item.version = QString::fromLatin1(version);
        items.push_back(item);
    }
    // clang-format off
    const std::pair<const char*, const char*> cases[] = {
        {"1",   "11b1"},
        {"10",  "11b1"},
        {"11",  nullptr},
        {"11b1", nullptr},
        {"12",  nullptr},
    };
    // clang-format on
    for (const auto& [current, expected] : cases) {
        const std::optional<AppcastItem> newest =
            NewestAppcastItem(items, QString::fromLatin1(current));
        ASSERT_EQ(newest.has_value(), expected != nullptr) << current;
        if (expected) {
            EXPECT_EQ(newest->version, QString::fromLatin1(expected)) << current;
        }
    }
    EXPECT_FALSE(NewestAppcastItem({}, u"1"));
}

}  // namespace
