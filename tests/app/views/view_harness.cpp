#include "app/views/view_harness.h"

using namespace Qt::Literals::StringLiterals;

void FakePanelModel::setUserName(const QString& userName) {
    if (userName_ != userName) {
        userName_ = userName;
        emit userNameChanged();
    }
}

QString FakePanelModel::walkDirIcon(const QString& path) const {
    for (const DirItem& item : dirItems_) {
        if (item.path == path) {
            return item.icon();
        }
    }
    return u"internaldrive"_s;
}

void FakePanelModel::deleteItem(const QString& path) {
    deleted.append(path);
    for (GroupItem& group : groups_) {
        group.walkPaths.removeAll(path);
    }
    emit groupsChanged();
    dirItems_.removeIf([&](const DirItem& item) { return item.path == path; });
    emit dirItemsChanged();
}

void FakePanelModel::publish(const QString& type, const QString& id, const QString& data) {
    published.append(TypeIDAndData{type, id, data});
}

void FakePanelModel::setLoggedIn(bool isLoggedIn) {
    isLoggedIn_ = isLoggedIn;
    emit isLoggedInChanged();
}

void FakePanelModel::setDirItems(const QList<DirItem>& dirItems) {
    dirItems_ = dirItems;
    emit dirItemsChanged();
}

void FakePanelModel::setGroups(const QList<GroupItem>& groups) {
    groups_ = groups;
    emit groupsChanged();
}

void FakePanelModel::setLoading(bool isLoading) {
    isLoading_ = isLoading;
    emit isLoadingChanged();
}

void FakePanelModel::setHelperSilent(bool isHelperSilent) {
    isHelperSilent_ = isHelperSilent;
    emit isHelperSilentChanged();
}

void FakePanelModel::setMenuBarString(const QString& symbol) {
    menuBarString_ = symbol;
    emit menuBarStringChanged();
}

ViewHarness::ViewHarness()
    : environment{
          .ip = ip,
          .selectDir =
              [this](const std::optional<QString>& startPath, QWidget*) {
                  choosersRun.append({u"selectDir"_s, startPath});
                  return nextChosenFolder;
              },
          .selectPhotoLibrary =
              [this](const std::optional<QString>& startPath, QWidget*) {
                  choosersRun.append({u"selectPhotoLibrary"_s, startPath});
                  return nextChosenFolder;
              },
          .terminate = [this] { ++terminateCount; },
          .openURL = [this](const QUrl& url) { openedURLs.append(url); },
      } {}

DirItem Folder(const QString& name, const QString& path, const QString& status,
               std::int64_t groupID) {
    DirItem item;
    item.enabled = true;
    item.groupID = groupID;
    item.name = name;
    item.path = path;
    item.status = status;
    return item;
}
