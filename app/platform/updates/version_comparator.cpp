#include "version_comparator.h"

#include <QChar>
#include <algorithm>
#include <vector>

namespace {

struct VersionRun {
    bool isNumber;
    QStringView text;  // a number without its leading zeros
};

bool isAsciiDigit(QChar c) {
    return c >= u'0' && c <= u'9';
}

std::vector<VersionRun> versionRuns(QStringView version) {
    std::vector<VersionRun> runs;
    qsizetype i = 0;
    while (i < version.size()) {
        const qsizetype start = i;
        if (isAsciiDigit(version[i])) {
            while (i < version.size() && isAsciiDigit(version[i])) {
                ++i;
            }
            qsizetype firstSignificant = start;
            while (firstSignificant < i && version[firstSignificant] == u'0') {
                ++firstSignificant;
            }
            runs.push_back({true, version.sliced(firstSignificant, i - firstSignificant)});
        } else if (version[i].isLetter()) {
            while (i < version.size() && version[i].isLetter()) {
                ++i;
            }
            runs.push_back({false, version.sliced(start, i - start)});
        } else {
            ++i;
        }
    }
    return runs;
}

// Numbers of any length, without converting them: fewer significant digits is smaller.
std::weak_ordering compareNumbers(QStringView left, QStringView right) {
    if (left.size() != right.size()) {
        return left.size() <=> right.size();
    }
    return left.compare(right) <=> 0;
}

std::weak_ordering compareRuns(const VersionRun& left, const VersionRun& right) {
    if (left.isNumber && right.isNumber) {
        return compareNumbers(left.text, right.text);
    }
    if (!left.isNumber && !right.isNumber) {
        return left.text.compare(right.text) <=> 0;
    }
    return left.isNumber ? std::weak_ordering::greater : std::weak_ordering::less;
}

// How the runs beyond the end of the other version rank the longer one.
std::weak_ordering rankOfTail(const std::vector<VersionRun>& runs, std::size_t from) {
    for (std::size_t i = from; i < runs.size(); ++i) {
        if (!runs[i].isNumber) {
            return std::weak_ordering::less;
        }
        if (!runs[i].text.isEmpty()) {
            return std::weak_ordering::greater;
        }
    }
    return std::weak_ordering::equivalent;
}

std::weak_ordering reversed(std::weak_ordering order) {
    return 0 <=> order;
}

}  // namespace

std::weak_ordering CompareVersions(QStringView left, QStringView right) {
    const std::vector<VersionRun> leftRuns = versionRuns(left);
    const std::vector<VersionRun> rightRuns = versionRuns(right);
    const std::size_t shared = std::min(leftRuns.size(), rightRuns.size());
    for (std::size_t i = 0; i < shared; ++i) {
        const std::weak_ordering order = compareRuns(leftRuns[i], rightRuns[i]);
        if (order != 0) {
            return order;
        }
    }
    if (leftRuns.size() > shared) {
        return rankOfTail(leftRuns, shared);
    }
    return reversed(rankOfTail(rightRuns, shared));
}
