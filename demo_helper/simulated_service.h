#pragma once

// The service the demo helper pretends to be: an account, a few groups, and the
// watched folders with their scans. Thread-safe: request handlers and scan threads
// call in at once. Every operation holds the lock only to copy or change the state,
// never across a scan or a file write, so answers stay fast while folders are read.

#include <QString>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "folder_scan.h"
#include "records/records.h"
#include "state_file.h"

struct SimulatedGroup {
    std::int64_t groupID;
    const char* name;
};

// The account's groups; one identifier is above 2^53 so that it only survives a
// JSON round trip when read as an exact integer.
const std::vector<SimulatedGroup>& SimulatedGroups();

class SimulatedService {
public:
    // Reads the stored state (a file that cannot be read is reported on standard error
    // and treated as a fresh start) and starts scanning the stored folders.
    explicit SimulatedService(QString stateFilePath, std::chrono::milliseconds minimumStageTime =
                                                         FolderScan::defaultMinimumStageTime);
    // Stops every scan.
    ~SimulatedService();

    SimulatedService(const SimulatedService&) = delete;
    SimulatedService& operator=(const SimulatedService&) = delete;

    bool isLoggedIn() const;
    // Any non-empty user name and password log in; false leaves the state as it was.
    bool logIn(const QString& userName, const QString& password);
    void logOut();

    std::vector<GroupItem> groups() const;
    std::vector<DirItem> dirItems() const;

    // Starts watching an absolute path for the group of that name; false when the
    // group is unknown, the path is not absolute, or it is watched already.
    bool watch(const QString& groupName, const QString& path);
    // Forgets the folder (its files stay as they are); false when it was not watched.
    bool stopWatching(const QString& path);

private:
    struct Folder {
        StoredFolder stored;
        QString status;
        std::optional<QString> error;
        std::uint64_t scanID = 0;  // which scan may still report on this folder
        std::unique_ptr<FolderScan> scan;
    };

    std::vector<Folder>::iterator findLocked(const QString& path);
    // With lock_ held: starts the folder's scan; reports of any earlier one are ignored.
    void startScanLocked(Folder& folder);
    void updateStatus(const QString& path, std::uint64_t scanID, const QString& status,
                      const std::optional<QString>& error);
    StoredState storedStateLocked() const;
    // Writes the state as of `generation`, unless a newer one has been written already.
    void save(const StoredState& state, std::uint64_t generation);

    const QString stateFilePath_;
    const std::chrono::milliseconds minimumStageTime_;

    mutable std::mutex lock_;
    bool loggedIn_ = false;
    QString userName_;
    std::vector<Folder> folders_;  // in the order they were added
    std::uint64_t nextScanID_ = 1;
    std::uint64_t generation_ = 0;

    std::mutex saveLock_;
    std::uint64_t savedGeneration_ = 0;
};
