#include "state_file.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

void StoredFolder::writeJSON(JSONWriter& writer) const {
    writer.beginObject();
    writer.member(QLatin1StringView("Path"), path);
    writer.member(QLatin1StringView("GroupID"), groupID);
    writer.member(QLatin1StringView("Enabled"), enabled);
    writer.endObject();
}

StoredFolder StoredFolder::readJSON(const QJsonValue& value) {
    const QJsonObject object = json::requireObject(value);
    return {json::requireString(object, QLatin1StringView("Path")),
            json::requireInt64(object, QLatin1StringView("GroupID")),
            json::requireBool(object, QLatin1StringView("Enabled"))};
}

void StoredState::writeJSON(JSONWriter& writer) const {
    writer.beginObject();
    writer.member(QLatin1StringView("LoggedIn"), loggedIn);
    writer.member(QLatin1StringView("UserName"), userName);
    writer.member(QLatin1StringView("Folders"), folders);
    writer.endObject();
}

StoredState StoredState::readJSON(const QJsonValue& value) {
    const QJsonObject object = json::requireObject(value);
    return {
        json::requireBool(object, QLatin1StringView("LoggedIn")),
        json::requireString(object, QLatin1StringView("UserName")),
        json::Reader<std::vector<StoredFolder>>::read(object.value(QLatin1StringView("Folders")))};
}

QString DefaultStateFilePath() {
    QString stateHome = qEnvironmentVariable("XDG_STATE_HOME");
    if (!QDir::isAbsolutePath(stateHome)) {
        stateHome = QDir::homePath() + QStringLiteral("/.local/state");
    }
    return stateHome + QStringLiteral("/brisvane-demo/state.json");
}

StoredState LoadStoredState(const QString& filePath) {
    QFile file(filePath);
    if (!file.exists()) {
        return {};
    }
    if (!file.open(QIODevice::ReadOnly)) {
        throw std::system_error(std::make_error_code(std::errc::permission_denied),
                                file.errorString().toStdString());
    }
    return JSONDecode<StoredState>(file.readAll());
}

void SaveStoredState(const QString& filePath, const StoredState& state) {
    if (!QDir().mkpath(QFileInfo(filePath).absolutePath())) {
        throw std::system_error(std::make_error_code(std::errc::permission_denied),
                                "cannot create the folder of " + filePath.toStdString());
    }
    QSaveFile file(filePath);
    if (!file.open(QIODevice::WriteOnly) || file.write(JSONEncode(state)) < 0 || !file.commit()) {
        throw std::system_error(std::make_error_code(std::errc::io_error),
                                file.errorString().toStdString());
    }
}
