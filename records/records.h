#pragma once

// The records exchanged with the helper, and the typed envelope of every request.

#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>

#include "json_coding.h"

// The typed envelope of every request; the key exchange seals this very record (its
// KeyExchangeTypeIDAndData), so both sides of the wire read it alike.
struct TypeIDAndData {
    QString type;
    QString id;
    QString data;

    void writeJSON(JSONWriter& writer) const;
    static TypeIDAndData readJSON(const QJsonValue& value);
    bool operator==(const TypeIDAndData&) const = default;
};

struct GroupItem {
    std::int64_t groupID = 0;
    QString name;
    QStringList walkPaths;

    std::int64_t id() const { return groupID; }
    void writeJSON(JSONWriter& writer) const;
    static GroupItem readJSON(const QJsonValue& value);
    bool operator==(const GroupItem&) const = default;
};

struct DirItem {
    std::optional<QString> error;
    bool enabled = false;
    std::int64_t groupID = 0;
    QString name;
    QString path;
    QString status;

    const QString& id() const { return path; }
    // A symbol name: "internaldrive" once the folder is settled, else "arrow.clockwise".
    QString icon() const;
    // 0 to 1, read from the leading "n of" step of the status.
    double progress() const;

    void writeJSON(JSONWriter& writer) const;
    static DirItem readJSON(const QJsonValue& value);
    bool operator==(const DirItem&) const = default;
};

// The bundle version ("CFBundleVersion") from the generated version information.
QString buildNumber();

// The text without the prefix when it starts with it, else the text unchanged.
QString deletingPrefix(const QString& text, const QString& prefix);
