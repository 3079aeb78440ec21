#pragma once

// The watched folders in the order the helper first reported them, indexed by
// path so that merging a full report stays linear in the number of folders.
// Each folder's JSON is kept beside it, so that the list's JSON, sent back with
// every ping, only encodes the folders that changed.

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>

#include "records/records.h"

class DirItemList {
public:
    const QList<DirItem>& items() const { return items_; }
    bool isEmpty() const { return items_.isEmpty(); }
    const DirItem* find(const QString& path) const;

    // Replaces each reported folder in place, or appends it when new; folders
    // missing from the report stay. True when anything changed.
    bool merge(const QList<DirItem>& reported);
    // True when a folder with that path was there.
    bool remove(const QString& path);
    // Some folder is still short of complete, judged by the first that is.
    bool isBusy() const;
    // The same text as JSONEncode(items()).
    QByteArray toJSON() const { return joinJSON(itemJSON_); }
    // Each folder's JSON text, in order.
    const QList<QByteArray>& itemJSON() const { return itemJSON_; }
    // The JSON array of these elements' texts.
    static QByteArray joinJSON(const QList<QByteArray>& elements);

private:
    QList<DirItem> items_;
    QList<QByteArray> itemJSON_;
    QHash<QString, qsizetype> indexByPath_;
};
