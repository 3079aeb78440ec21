#pragma once

// One pass over a watched folder in a background thread, reporting a status text
// for each of six stages and then "Up to date". The stages do real work on the
// folder's files (listing, sizes, reading them through SHA-256, checking for
// changes), so a large folder walks slowly and a small one quickly; every stage
// stays on show for at least minimumStageTime so the user can see it.

#include <QString>
#include <chrono>
#include <functional>
#include <optional>
#include <stop_token>
#include <thread>

class FolderScan {
public:
    // Called from the scan's thread with the status text and the folder's error, if any.
    using Report = std::function<void(const QString& status, const std::optional<QString>& error)>;

    static constexpr std::chrono::milliseconds defaultMinimumStageTime{100};

    FolderScan(QString path, Report report,
               std::chrono::milliseconds minimumStageTime = defaultMinimumStageTime);
    // Stops the scan between two files or two chunks and waits for its thread.
    ~FolderScan() = default;

    FolderScan(const FolderScan&) = delete;
    FolderScan& operator=(const FolderScan&) = delete;

private:
    std::jthread thread_;
};
