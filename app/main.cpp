// brisvane: the tray companion of the sync service's helper.

#include <QApplication>

#include "app/brisvane_app.h"

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("brisvane"));
    QApplication::setOrganizationDomain(QStringLiteral("brisvane.app"));
    QGuiApplication::setDesktopFileName(QStringLiteral("app.brisvane.Brisvane"));
    // The panel comes and goes, and the update dialog has no parent: neither closing
    // may end the application, only "Quit" does.
    QApplication::setQuitOnLastWindowClosed(false);

    brisvaneApp app;
    return QApplication::exec();
}
