#include "simulated_service.h"

#include <QDir>
#include <QFileInfo>
#include <algorithm>

#include "diagnostics/diagnostics.h"

namespace {

// A photo library is watched through its "originals" folder; show the library's name.
QString displayName(const QString& path) {
    const QFileInfo folder(path);
    if (folder.fileName() == u"originals") {
        return QFileInfo(folder.path()).completeBaseName();
    }
    return folder.fileName();
}

void warn(const QString& what, const std::system_error& error) {
    Diagnostics::printErrorLine(QStringLiteral("brisvane demo helper: ") + what +
                                QStringLiteral(": ") + error.what());
}

}  // namespace

const std::vector<SimulatedGroup>& SimulatedGroups() {
    static const std::vector<SimulatedGroup> groups = {
        {1001, "Family"},
        {9007199254740993, "Work"},  // 2^53 + 1
        {4611686018427387917, "Photos"},
    };
    return groups;
}

SimulatedService::SimulatedService(QString stateFilePath,
                                   std::chrono::milliseconds minimumStageTime)
    : stateFilePath_(std::move(stateFilePath)), minimumStageTime_(minimumStageTime) {
    StoredState stored;
    try {
        stored = LoadStoredState(stateFilePath_);
    } catch (const std::system_error& error) {
        warn(QStringLiteral("starting afresh, cannot read ") + stateFilePath_, error);
    }
    std::lock_guard guard(lock_);
    loggedIn_ = stored.loggedIn;
    userName_ = stored.userName;
    for (const StoredFolder& storedFolder : stored.folders) {
        if (findLocked(storedFolder.path) != folders_.end()) {
            continue;
        }
        Folder& folder = folders_.emplace_back();
        folder.stored = storedFolder;
        startScanLocked(folder);
    }
}

SimulatedService::~SimulatedService() {
    std::vector<Folder> folders;
    {
        std::lock_guard guard(lock_);
        folders.swap(folders_);
    }
    // The scans end here, outside the lock their reports take.
}

bool SimulatedService::isLoggedIn() const {
    std::lock_guard guard(lock_);
    return loggedIn_;
}

bool SimulatedService::logIn(const QString& userName, const QString& password) {
    if (userName.trimmed().isEmpty() || password.isEmpty()) {
        return false;
    }
    StoredState state;
    std::uint64_t generation = 0;
    {
        std::lock_guard guard(lock_);
        loggedIn_ = true;
        userName_ = userName.trimmed();
        state = storedStateLocked();
        generation = ++generation_;
    }
    save(state, generation);
    return true;
}

void SimulatedService::logOut() {
    StoredState state;
    std::uint64_t generation = 0;
    {
        std::lock_guard guard(lock_);
        loggedIn_ = false;
        userName_.clear();
        state = storedStateLocked();
        generation = ++generation_;
    }
    save(state, generation);
}

std::vector<GroupItem> SimulatedService::groups() const {
    std::vector<GroupItem> groups;
    for (const SimulatedGroup& group : SimulatedGroups()) {
        groups.push_back({group.groupID, QString::fromUtf8(group.name), {}});
    }
    std::lock_guard guard(lock_);
    for (const Folder& folder : folders_) {
        for (GroupItem& group : groups) {
            if (group.groupID == folder.stored.groupID) {
                group.walkPaths.append(folder.stored.path);
            }
        }
    }
    return groups;
}

std::vector<DirItem> SimulatedService::dirItems() const {
    std::vector<DirItem> items;
    std::lock_guard guard(lock_);
    items.reserve(folders_.size());
    for (const Folder& folder : folders_) {
        items.push_back({folder.error, folder.stored.enabled, folder.stored.groupID,
                         displayName(folder.stored.path), folder.stored.path, folder.status});
    }
    return items;
}

bool SimulatedService::watch(const QString& groupName, const QString& path) {
    const auto& known = SimulatedGroups();
    const auto group = std::find_if(known.begin(), known.end(), [&](const SimulatedGroup& g) {
        return groupName == QLatin1StringView(g.name);
    });
    if (group == known.end() || !QDir::isAbsolutePath(path)) {
        return false;
    }
    const QString cleanPath = QDir::cleanPath(path);

    StoredState state;
    std::uint64_t generation = 0;
    {
        std::lock_guard guard(lock_);
        if (findLocked(cleanPath) != folders_.end()) {
            return false;
        }
        Folder& folder = folders_.emplace_back();
        folder.stored = {cleanPath, group->groupID, true};
        startScanLocked(folder);
        state = storedStateLocked();
        generation = ++generation_;
    }
    save(state, generation);
    return true;
}

bool SimulatedService::stopWatching(const QString& path) {
    std::unique_ptr<FolderScan> finishedScan;
    StoredState state;
    std::uint64_t generation = 0;
    {
        std::lock_guard guard(lock_);
        auto folder = findLocked(path);
        if (folder == folders_.end()) {
            folder = findLocked(QDir::cleanPath(path));
        }
        if (folder == folders_.end()) {
            return false;
        }
        finishedScan = std::move(folder->scan);
        folders_.erase(folder);
        state = storedStateLocked();
        generation = ++generation_;
    }
    finishedScan.reset();  // waits for the scan thread, with the lock free for its reports
    save(state, generation);
    return true;
}

std::vector<SimulatedService::Folder>::iterator SimulatedService::findLocked(const QString& path) {
    return std::find_if(folders_.begin(), folders_.end(),
                        [&](const Folder& folder) { return folder.stored.path == path; });
}

void SimulatedService::startScanLocked(Folder& folder) {
    folder.scanID = nextScanID_++;
    folder.status = QStringLiteral("1 of 6 Listing files (0 found)");
    folder.error.reset();
    folder.scan = std::make_unique<FolderScan>(
        folder.stored.path,
        [this, path = folder.stored.path, scanID = folder.scanID](
            const QString& status, const std::optional<QString>& error) {
            updateStatus(path, scanID, status, error);
        },
        minimumStageTime_);
}

void SimulatedService::updateStatus(const QString& path, std::uint64_t scanID,
                                    const QString& status, const std::optional<QString>& error) {
    std::lock_guard guard(lock_);
    const auto folder = findLocked(path);
    if (folder != folders_.end() && folder->scanID == scanID) {
        folder->status = status;
        folder->error = error;
    }
}

StoredState SimulatedService::storedStateLocked() const {
    StoredState state{loggedIn_, userName_, {}};
    for (const Folder& folder : folders_) {
        state.folders.push_back(folder.stored);
    }
    return state;
}

void SimulatedService::save(const StoredState& state, std::uint64_t generation) {
    std::lock_guard guard(saveLock_);
    if (generation <= savedGeneration_) {
        return;
    }
    try {
        SaveStoredState(stateFilePath_, state);
        savedGeneration_ = generation;
    } catch (const std::system_error& error) {
        warn(QStringLiteral("cannot save ") + stateFilePath_, error);
    }
}
