#include "update_installer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "update_archive.h"
#include "updater_error.h"

namespace {

bool isOwnWritableFolder(const QString& path) {
    const QByteArray name = QFile::encodeName(path);
    struct stat status {};
    return ::lstat(name.constData(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == ::geteuid() && ::access(name.constData(), W_OK) == 0;
}

bool isWritable(const QString& path) {
    return ::access(QFile::encodeName(path).constData(), W_OK) == 0;
}

[[noreturn]] void throwInstallFailed(const QString& step) {
    throw UpdaterFailure(
        UpdaterError::installFailed,
        QStringLiteral("%1: %2").arg(step, QString::fromLocal8Bit(std::strerror(errno))));
}

bool renamePath(const QString& from, const QString& to) {
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

// Removes the staging folder when the installation stops early, whatever the reason.
class StagingFolder {
public:
    explicit StagingFolder(QString path) : path_(std::move(path)) {}
    ~StagingFolder() {
        if (!path_.isEmpty()) {
            QDir(path_).removeRecursively();
        }
    }
    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;

    const QString& path() const { return path_; }
    void release() { path_.clear(); }

private:
    QString path_;
};

void checkComplete(const QString& stagingDir) {
    if (!QFileInfo(stagingDir + u'/' + QLatin1String(kSelfContainedInstallMarker)).isFile() ||
        !QFileInfo(stagingDir + QStringLiteral("/bin")).isDir()) {
        throw UpdaterFailure(UpdaterError::incompleteArchive,
                             QStringLiteral("the archive needs %1 and a bin folder at its top")
                                 .arg(QLatin1String(kSelfContainedInstallMarker)));
    }
}

void swapIn(const QString& stagingDir, const QString& installDir) {
    const QString previous = UpdatePreviousFolder(installDir);
    if (QFileInfo::exists(previous) && !QDir(previous).removeRecursively()) {
        throw UpdaterFailure(UpdaterError::installFailed,
                             QStringLiteral("cannot remove %1").arg(previous));
    }
    if (!renamePath(installDir, previous)) {
        throwInstallFailed(QStringLiteral("cannot move %1 aside").arg(installDir));
    }
    if (!renamePath(stagingDir, installDir)) {
        const int renameError = errno;
        renamePath(previous, installDir);
        errno = renameError;
        throwInstallFailed(QStringLiteral("cannot move the new version to %1").arg(installDir));
    }
}

}  // namespace

QString UpdateStagingFolder(const QString& installDir) {
    return installDir + QStringLiteral(".staging");
}

QString UpdatePreviousFolder(const QString& installDir) {
    return installDir + QStringLiteral(".previous");
}

bool CanSelfInstall(const QString& installDir) {
    const QString parent = QFileInfo(installDir).absolutePath();
    return isOwnWritableFolder(installDir) && isWritable(parent) &&
           QFileInfo(installDir + u'/' + QLatin1String(kSelfContainedInstallMarker)).isFile();
}

void InstallUpdateArchive(const QString& archivePath, const QString& installDir) {
    if (!CanSelfInstall(installDir)) {
        throw UpdaterFailure(UpdaterError::installFolderReadOnly, installDir);
    }
    const QString stagingPath = UpdateStagingFolder(installDir);
    // What a crash in an earlier installation left behind.
    QDir(stagingPath).removeRecursively();
    if (!QDir().mkdir(stagingPath)) {
        throwInstallFailed(QStringLiteral("cannot create %1").arg(stagingPath));
    }
    StagingFolder staging(stagingPath);
    UnpackUpdateArchive(archivePath, staging.path());
    checkComplete(staging.path());
    swapIn(staging.path(), installDir);
    staging.release();
}
