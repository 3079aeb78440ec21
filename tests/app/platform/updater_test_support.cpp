#include "updater_test_support.h"

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <chrono>
#include <stdexcept>

#include "app/platform/update_installer.h"
#include "key_exchange/base64.h"

namespace updater_testing {

namespace {

// The updater keeps its preferences in the user's configuration folder; the tests keep theirs
// in a folder of their own, set before the first preference is read.
class TemporaryConfigurationHome : public ::testing::Environment {
public:
    void SetUp() override {
        folder_ = std::make_unique<QTemporaryDir>();
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(folder_->path()));
    }
    void TearDown() override { folder_.reset(); }

private:
    std::unique_ptr<QTemporaryDir> folder_;
};

[[maybe_unused]] const ::testing::Environment* const kConfigurationHome =
    ::testing::AddGlobalTestEnvironment(new TemporaryConfigurationHome);

}  // namespace

Ed25519TestKey::Ed25519TestKey() : key_(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519")) {
    if (!key_) {
        throw std::runtime_error("no Ed25519 key");
    }
}

Ed25519TestKey::~Ed25519TestKey() {
    EVP_PKEY_free(key_);
}

QByteArray Ed25519TestKey::publicKey() const {
    QByteArray raw(32, '\0');
    size_t length = static_cast<size_t>(raw.size());
    EVP_PKEY_get_raw_public_key(key_, reinterpret_cast<unsigned char*>(raw.data()), &length);
    return raw;
}

QByteArray Ed25519TestKey::sign(const QByteArray& message) const {
    QByteArray signature(64, '\0');
    size_t length = static_cast<size_t>(signature.size());
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_DigestSignInit(context, nullptr, nullptr, nullptr, key_);
    EVP_DigestSign(context, reinterpret_cast<unsigned char*>(signature.data()), &length,
                   reinterpret_cast<const unsigned char*>(message.constData()),
                   static_cast<size_t>(message.size()));
    EVP_MD_CTX_free(context);
    return signature;
}

namespace {

la_ssize_t AppendToArray(archive*, void* target, const void* bytes, size_t length) {
    static_cast<QByteArray*>(target)->append(static_cast<const char*>(bytes),
                                             static_cast<qsizetype>(length));
    return static_cast<la_ssize_t>(length);
}

}  // namespace

QByteArray TarGz(const std::vector<ArchiveEntry>& entries) {
    QByteArray bytes;
    archive* writer = archive_write_new();
    archive_write_add_filter_gzip(writer);
    archive_write_set_format_pax_restricted(writer);
    archive_write_open(writer, &bytes, nullptr, AppendToArray, nullptr);
    for (const ArchiveEntry& item : entries) {
        archive_entry* entry = archive_entry_new();
        archive_entry_set_pathname(entry, item.name.c_str());
        switch (item.type) {
            case ArchiveEntry::file:
                archive_entry_set_filetype(entry, AE_IFREG);
                archive_entry_set_perm(entry, 0755);
                archive_entry_set_size(entry, static_cast<la_int64_t>(item.contents.size()));
                break;
            case ArchiveEntry::folder:
                archive_entry_set_filetype(entry, AE_IFDIR);
                archive_entry_set_perm(entry, 0755);
                break;
            case ArchiveEntry::symlink:
                archive_entry_set_filetype(entry, AE_IFLNK);
                archive_entry_set_perm(entry, 0777);
                archive_entry_set_symlink(entry, item.contents.c_str());
                break;
            case ArchiveEntry::hardlink:
                archive_entry_set_filetype(entry, AE_IFREG);
                archive_entry_set_perm(entry, 0644);
                archive_entry_set_hardlink(entry, item.contents.c_str());
                break;
        }
        archive_write_header(writer, entry);
        if (item.type == ArchiveEntry::file) {
            archive_write_data(writer, item.contents.data(), item.contents.size());
        }
        archive_entry_free(entry);
    }
    archive_write_close(writer);
    archive_write_free(writer);
    return bytes;
}

std::vector<ArchiveEntry> InstallationEntries(const std::string& text) {
    return {{kSelfContainedInstallMarker, ArchiveEntry::file, ""},
            {"bin", ArchiveEntry::folder, ""},
            {"bin/brisvane", ArchiveEntry::file, text},
            {"libexec/brisvane", ArchiveEntry::folder, ""},
            {"libexec/brisvane/update-public-ed-key", ArchiveEntry::file, "key"}};
}

