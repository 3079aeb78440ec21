#include "records.h"

#include <QJsonObject>
#include <utility>

#include "brisvane_version.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// The helper reports these two once a folder needs no more work.
bool isSettled(const QString& status) {
    return status == "Up to date"_L1 || status == "Server status check ..."_L1;
}

}  // namespace

void TypeIDAndData::writeJSON(JSONWriter& writer) const {
    writer.beginObject();
    writer.member("Type"_L1, type);
    writer.member("ID"_L1, id);
    writer.member("Data"_L1, data);
    writer.endObject();
}

TypeIDAndData TypeIDAndData::readJSON(const QJsonValue& value) {
    const QJsonObject object = json::requireObject(value);
    return {
        json::requireString(object, "Type"_L1),
        json::requireString(object, "ID"_L1),
        json::requireString(object, "Data"_L1),
    };
}

void GroupItem::writeJSON(JSONWriter& writer) const {
    writer.beginObject();
    writer.member("GroupID"_L1, groupID);
    writer.member("Name"_L1, name);
    writer.member("WalkPaths"_L1, walkPaths);
    writer.endObject();
}

GroupItem GroupItem::readJSON(const QJsonValue& value) {
    const QJsonObject object = json::requireObject(value);
    return {
        .groupID = json::requireInt64(object, "GroupID"_L1),
        .name = json::requireString(object, "Name"_L1),
        .walkPaths = json::requireStringArray(object, "WalkPaths"_L1),
    };
}

QString DirItem::icon() const {
    return isSettled(status) ? u"internaldrive"_s : u"arrow.clockwise"_s;
}

double DirItem::progress() const {
    if (isSettled(status)) {
        return 1.0;
    }
    // Only the six known steps count; "12 of 40" does not start with "1 of" and,
    // like any later or unknown step, reads as 0 so the folder still counts as busy.
    static constexpr std::pair<QLatin1StringView, double> steps[] = {
        {"1 of"_L1, 0.15}, {"2 of"_L1, 0.3},  {"3 of"_L1, 0.45},
        {"4 of"_L1, 0.6},  {"5 of"_L1, 0.75}, {"6 of"_L1, 0.9},
    };
    for (const auto& [prefix, share] : steps) {
        if (status.startsWith(prefix)) {
            return share;
        }
    }
    return 0.0;
}

void DirItem::writeJSON(JSONWriter& writer) const {
    writer.beginObject();
    writer.member("Path"_L1, path);
    if (error) {
        writer.member("Error"_L1, *error);
    }
    writer.member("Enabled"_L1, enabled);
    writer.member("GroupID"_L1, groupID);
    writer.member("Name"_L1, name);
    writer.member("Status"_L1, status);
    writer.endObject();
}

DirItem DirItem::readJSON(const QJsonValue& value) {
    const QJsonObject object = json::requireObject(value);
    return {
        .error = json::optionalString(object, "Error"_L1),
        .enabled = json::requireBool(object, "Enabled"_L1),
        .groupID = json::requireInt64(object, "GroupID"_L1),
        .name = json::requireString(object, "Name"_L1),
        .path = json::requireString(object, "Path"_L1),
        .status = json::requireString(object, "Status"_L1),
    };
}

QString buildNumber() {
    return QStringLiteral(BRISVANE_BUNDLE_VERSION);
}

QString deletingPrefix(const QString& text, const QString& prefix) {
    return text.startsWith(prefix) ? text.sliced(prefix.size()) : text;
}
