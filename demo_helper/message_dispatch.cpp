#include "message_dispatch.h"

#include <QFileInfo>

#include "desktop_opener.h"
#include "simulated_service.h"

namespace {

TypeIDAndData envelope(const char* type) {
    return {QString::fromLatin1(type), {}, {}};
}

}  // namespace

MessageDispatcher::MessageDispatcher(SimulatedService& service, const DesktopOpener& opener,
                                     QString siteURL)
    : service_(service), opener_(opener), siteURL_(std::move(siteURL)) {
    while (siteURL_.endsWith(u'/')) {
        siteURL_.chop(1);
    }
}

Dispatched MessageDispatcher::dispatch(const TypeIDAndData& message) const {
    const QString& type = message.type;

    if (type == u"auth") {
        const bool loggedIn = service_.logIn(message.id, message.data);
        return {envelope(loggedIn ? "ping" : "auth request")};
    }
    if (type == u"logoutAndExit") {
        service_.logOut();
        return {envelope("ping"), true};
    }
    // A logged-out account sees nothing else; answering anything but "auth request"
    // here would tell the application that it is logged in.
    if (!service_.isLoggedIn()) {
        return {envelope("auth request")};
    }

    if (type == u"getGroups") {
        return {service_.groups()};
    }
    if (type == u"addWatchDir") {
        service_.watch(message.id, message.data);
        return {service_.groups()};
    }
    if (type == u"stopWatching") {
        service_.stopWatching(message.id);
        return {service_.groups()};
    }
    if (type == u"openDirPath") {
        openFolder(message.id);
        return {envelope("ping")};
    }
    if (type == u"openWeb") {
        openGroupPage(message.id);
        return {envelope("ping")};
    }
    if (type == u"ping") {
        return {currentState()};
    }
    return {envelope("ping")};
}

Answer MessageDispatcher::currentState() const {
    std::vector<DirItem> folders = service_.dirItems();
    if (folders.empty()) {
        return envelope("ping");
    }
    return folders;
}

void MessageDispatcher::openGroupPage(const QString& groupID) const {
    bool isNumber = false;
    const qlonglong id = groupID.toLongLong(&isNumber);
    if (isNumber) {
        opener_.open(siteURL_ + QStringLiteral("/groups/") + QString::number(id));
    }
}

void MessageDispatcher::openFolder(const QString& path) const {
    // Only folders: the opener would just as happily run a file.
    const QFileInfo folder(path);
    if (folder.isAbsolute() && folder.isDir()) {
        opener_.open(path);
    }
}
