#include "folder_scan.h"

#include <QCryptographicHash>
#include <QFile>
#include <QLocale>
#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <vector>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

// The status shown for a folder that is missing or cannot be read; the application
// counts it as settled, and the error says what is wrong.
constexpr const char* kFolderUnavailableStatus = "Server status check ...";
constexpr qint64 kReadChunkBytes = 64 * 1024;
// Status texts change at most this often, so a folder of many small files does not
// spend its time formatting texts nobody reads.
constexpr std::chrono::milliseconds kReportInterval{25};

struct ScannedFile {
    fs::path path;
    std::uintmax_t size = 0;
    fs::file_time_type modified;
    QByteArray digest;
};

class ScanRun {
public:
    ScanRun(QString root, FolderScan::Report report, std::chrono::milliseconds minimumStageTime,
            std::stop_token stop)
        : root_(std::move(root)),
          report_(std::move(report)),
          minimumStageTime_(minimumStageTime),
          stop_(std::move(stop)) {}

    void run() {
        const fs::path root(QFile::encodeName(root_).toStdString());
        std::error_code error;
        if (!fs::is_directory(root, error)) {
            report_(QString::fromLatin1(kFolderUnavailableStatus),
                    QStringLiteral("Folder not found: ") + root_);
            return;
        }
        if (!listFiles(root) || !countSizes() || !readFiles() || !checkForChanges() ||
            !rereadChangedFiles() || !buildIndex()) {
            return;
        }
        report_(QStringLiteral("Up to date"), std::nullopt);
    }

private:
    // Stage 1: every regular file below the root; symbolic links are not followed.
    bool listFiles(const fs::path& root) {
        beginStage();
        std::error_code error;
        fs::recursive_directory_iterator it(root, fs::directory_options::skip_permission_denied,
                                            error);
        if (error) {
            report_(QString::fromLatin1(kFolderUnavailableStatus),
                    QStringLiteral("Folder cannot be read: ") + root_);
            return false;
        }
        for (; it != fs::recursive_directory_iterator(); it.increment(error)) {
            if (error || stop_.stop_requested()) {
                break;
            }
            if (it->symlink_status(error).type() == fs::file_type::regular) {
                files_.push_back({it->path(), 0, {}, {}});
                reportThrottled([&] { return listingText(); });
            }
        }
        return endStage(listingText());
    }

    // Stage 2: sizes and modification times; files that vanished meanwhile are dropped.
    bool countSizes() {
        beginStage();
        std::size_t done = 0;
        std::erase_if(files_, [&](ScannedFile& file) {
            if (stop_.stop_requested()) {
                return false;
            }
            ++done;
            reportThrottled([&] { return countingText(done); });
            std::error_code error;
            file.size = fs::file_size(file.path, error);
            if (!error) {
                file.modified = fs::last_write_time(file.path, error);
            }
            if (!error) {
                totalBytes_ += file.size;
            }
            return static_cast<bool>(error);
        });
        return endStage(countingText(files_.size()));
    }

    // Stage 3: each file's content through SHA-256, a chunk at a time.
    bool readFiles() {
        beginStage();
        for (std::size_t i = 0; i < files_.size() && !stop_.stop_requested(); ++i) {
            reportThrottled([&] { return stageText(3, "Reading files", i + 1, files_.size()); });
            files_[i].digest = digestOf(files_[i].path);
        }
        return endStage(stageText(3, "Reading files", files_.size(), files_.size()));
    }

    // Stage 4: files whose size or time changed while they were being read.
    bool checkForChanges() {
        beginStage();
        for (std::size_t i = 0; i < files_.size() && !stop_.stop_requested(); ++i) {
            reportThrottled(
                [&] { return stageText(4, "Checking for changes", i + 1, files_.size()); });
            std::error_code error;
            const auto size = fs::file_size(files_[i].path, error);
            const auto modified = fs::last_write_time(files_[i].path, error);
            if (error || size != files_[i].size || modified != files_[i].modified) {
                changed_.push_back(i);
            }
        }
        return endStage(stageText(4, "Checking for changes", files_.size(), files_.size()));
    }

