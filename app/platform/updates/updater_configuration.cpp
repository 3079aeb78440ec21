#include "updater_configuration.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <optional>

#include "brisvane_version.h"
#include "diagnostics/diagnostics.h"
#include "records/base64.h"
#include "update_signature.h"

namespace {

// No file is a build without a key; a file that does not hold one is a broken build.
QByteArray readPublicKey(const QString& resourcesDir) {
    QFile file(resourcesDir + u'/' + QLatin1String(kUpdatePublicKeyFileName));
    if (!file.exists()) {
        return {};
    }
    if (!file.open(QIODevice::ReadOnly)) {
        Diagnostics::stopWithLine(QStringLiteral("cannot read the update key %1: %2")
                                      .arg(file.fileName(), file.errorString()));
    }
    const QString text = QString::fromLatin1(file.readAll()).trimmed();
    const std::optional<QByteArray> key = Base64Decode(text);
    if (!key || key->size() != kEd25519PublicKeyLength) {
        Diagnostics::stopWithLine(
            QStringLiteral("the update key %1 is not the base64 text of an Ed25519 key")
                .arg(file.fileName()));
    }
    return *key;
}

}  // namespace

UpdaterConfiguration UpdaterConfiguration::builtIn() {
    const QString binDir = QCoreApplication::applicationDirPath();
    UpdaterConfiguration configuration;
    configuration.feedURL = QUrl(QStringLiteral(BRISVANE_UPDATE_FEED_URL), QUrl::StrictMode);
    if (!configuration.feedURL.isValid() || configuration.feedURL.isRelative()) {
        Diagnostics::stopWithLine(
            QStringLiteral("the built-in update feed address is not an address: %1")
                .arg(QStringLiteral(BRISVANE_UPDATE_FEED_URL)));
    }
    configuration.publicEdKey = readPublicKey(binDir + QStringLiteral("/../libexec/brisvane"));
    configuration.installDir = QDir::cleanPath(binDir + QStringLiteral("/.."));
    configuration.bundleVersion = QStringLiteral(BRISVANE_BUNDLE_VERSION);
    configuration.shortVersion = QStringLiteral(BRISVANE_SHORT_VERSION_STRING);
    configuration.downloadPage = QUrl(QStringLiteral(BRISVANE_SITE_URL "/download"));
    return configuration;
}
