// brisvane: the tray companion of the sync service's helper.

#include <QApplication>

#include "brisvane_app.h"

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    brisvaneApp::prepareApplicationObject();
    brisvaneApp app;
    return QApplication::exec();
}
