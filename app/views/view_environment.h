#pragma once

// What every view of the panel shares: the model, and the few things a view asks of
// the desktop. Tests replace the desktop's parts; the application uses the defaults.

#include <QString>
#include <QUrl>
#include <functional>
#include <optional>

class PanelModel;

class QWidget;

// Each runs a modal chooser over parent and gives the chosen location, or nothing
// when cancelled.
using FolderPicker =
    std::function<std::optional<QUrl>(const std::optional<QString>& startPath, QWidget* parent)>;

struct ViewEnvironment {
    PanelModel& ip;
    FolderPicker selectDir;
    FolderPicker selectPhotoLibrary;
    // Ends the application.
    std::function<void()> terminate;
    // Opens a web page in the desktop's browser.
    std::function<void(const QUrl&)> openURL;

    // The desktop's file chooser, QCoreApplication::quit and the default browser.
    static ViewEnvironment standard(PanelModel& ip);
};

// The service's host name, as the texts that name the service show it.
QString ServiceHostName();
