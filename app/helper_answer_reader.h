#pragma once

// Reads answers from their JSON text. A large library is reported ten times a
// second, mostly as it was: each folder whose JSON text is byte for byte what
// the previous report held at the same place is taken from that report, already
// read, and only the folders that changed are parsed.

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <mutex>
#include <optional>

#include "helper_answer.h"

// The elements of a top-level JSON array, each without its surrounding blanks;
// nothing when the text is not an array or its separators are malformed. Only
// the array's own structure is checked here: each element is checked when it is
// parsed.
//
// Nothing either when an element nests deeper than kSplitJSONArrayMaxDepth: parsed
// alone, an element is one level shallower than inside its array, so near the
// parser's nesting limit it could pass where the whole text fails. Folders are
// flat; such text is left to the full parse.
inline constexpr int kSplitJSONArrayMaxDepth = 64;
std::optional<QList<QByteArrayView>> SplitJSONArray(QByteArrayView text);

class HelperAnswerReader {
public:
    HelperAnswer read(const QByteArray& text);

private:
    std::optional<QList<DirItem>> readFromLastFolders(const QList<QByteArrayView>& elements);

    std::mutex lock_;            // answers to concurrent requests may be read at once
    QByteArray lastFolderText_;  // owns the bytes that lastFolderElements_ view
    QList<QByteArrayView> lastFolderElements_;
    QList<DirItem> lastFolders_;
};
