#include "updater_test_support.h"

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "records/base64.h"
#include "update_installer.h"

namespace updater_testing {

namespace {

// The updater's preferences live in the configuration folder: keep the user's out of reach.
[[maybe_unused]] const bool kConfigurationHomeSet = [] {
    static QTemporaryDir folder;
    return qputenv("XDG_CONFIG_HOME", QFile::encodeName(folder.path()));
}();

la_ssize_t appendToArray(archive*, void* target, const void* bytes, size_t length) {
    static_cast<QByteArray*>(target)->append(static_cast<const char*>(bytes),
                                             static_cast<qsizetype>(length));
    return static_cast<la_ssize_t>(length);
}

}  // namespace

QByteArray Ed25519TestKey::publicKey() const {
    QByteArray raw(32, '\0');
    size_t length = 32;
    EVP_PKEY_get_raw_public_key(key_.get(), reinterpret_cast<unsigned char*>(raw.data()), &length);
    return raw;
}

QByteArray Ed25519TestKey::sign(const QByteArray& message) const {
    QByteArray signature(64, '\0');
    size_t length = 64;
    const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(EVP_MD_CTX_new(),
                                                                     EVP_MD_CTX_free);
    EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key_.get());
    EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &length,
                   reinterpret_cast<const unsigned char*>(message.constData()),
                   static_cast<size_t>(message.size()));
    return signature;
}

QByteArray TarGz(const std::vector<ArchiveEntry>& entries) {
    QByteArray bytes;
    archive* writer = archive_write_new();
    archive_write_add_filter_gzip(writer);
    archive_write_set_format_pax_restricted(writer);
    archive_write_open(writer, &bytes, nullptr, appendToArray, nullptr);
    for (const ArchiveEntry& item : entries) {
        archive_entry* entry = archive_entry_new();
        archive_entry_set_pathname(entry, item.name.c_str());
        archive_entry_set_perm(entry, 0755);
        archive_entry_set_filetype(entry, item.type == ArchiveEntry::file     ? AE_IFREG
                                          : item.type == ArchiveEntry::folder ? AE_IFDIR
                                                                              : AE_IFLNK);
        if (item.type == ArchiveEntry::symlink) {
            archive_entry_set_symlink(entry, item.contents.c_str());
        } else {
            archive_entry_set_size(entry, static_cast<la_int64_t>(item.contents.size()));
        }
        archive_write_header(writer, entry);
        archive_write_data(writer, item.contents.data(),
                           static_cast<size_t>(archive_entry_size(entry)));
        archive_entry_free(entry);
    }
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

void MakeInstallation(const QString& folder, const QByteArray& text) {
    QDir().mkpath(folder + QStringLiteral("/bin"));
    WriteFile(folder + u'/' + QLatin1String(kSelfContainedInstallMarker), {});
    WriteFile(folder + QStringLiteral("/bin/brisvane"), text);
}

QByteArray Appcast(const std::vector<FeedItem>& items) {
    QByteArray feed =
        "<?xml version=\"1.0\"?>\n<rss version=\"2.0\" xmlns:sparkle=\""
        "http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>\n";
    for (const FeedItem& item : items) {
        feed += "<item><sparkle:version>" + item.version.toUtf8() +
                "</sparkle:version>\n<sparkle:shortVersionString>1." + item.version.toUtf8() +
                "</sparkle:shortVersionString>\n<enclosure url=\"" + item.url.toUtf8() +
                "\" length=\"" + QByteArray::number(item.length) + "\" sparkle:edSignature=\"" +
                Base64Encode(item.signature).toLatin1() + "\"/></item>\n";
    }
    return feed + "</channel></rss>\n";
}

UpdaterError FailureOf(const std::function<void()>& step) {
    try {
        step();
    } catch (const UpdaterFailure& failure) {
        return failure.error();
    }
    ADD_FAILURE() << "the step went through";
    return UpdaterError::installFailed;
}

UpdateServer::UpdateServer() {
    server_.Get("/appcast.xml", [this](const httplib::Request&, httplib::Response& response) {
        ++feedRequests_;
        std::unique_lock lock(lock_);
        released_.wait_for(lock, std::chrono::seconds(20), [this] { return !held_; });
        response.set_content(feed_, "application/rss+xml");
    });
    server_.Get("/update.tar.gz", [this](const httplib::Request&, httplib::Response& response) {
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
    holdFeed(false);
    server_.stop();
    thread_.join();
}

QString UpdateServer::url(const char* path) const {
    return QStringLiteral("http://127.0.0.1:%1%2").arg(port_).arg(QLatin1String(path));
}

void UpdateServer::publish(const QByteArray& feed, const QByteArray& archive) {
    std::lock_guard lock(lock_);
    feed_ = feed.toStdString();
    archive_ = archive.toStdString();
}

void UpdateServer::holdFeed(bool held) {
    std::lock_guard lock(lock_);
    held_ = held;
    released_.notify_all();
}

void RecordingUserDriver::showUpdateFound(const UpdateOffer& offer,
                                          std::function<void(UpdateChoice)> answer) {
    steps_ << "found " + offer.shortVersion;
    // A window answers later, from the event loop, never inside the call.
    QMetaObject::invokeMethod(
        QCoreApplication::instance(), [answer, choice = choice_] { answer(choice); },
        Qt::QueuedConnection);
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