QByteArray Appcast(const std::vector<FeedItem>& items) {
    QByteArray feed =
        "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
        "<rss version=\"2.0\" xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/"
        "sparkle\">\n<channel>\n<title>brisvane</title>\n";
    for (const FeedItem& item : items) {
        feed += "<item><title>Version " + item.shortVersion.toUtf8() + "</title>\n";
        feed += "<sparkle:version>" + item.version.toUtf8() + "</sparkle:version>\n";
        feed += "<sparkle:shortVersionString>" + item.shortVersion.toUtf8() +
                "</sparkle:shortVersionString>\n";
        feed += "<enclosure url=\"" + item.url.toUtf8() + "\" type=\"application/octet-stream\"";
        if (item.length >= 0) {
            feed += " length=\"" + QByteArray::number(item.length) + "\"";
        }
        if (!item.signature.isEmpty()) {
            feed += " sparkle:edSignature=\"" + Base64Encode(item.signature).toLatin1() + "\"";
        }
        feed += "/></item>\n";
    }
    return feed + "</channel>\n</rss>\n";
}

UpdateServer::UpdateServer() {
    server_.Get("/appcast.xml", [this](const httplib::Request&, httplib::Response& response) {
        ++feedRequests_;
        std::unique_lock lock(lock_);
        released_.wait_for(lock, std::chrono::seconds(20), [this] { return !held_; });
        response.set_content(feed_, "application/rss+xml");
    });
    server_.Get("/update.tar.gz", [this](const httplib::Request&, httplib::Response& response) {
        ++archiveRequests_;
        std::lock_guard lock(lock_);
        response.set_content(archive_, "application/gzip");
    });
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    // stop() is ignored until the accept loop runs.
    while (!server_.is_running()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

UpdateServer::~UpdateServer() {
    releaseFeed();
    server_.stop();
    thread_.join();
}

QString UpdateServer::url(const char* path) const {
    return QStringLiteral("http://127.0.0.1:%1%2").arg(port_).arg(QLatin1String(path));
}

void UpdateServer::setFeed(QByteArray feed) {
    std::lock_guard lock(lock_);
    feed_ = feed.toStdString();
}

void UpdateServer::setArchive(QByteArray archive) {
    std::lock_guard lock(lock_);
    archive_ = archive.toStdString();
}

void UpdateServer::holdFeed() {
    std::lock_guard lock(lock_);
    held_ = true;
}

void UpdateServer::releaseFeed() {
    {
        std::lock_guard lock(lock_);
        held_ = false;
    }
    released_.notify_all();
}

void RecordingUserDriver::showUpdateFound(const UpdateOffer& offer,
                                          std::function<void(UpdateChoice)> answer) {
    steps_ << QStringLiteral("found ") + offer.shortVersion;
    lastOffer = offer;
    // A window answers later, from the event loop, never inside the call.
    QMetaObject::invokeMethod(
        QCoreApplication::instance(), [answer, choice = choice_] { answer(choice); },
        Qt::QueuedConnection);
}

void RecordingUserDriver::showDownloadProgress(qint64, qint64) {
    if (steps_.isEmpty() || steps_.last() != u"progress") {
        steps_ << QStringLiteral("progress");
    }
}

CreationWatch::CreationWatch(const QString& folder)
    : descriptor_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    inotify_add_watch(descriptor_, QFile::encodeName(folder).constData(), IN_CREATE | IN_MOVED_TO);
}

CreationWatch::~CreationWatch() {
    ::close(descriptor_);
}

QStringList CreationWatch::created() const {
    QStringList names;
    alignas(inotify_event) char buffer[4096];
    for (;;) {
        const ssize_t length = ::read(descriptor_, buffer, sizeof buffer);
        if (length <= 0) {
            return names;
        }
        for (ssize_t offset = 0; offset < length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
            if (event->len > 0) {
                names << QFile::decodeName(event->name);
            }
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
}

QByteArray ReadFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void WriteFile(const QString& path, const QByteArray& contents) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size()) {
        throw std::runtime_error("cannot write " + path.toStdString());
    }
}

}  // namespace updater_testing
