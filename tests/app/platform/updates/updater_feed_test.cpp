// Reading the feed, the order of its versions and the addresses it may come from.

#include <gtest/gtest.h>

#include <QUrl>

#include "app/platform/updates/appcast.h"
#include "records/base64.h"
#include "update_address.h"
#include "updater_test_support.h"
#include "version_comparator.h"

using updater_testing::FailureOf;

namespace {

TEST(UpdaterVersionComparator, OrdersVersionsBothWays) {
    // clang-format off
    const std::tuple<const char*, const char*, bool> cases[] = {  // older, newer, same
        {"1.0",   "1.0.0",  true},
        {"1.0b1", "1.0",    false},  // a word after a shared prefix is a pre-release
        {"1.0",   "1.0.1",  false},
        {"1.0b1", "1.0.1",  false},  // a word loses to a number in the same place
        {"1.0b2", "1.0b10", false},  // numbers by value, not by text
        {"1.9",   "1.10",   false},
        {"99999999999999999999", "100000000000000000000", false},  // beyond 64 bits
    };
    // clang-format on
    for (const auto& [older, newer, same] : cases) {
        SCOPED_TRACE(std::string(older) + " vs " + newer);
        const QString left = QString::fromLatin1(older), right = QString::fromLatin1(newer);
        EXPECT_EQ(CompareVersions(left, right),
                  same ? std::weak_ordering::equivalent : std::weak_ordering::less);
        EXPECT_EQ(CompareVersions(right, left),
                  same ? std::weak_ordering::equivalent : std::weak_ordering::greater);
    }
}

TEST(UpdaterAddress, OnlyHttpsOrLoopbackHttp) {
    for (const auto& [address, allowed] : std::initializer_list<std::pair<const char*, bool>>{
             {"https://b.example/appcast.xml", true},
             {"http://127.0.0.1:8080/appcast.xml", true},
             {"http://b.example/appcast.xml", false},
             {"http://127.0.0.1.example/appcast.xml", false}}) {
        EXPECT_EQ(IsAllowedUpdateAddress(QUrl(QString::fromLatin1(address))), allowed) << address;
    }
}

QByteArray feedWith(const QByteArray& items) {
    return "<rss version=\"2.0\" xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/"
           "sparkle\"><channel>" +
           items + "</channel></rss>";
}

TEST(UpdaterAppcast, ReadsTheItemsThatOfferAnArchive) {
    const QByteArray signature(64, '\x5a');
    const std::vector<AppcastItem> items = ParseAppcast(feedWith(
        "<item><title>News</title></item><item><title>1.6</title><sparkle:version>6</"
        "sparkle:version><enclosure url=\"https://b.example/u.tar.gz\" length=\"1234\" "
        "sparkle:edSignature=\"" +
        Base64Encode(signature).toLatin1() + "\" sparkle:shortVersionString=\"1.6\"/></item>"));
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].title, u"1.6");
    EXPECT_EQ(items[0].version, u"6");
    EXPECT_EQ(items[0].shortVersionString, u"1.6");
    EXPECT_EQ(items[0].url, QUrl(QStringLiteral("https://b.example/u.tar.gz")));
    EXPECT_EQ(items[0].length, 1234);
    EXPECT_EQ(items[0].edSignature, signature);
}

TEST(UpdaterAppcast, MalformedFeedsAreRefused) {
    const QByteArray item = "<item><sparkle:version>6</sparkle:version><enclosure ";
    for (const QByteArray& feed : {
             QByteArray("<html><body>Not found</body></html>"),
             feedWith("<item><sparkle:version>6</sparkle:version>"),  // unclosed
             feedWith(item + "url=\"updates/u.tar.gz\"/></item>"),    // relative address
             feedWith(item + "url=\"https://b.example/u\" length=\"12a\"/></item>"),
             feedWith(item +
                      "url=\"https://b.example/u\" sparkle:edSignature=\"WlpaWg==\"/></item>"),
         }) {
        EXPECT_EQ(FailureOf([&] { ParseAppcast(feed); }), UpdaterError::malformedFeed)
            << feed.toStdString();
    }
}

}  // namespace