    // Stage 5: read the changed files again, so the index holds what is on disk now.
    bool rereadChangedFiles() {
        beginStage();
        for (std::size_t i = 0; i < changed_.size() && !stop_.stop_requested(); ++i) {
            reportThrottled(
                [&] { return stageText(5, "Reading changed files", i + 1, changed_.size()); });
            files_[changed_[i]].digest = digestOf(files_[changed_[i]].path);
        }
        return endStage(stageText(5, "Reading changed files", changed_.size(), changed_.size()));
    }

    // Stage 6: one digest over the sorted paths and their digests, the folder's index.
    bool buildIndex() {
        beginStage();
        std::sort(files_.begin(), files_.end(),
                  [](const ScannedFile& a, const ScannedFile& b) { return a.path < b.path; });
        QCryptographicHash index(QCryptographicHash::Sha256);
        for (const ScannedFile& file : files_) {
            index.addData(QByteArray::fromStdString(file.path.string()));
            index.addData(file.digest);
        }
        return endStage(QStringLiteral("6 of 6 Building the folder index (%1 files, %2)")
                            .arg(files_.size())
                            .arg(QLocale::c().formattedDataSize(static_cast<qint64>(totalBytes_))));
    }

    QByteArray digestOf(const fs::path& path) {
        QFile file(QFile::decodeName(QByteArray::fromStdString(path.string())));
        if (!file.open(QIODevice::ReadOnly)) {
            return {};
        }
        QCryptographicHash hash(QCryptographicHash::Sha256);
        while (!file.atEnd() && !stop_.stop_requested()) {
            const QByteArray chunk = file.read(kReadChunkBytes);
            if (chunk.isEmpty()) {
                break;
            }
            hash.addData(chunk);
        }
        return hash.result();
    }

    QString listingText() const {
        return QStringLiteral("1 of 6 Listing files (%1 found)").arg(files_.size());
    }
    QString countingText(std::size_t done) const {
        return stageText(2, "Counting sizes", done, files_.size());
    }
    static QString stageText(int stage, const char* what, std::size_t done, std::size_t total) {
        return QStringLiteral("%1 of 6 %2 (%3 of %4)")
            .arg(stage)
            .arg(QLatin1StringView(what))
            .arg(done)
            .arg(total);
    }

    void beginStage() {
        stageStart_ = Clock::now();
        lastReport_ = Clock::time_point{};
    }

    template <typename MakeText>
    void reportThrottled(MakeText makeText) {
        const auto now = Clock::now();
        if (now - lastReport_ >= kReportInterval) {
            lastReport_ = now;
            report_(makeText(), std::nullopt);
        }
    }

    // Shows the stage's final text and keeps it up for the rest of the minimum time.
    // False when the scan was stopped.
    bool endStage(const QString& finalText) {
        if (stop_.stop_requested()) {
            return false;
        }
        report_(finalText, std::nullopt);
        std::mutex mutex;
        std::condition_variable_any wakeUp;
        std::unique_lock lock(mutex);
        wakeUp.wait_until(lock, stop_, stageStart_ + minimumStageTime_, [] { return false; });
        return !stop_.stop_requested();
    }

    QString root_;
    FolderScan::Report report_;
    std::chrono::milliseconds minimumStageTime_;
    std::stop_token stop_;

    std::vector<ScannedFile> files_;
    std::vector<std::size_t> changed_;
    std::uintmax_t totalBytes_ = 0;
    Clock::time_point stageStart_;
    Clock::time_point lastReport_;
};

}  // namespace

FolderScan::FolderScan(QString path, Report report, std::chrono::milliseconds minimumStageTime)
    : thread_([path = std::move(path), report = std::move(report),
               minimumStageTime](std::stop_token stop) {
          ScanRun(path, report, minimumStageTime, std::move(stop)).run();
      }) {}
