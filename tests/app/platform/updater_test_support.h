#pragma once

// What the updater tests build for themselves: a signing key, tar archives, a feed, a local
// server that hands them out, and a user driver that records what it is asked to show.

#include <httplib.h>

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "app/platform/update_user_driver.h"

// Readable test failures for texts.
inline void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}

namespace updater_testing {

class Ed25519TestKey {
public:
    Ed25519TestKey();
    ~Ed25519TestKey();
    Ed25519TestKey(const Ed25519TestKey&) = delete;
    Ed25519TestKey& operator=(const Ed25519TestKey&) = delete;

    QByteArray publicKey() const;
    QByteArray sign(const QByteArray& message) const;

private:
    struct evp_pkey_st* key_;
};

struct ArchiveEntry {
    enum Type { file, folder, symlink, hardlink };
    std::string name;
    Type type = file;
    std::string contents;  // a file's bytes, or a link's target
};

// A gzip-compressed tar archive with the entries, in order.
QByteArray TarGz(const std::vector<ArchiveEntry>& entries);
// A whole installation as an update carries it: the marker, bin/brisvane holding text, and
// the resources folder.
std::vector<ArchiveEntry> InstallationEntries(const std::string& text);

struct FeedItem {
    QString version;
    QString shortVersion;
    QString url;
    qint64 length = -1;
    QByteArray signature;
};
QByteArray Appcast(const std::vector<FeedItem>& items);

// Serves /appcast.xml and /update.tar.gz on 127.0.0.1; the feed can be held back until
// released, to keep a session under way.
class UpdateServer {
public:
    UpdateServer();
    ~UpdateServer();

    QString url(const char* path) const;
    void setFeed(QByteArray feed);
    void setArchive(QByteArray archive);
    void holdFeed();
    void releaseFeed();
    int feedRequests() const { return feedRequests_; }
    int archiveRequests() const { return archiveRequests_; }

private:
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
    std::mutex lock_;
    std::condition_variable released_;
    bool held_ = false;
    std::string feed_;
    std::string archive_;
    std::atomic<int> feedRequests_ = 0;
    std::atomic<int> archiveRequests_ = 0;
};

// Records each step as a line ("checking", "found 1.6", "progress", "verifying",
// "installed 1.6", "error <sentence>", "up to date") and answers offers with `choice`.
class RecordingUserDriver : public UpdateUserDriver {
public:
    explicit RecordingUserDriver(QStringList& steps, UpdateChoice choice = UpdateChoice::later)
        : steps_(steps), choice_(choice) {}

    void showChecking() override { steps_ << QStringLiteral("checking"); }
    void showUpToDate(const QString&) override { steps_ << QStringLiteral("up to date"); }
    void showUpdateFound(const UpdateOffer& offer,
                         std::function<void(UpdateChoice)> answer) override;
    void showDownloadProgress(qint64, qint64) override;
    void showVerifying() override { steps_ << QStringLiteral("verifying"); }
    void showInstalled(const QString& version) override {
        steps_ << QStringLiteral("installed ") + version;
    }
    void showError(const QString& message, const QString&, const QUrl&) override {
        steps_ << QStringLiteral("error ") + message;
    }

    UpdateOffer lastOffer;

private:
    QStringList& steps_;
    UpdateChoice choice_;
};

// Files created in a folder (not below it) while the watch is kept.
class CreationWatch {
public:
    explicit CreationWatch(const QString& folder);
    ~CreationWatch();
    QStringList created() const;

private:
    int descriptor_;
};

QByteArray ReadFile(const QString& path);
void WriteFile(const QString& path, const QByteArray& contents);

}  // namespace updater_testing
