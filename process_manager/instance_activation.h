#pragma once

// The running copy of the application comes forward the desktop's way: it owns the
// application's name on the session bus and answers the freedesktop Application
// interface there, whose Activate a second start calls before it exits. Nothing of
// it lives in a folder that other users share.

#include <QDBusContext>
#include <QObject>
#include <QString>
#include <chrono>

// The application's name on the session bus and the object path made from it.
QString ApplicationBusName();
QString ApplicationObjectPath();

// Takes the application's name for this copy; false without a session bus, or when
// another process holds the name.
bool ClaimApplicationBusName();

// Asks the copy that holds the name to come forward, and gives it up to patience to
// get ready to answer, since it takes the name a moment before it can. False when
// no copy answered.
bool ActivateRunningInstance(std::chrono::milliseconds patience);

// Answers Activate (and Open: the application opens no files) on this copy's
// session bus by asking for the panel.
class ApplicationActivation : public QObject, protected QDBusContext {
    Q_OBJECT

public:
    explicit ApplicationActivation(QObject* parent = nullptr);
    ~ApplicationActivation() override;

    // False when the object could not be put on the bus; the copy then simply cannot
    // be brought forward by a second start.
    bool isListening() const { return isListening_; }

    // The application has no actions; a caller naming one gets an error back.
    void refuseAction(const QString& name);

signals:
    void activateRequested();

private:
    bool isListening_ = false;
};
