#pragma once

// What the simulated service remembers across restarts, and the file it lives in.

#include <QJsonValue>
#include <QString>
#include <cstdint>
#include <system_error>
#include <vector>

#include "records/json_coding.h"

struct StoredFolder {
    QString path;
    std::int64_t groupID = 0;
    bool enabled = true;

    void writeJSON(JSONWriter& writer) const;
    static StoredFolder readJSON(const QJsonValue& value);
    bool operator==(const StoredFolder&) const = default;
};

struct StoredState {
    bool loggedIn = false;
    QString userName;
    std::vector<StoredFolder> folders;

    void writeJSON(JSONWriter& writer) const;
    static StoredState readJSON(const QJsonValue& value);
    bool operator==(const StoredState&) const = default;
};

// $XDG_STATE_HOME/brisvane-demo/state.json, with ~/.local/state when the variable
// is unset or not absolute.
QString DefaultStateFilePath();

// A missing file is a fresh start (logged out, no folders); an unreadable one throws
// std::system_error.
StoredState LoadStoredState(const QString& filePath);

// Replaces the file as a whole (temporary file, then rename), creating its folder.
// Throws std::system_error with the errno-style reason.
void SaveStoredState(const QString& filePath, const StoredState& state);
