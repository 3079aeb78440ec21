#pragma once

// The "Check for Updates…" command: a button enabled exactly while the updater can check.

#include <QObject>
#include <QPushButton>

class Updater;

// Mirrors the updater's canCheckForUpdates, starting from its value at creation.
class CheckForUpdatesViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool canCheckForUpdates READ canCheckForUpdates NOTIFY canCheckForUpdatesChanged)

public:
    explicit CheckForUpdatesViewModel(Updater& updater, QObject* parent = nullptr);

    bool canCheckForUpdates() const { return canCheckForUpdates_; }

signals:
    void canCheckForUpdatesChanged(bool canCheckForUpdates);

private:
    void setCanCheckForUpdates(bool canCheckForUpdates);

    bool canCheckForUpdates_ = false;
};

class CheckForUpdatesView : public QPushButton {
    Q_OBJECT

public:
    explicit CheckForUpdatesView(Updater& updater, QWidget* parent = nullptr);

private:
    CheckForUpdatesViewModel* checkForUpdatesViewModel_;
};
