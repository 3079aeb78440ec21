// The version comparator on three arbitrary versions, one a line: it must be an ordering the
// newest-item choice can rely on (reflexive, antisymmetric, transitive, with equal versions
// interchangeable), and keep the promises about what a version's tail does to it.

#include <QByteArray>
#include <QList>
#include <QString>
#include <compare>
#include <cstddef>
#include <cstdint>

#include "fuzz_check.h"
#include "version_comparator.h"

namespace {

std::weak_ordering reversed(std::weak_ordering order) {
    return 0 <=> order;
}

void checkPair(const QString& a, const QString& b) {
    FUZZ_CHECK(CompareVersions(a, b) == reversed(CompareVersions(b, a)));
}

void checkTriple(const QString& a, const QString& b, const QString& c) {
    const std::weak_ordering ab = CompareVersions(a, b);
    const std::weak_ordering bc = CompareVersions(b, c);
    const std::weak_ordering ac = CompareVersions(a, c);
    if (ab <= 0 && bc <= 0) {
        FUZZ_CHECK(ac <= 0);
        if (ab < 0 || bc < 0) {
            FUZZ_CHECK(ac < 0);
        }
    }
    if (ab == 0) {
        FUZZ_CHECK(ac == bc);
    }
}

// A separator ends the version's last run, so what follows is a run of its own.
void checkTails(const QString& a) {
    FUZZ_CHECK(CompareVersions(a, a) == 0);
    FUZZ_CHECK(CompareVersions(a + QStringLiteral(".0"), a) == 0);
    FUZZ_CHECK(CompareVersions(a + QStringLiteral(".0.0"), a + QStringLiteral("-0")) == 0);
    FUZZ_CHECK(CompareVersions(a + QStringLiteral(".1"), a) > 0);
    FUZZ_CHECK(CompareVersions(a + QStringLiteral(".0.1"), a + QStringLiteral(".0.0.9")) > 0);
    FUZZ_CHECK(CompareVersions(a + QStringLiteral(".10"), a + QStringLiteral(".9")) > 0);
    FUZZ_CHECK(CompareVersions(a + QStringLiteral(".007"), a + QStringLiteral(".7")) == 0);
    FUZZ_CHECK(CompareVersions(a + QStringLiteral(".b1"), a) < 0);
    FUZZ_CHECK(CompareVersions(a + QStringLiteral(".b1"), a + QStringLiteral(".1")) < 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    QList<QString> versions;
    for (const QByteArray& line :
         QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size))
             .split('\n')) {
        versions.append(QString::fromUtf8(line));
    }
    while (versions.size() < 3) {
        versions.append(QString());
    }
    const QString& a = versions[0];
    const QString& b = versions[1];
    const QString& c = versions[2];
    for (const QString& version : {a, b, c}) {
        checkTails(version);
    }
    checkPair(a, b);
    checkPair(b, c);
    checkPair(a, c);
    // Every order of the three, so that each may play each part.
    checkTriple(a, b, c);
    checkTriple(a, c, b);
    checkTriple(b, a, c);
    checkTriple(b, c, a);
    checkTriple(c, a, b);
    checkTriple(c, b, a);
    return 0;
}
