#pragma once

// What the updater tests build for themselves: a signing key, tar archives, a feed, a local
// server that hands them out, and a user driver that records what it is asked to show.

#include <httplib.h>
#include <openssl/evp.h>

#include <QByteArray>
#include <QStringList>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <ostream>
#include <thread>

#include "app/platform/updates/update_user_driver.h"
#include "app/platform/updates/updater_error.h"

inline void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}

namespace updater_testing {

class Ed25519TestKey {
public:
    QByteArray publicKey() const;
    QByteArray sign(const QByteArray& message) const;

private:
    std::shared_ptr<EVP_PKEY> key_{EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"), EVP_PKEY_free};
};

struct ArchiveEntry {
    enum Type { file, folder, symlink };
    std::string name;
    Type type = file;
    std::string contents;  // a file's bytes, or a link's target
};
// A gzip-compressed tar archive with the entries, in order.
QByteArray TarGz(const std::vector<ArchiveEntry>& entries);
// A whole installation: the marker, bin/brisvane holding text, and the resources folder.
std::vector<ArchiveEntry> InstallationEntries(const std::string& text);
// The same installation written to a folder.
void MakeInstallation(const QString& folder, const QByteArray& text);

struct FeedItem {
    QString version;  // shown as "1.<version>"
    QString url;
    qint64 length;
    QByteArray signature;
};
QByteArray Appcast(const std::vector<FeedItem>& items);

// The error the step throws; a test failure when it throws none.
UpdaterError FailureOf(const std::function<void()>& step);

// Serves /appcast.xml and /update.tar.gz on 127.0.0.1; holding the feed back keeps a session
// under way.
class UpdateServer {
public:
    UpdateServer();
    ~UpdateServer();
    QString url(const char* path) const;
    void publish(const QByteArray& feed, const QByteArray& archive = {});
    void holdFeed(bool held);
    int feedRequests() const { return feedRequests_; }

private:
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
    std::mutex lock_;
    std::condition_variable released_;
    bool held_ = false;
    std::string feed_, archive_;
    std::atomic<int> feedRequests_ = 0;
};

// Records each step as a line ("checking", "found 1.6", "progress" for each part received,
// "verifying", "installed 1.6", "error <sentence>", "up to date") and answers offers with
// `choice`.
class RecordingUserDriver : public UpdateUserDriver {
public:
    explicit RecordingUserDriver(QStringList& steps, UpdateChoice choice = UpdateChoice::later)
        : steps_(steps), choice_(choice) {}

    void showChecking() override { steps_ << QStringLiteral("checking"); }
    void showUpToDate(const QString&) override { steps_ << QStringLiteral("up to date"); }
    void showUpdateFound(const UpdateOffer& offer,
                         std::function<void(UpdateChoice)> answer) override;
    void showDownloadProgress(qint64, qint64) override { steps_ << QStringLiteral("progress"); }
    void showVerifying() override { steps_ << QStringLiteral("verifying"); }
    void showInstalled(const QString& version) override { steps_ << "installed " + version; }
    void showError(const QString& message, const QString&, const QUrl&) override {
        steps_ << "error " + message;
    }

private:
    QStringList& steps_;
    UpdateChoice choice_;
};

QByteArray ReadFile(const QString& path);
void WriteFile(const QString& path, const QByteArray& contents);

}  // namespace updater_testing
