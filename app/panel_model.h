#pragma once

// What the tray panel's views read of the model and may ask of it. The views hold
// this, never the items provider itself, so they can be shown and driven in tests
// without a helper behind them.

#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>

#include "records/records.h"

class PanelModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isLoggedIn READ isLoggedIn NOTIFY isLoggedInChanged)
    Q_PROPERTY(QString userName READ userName WRITE setUserName NOTIFY userNameChanged)
    Q_PROPERTY(QList<DirItem> dirItems READ dirItems NOTIFY dirItemsChanged)
    Q_PROPERTY(QList<GroupItem> groups READ groups NOTIFY groupsChanged)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    Q_PROPERTY(QUrl loginURL READ loginURL CONSTANT)
    Q_PROPERTY(QString menuBarString READ menuBarString NOTIFY menuBarStringChanged)
    Q_PROPERTY(bool isHelperSilent READ isHelperSilent NOTIFY isHelperSilentChanged)

public:
    using QObject::QObject;

    virtual bool isMacOS13() const = 0;
    virtual bool isLoggedIn() const = 0;
    virtual const QString& userName() const = 0;
    virtual void setUserName(const QString& userName) = 0;
    virtual const QList<DirItem>& dirItems() const = 0;
    virtual const QList<GroupItem>& groups() const = 0;
    virtual bool isLoading() const = 0;
    virtual const QUrl& loginURL() const = 0;
    // The symbol the tray shows: "arrow.clockwise" while busy, else "internaldrive".
    virtual const QString& menuBarString() const = 0;
    // No answer from the helper for several seconds; the views say so beside what they
    // show, and the next answer clears it.
    virtual bool isHelperSilent() const = 0;

    // The icon of the folder with that path; "internaldrive" for an unknown path.
    virtual QString walkDirIcon(const QString& path) const = 0;
    // Forgets the folder at once, before the helper confirms.
    virtual void deleteItem(const QString& path) = 0;
    // Sends one request to the helper; fire and forget.
    virtual void publish(const QString& type, const QString& id, const QString& data) = 0;

signals:
    void isLoggedInChanged();
    void userNameChanged();
    void dirItemsChanged();
    void groupsChanged();
    void isLoadingChanged();
    void menuBarStringChanged();
    void isHelperSilentChanged();
};
