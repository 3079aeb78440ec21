// Version order and the addresses updates may come from.

#include <gtest/gtest.h>

#include <QUrl>
#include <compare>

#include "app/platform/update_address.h"
#include "app/platform/version_comparator.h"

namespace {

struct VersionCase {
    const char* older;
    const char* newer;  // equal to `older` when `same`
    bool same;
};

// clang-format off
const VersionCase kVersionCases[] = {
    {"1.0",        "1.0.0",        true},
    {"1.0",        "1.0.0.0",      true},
    {"1.01",       "1.1",          true},
    {"1.0-2",      "1.0.2",        true},   // any separator only separates
    {"1.0b1",      "1.0",          false},  // a word after a shared prefix is a pre-release
    {"1.0.0b1",    "1.0",          false},  // zeros before the word add nothing
    {"1.0",        "1.0.1",        false},
    {"1.0",        "1.0.0.0.1",    false},
    {"1.0b1",      "1.0.1",        false},  // a word loses to a number in the same place
    {"1.0b1",      "1.0b2",        false},
    {"1.0b2",      "1.0b10",       false},  // numbers by value, not by text
    {"1.9",        "1.10",         false},
    {"2",          "10",           false},
    {"1.0a",       "1.0b",         false},  // words lexically
    {"1.0b5",      "1.0rc1",       false},
    {"1.0-beta",   "1.0",          false},
    {"1.0 (42)",   "1.0 (43)",     false},
    {"",           "1",            false},
    {"99999999999999999999", "100000000000000000000", false},  // beyond 64 bits
};
// clang-format on

TEST(UpdaterVersionComparator, OrdersTheTableBothWays) {
    for (const VersionCase& c : kVersionCases) {
        const QString older = QString::fromLatin1(c.older);
        const QString newer = QString::fromLatin1(c.newer);
        SCOPED_TRACE(std::string(c.older) + " vs " + c.newer);
        if (c.same) {
            EXPECT_TRUE(CompareVersions(older, newer) == 0);
            EXPECT_TRUE(CompareVersions(newer, older) == 0);
        } else {
            EXPECT_TRUE(CompareVersions(older, newer) < 0);
            EXPECT_TRUE(CompareVersions(newer, older) > 0);
        }
        EXPECT_TRUE(CompareVersions(older, older) == 0);
    }
}

TEST(UpdaterAddress, OnlyHttpsOrLoopbackHttp) {
    // clang-format off
    const std::pair<const char*, bool> cases[] = {
        {"https://brisvane.example/appcast.xml", true},
        {"http://127.0.0.1:8080/appcast.xml",    true},
        {"http://[::1]:8080/appcast.xml",        true},
        {"http://localhost/appcast.xml",         true},
        {"http://brisvane.example/appcast.xml",  false},
        {"http://127.0.0.1.example/appcast.xml", false},
        {"ftp://brisvane.example/appcast.xml",   false},
        {"file:///tmp/appcast.xml",              false},
        {"https:///appcast.xml",                 false},
    };
    // clang-format on
    for (const auto& [address, allowed] : cases) {
        EXPECT_EQ(IsAllowedUpdateAddress(QUrl(QString::fromLatin1(address))), allowed) << address;
    }
}

}  // namespace
