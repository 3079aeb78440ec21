#include "folder_pickers.h"

#include <QDir>
#include <QFileDialog>

namespace {

enum class Choice { folderToWatch, photoLibrary };

QString expandingTilde(const QString& path) {
    if (path == u"~") {
        return QDir::homePath();
    }
    if (path.startsWith(u"~/")) {
        return QDir::homePath() + path.mid(1);
    }
    return path;
}

std::optional<QUrl> runChooser(Choice choice, const std::optional<QString>& startPath,
                               QWidget* parent) {
    QFileDialog dialog(parent);
    // Started at login, the application's working folder says nothing about where
    // the user keeps things; home does.
    dialog.setDirectory(startPath ? expandingTilde(*startPath) : QDir::homePath());
    // A photo library is a folder on Linux, chosen whole; both choosers therefore pick one
    // folder and only differ in what they say and whether a new folder may be made.
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    if (choice == Choice::folderToWatch) {
        dialog.setWindowTitle(QFileDialog::tr("Choose a folder to watch"));
    } else {
        dialog.setWindowTitle(QFileDialog::tr("Choose a photo library"));
        dialog.setOption(QFileDialog::ReadOnly);
    }
    // The application lives in the tray and is rarely the active one, so the chooser
    // must come to the front by itself.
    dialog.setWindowFlag(Qt::WindowStaysOnTopHint);
    dialog.show();
    dialog.raise();
    dialog.activateWindow();
    if (dialog.exec() != QDialog::Accepted) {
        return std::nullopt;
    }
    const QList<QUrl> chosen = dialog.selectedUrls();
    if (chosen.isEmpty()) {
        return std::nullopt;
    }
    return chosen.first();
}

}  // namespace

std::optional<QUrl> selectDir(const std::optional<QString>& startPath, QWidget* parent) {
    return runChooser(Choice::folderToWatch, startPath, parent);
}

std::optional<QUrl> selectPhotoLibrary(const std::optional<QString>& startPath, QWidget* parent) {
    return runChooser(Choice::photoLibrary, startPath, parent);
}
