#include "view_environment.h"

#include <QCoreApplication>
#include <QDesktopServices>

#include "brisvane_version.h"
#include "folder_pickers.h"

ViewEnvironment ViewEnvironment::standard(PanelModel& ip) {
    return ViewEnvironment{
        .ip = ip,
        .selectDir = ::selectDir,
        .selectPhotoLibrary = ::selectPhotoLibrary,
        .terminate = [] { QCoreApplication::quit(); },
        .openURL = [](const QUrl& url) { QDesktopServices::openUrl(url); },
    };
}

QString ServiceHostName() {
    return QUrl(QStringLiteral(BRISVANE_SITE_URL)).host();
}
