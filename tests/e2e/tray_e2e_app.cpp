// The application as a person starts it, except that its folder choosers answer by
// themselves with the folder given as --pick=<folder> (none: as if cancelled), so
// the tray test can add a folder without driving a file dialog.

#include <QApplication>
#include <QDir>
#include <QStringList>
#include <optional>

#include "app/brisvane_app.h"

namespace {

std::optional<QString> pickedFolder(const QStringList& arguments) {
    const QString option = QStringLiteral("--pick=");
    for (const QString& argument : arguments) {
        if (argument.startsWith(option) && argument.size() > option.size()) {
            return QDir(argument.mid(option.size())).absolutePath();
        }
    }
    return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    brisvaneApp::prepareApplicationObject();

    const std::optional<QString> folder = pickedFolder(QApplication::arguments());
    const FolderPicker picker = [folder](const std::optional<QString>&,
                                         QWidget*) -> std::optional<QUrl> {
        if (!folder) {
            return std::nullopt;
        }
        return QUrl::fromLocalFile(*folder);
    };
    brisvaneApp app({.model = {}, .adjustEnvironment = [&picker](ViewEnvironment& environment) {
                         environment.selectDir = picker;
                         environment.selectPhotoLibrary = picker;
                     }});
    return QApplication::exec();
}
