#pragma once

// A model the views can be shown against without a helper, and an environment that
// records what the views ask of the desktop.

#include <QList>
#include <QString>
#include <QUrl>
#include <optional>

#include "app/panel_model.h"
#include "app/views/view_environment.h"

class FakePanelModel : public PanelModel {
    Q_OBJECT

public:
    bool isMacOS13() const override { return isMacOS13_; }
    bool isLoggedIn() const override { return isLoggedIn_; }
    const QString& userName() const override { return userName_; }
    void setUserName(const QString& userName) override;
    const QList<DirItem>& dirItems() const override { return dirItems_; }
    const QList<GroupItem>& groups() const override { return groups_; }
    bool isLoading() const override { return isLoading_; }
    const QUrl& loginURL() const override { return loginURL_; }
    const QString& menuBarString() const override { return menuBarString_; }
    bool isHelperSilent() const override { return isHelperSilent_; }
    QString walkDirIcon(const QString& path) const override;
    // As the model does: the folder leaves the folder list and every group at once.
    void deleteItem(const QString& path) override;
    void publish(const QString& type, const QString& id, const QString& data) override;

    void setMacOS13(bool isMacOS13) { isMacOS13_ = isMacOS13; }
    void setLoggedIn(bool isLoggedIn);
    void setDirItems(const QList<DirItem>& dirItems);
    void setGroups(const QList<GroupItem>& groups);
    void setLoading(bool isLoading);
    void setLoginURL(const QUrl& loginURL) { loginURL_ = loginURL; }
    void setMenuBarString(const QString& symbol);
    void setHelperSilent(bool isHelperSilent);

    // Every request sent, oldest first.
    QList<TypeIDAndData> published;
    QStringList deleted;

private:
    bool isMacOS13_ = true;
    bool isLoggedIn_ = true;
    QString userName_;
    QList<DirItem> dirItems_;
    QList<GroupItem> groups_;
    bool isLoading_ = false;
    QUrl loginURL_{QStringLiteral("https://brisvane.example")};
    QString menuBarString_{QStringLiteral("arrow.clockwise")};
    bool isHelperSilent_ = false;
};

struct ViewHarness {
    ViewHarness();

    FakePanelModel ip;
    ViewEnvironment environment;

    int terminateCount = 0;
    QList<QUrl> openedURLs;
    // What the next chooser answers; nothing means the user cancels.
    std::optional<QUrl> nextChosenFolder;
    // The start path each chooser was run with, in order, with the chooser's name.
    QList<std::pair<QString, std::optional<QString>>> choosersRun;
};

DirItem Folder(const QString& name, const QString& path, const QString& status,
               std::int64_t groupID = 1001);
