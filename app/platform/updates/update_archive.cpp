#include "update_archive.h"

#include <archive.h>
#include <archive_entry.h>

#include <QDir>
#include <QFile>
#include <QHash>
#include <QStringList>
#include <memory>
#include <optional>

#include "updater_error.h"

using namespace Qt::Literals::StringLiterals;

namespace {

struct ReadArchiveFree {
    void operator()(archive* reader) const { archive_read_free(reader); }
};
struct WriteArchiveFree {
    void operator()(archive* writer) const { archive_write_free(writer); }
};
using ArchiveReader = std::unique_ptr<archive, ReadArchiveFree>;
using ArchiveWriter = std::unique_ptr<archive, WriteArchiveFree>;

// libarchive's own checks, kept as a second line behind the name checks below; absolute
// names cannot be left to it because every entry is given the staging folder's absolute path.
constexpr int kExtractFlags = ARCHIVE_EXTRACT_TIME | ARCHIVE_EXTRACT_PERM |
                              ARCHIVE_EXTRACT_SECURE_NODOTDOT | ARCHIVE_EXTRACT_SECURE_SYMLINKS;

[[noreturn]] void throwArchive(UpdaterError error, archive* source) {
    const char* message = archive_error_string(source);
    throw UpdaterFailure(error, QString::fromLocal8Bit(message ? message : "unknown error"));
}

[[noreturn]] void throwUnsafe(const QString& name, const char* fault) {
    throw UpdaterFailure(UpdaterError::unsafeArchive,
                         QStringLiteral("%1: %2").arg(name, QLatin1String(fault)));
}

// The links unpacked so far, by where they stand, with their targets as written. A target
// is judged by where it leads on disk, which depends on every link placed before or after
// it: "sub/b -> a/.." stays inside by its text, but not once "sub/a -> .." stands beside it.
class StagingLinks {
public:
    // Where path leads from the folder base, following the links placed so far as the file
    // system would (the last component too when followLast); nothing when it leaves the
    // staging folder or goes round in circles.
    std::optional<QStringList> resolve(const QStringList& base, const QString& path,
                                       bool followLast) const {
        if (path.startsWith(u'/')) {
            return std::nullopt;
        }
        QStringList at = base;
        QStringList rest = path.split(u'/', Qt::SkipEmptyParts);
        int linksLeft = kMaxLinksFollowed;
        while (!rest.isEmpty()) {
            const QString component = rest.takeFirst();
            if (component == u".") {
                continue;
            }
            if (component == u"..") {
                if (at.isEmpty()) {
                    return std::nullopt;
                }
                at.removeLast();
                continue;
            }
            at.append(component);
            const auto link = targets_.constFind(at.join(u'/'));
            if (link == targets_.cend() || (rest.isEmpty() && !followLast)) {
                continue;
            }
            if (--linksLeft < 0 || link->startsWith(u'/')) {
                return std::nullopt;
            }
            at.removeLast();
            rest = link->split(u'/', Qt::SkipEmptyParts) + rest;
        }
        return at;
    }

    // True when a folder on the way to the entry is a link placed earlier: writing there
    // would write wherever that link leads.
    bool isBehindLink(const QStringList& components) const {
        for (qsizetype length = 1; length < components.size(); ++length) {
            if (targets_.contains(components.mid(0, length).join(u'/'))) {
                return true;
            }
        }
        return false;
    }

    // True when a link was placed at exactly these components: an honest archive never
    // replaces one, and what stands there after it depends on how the disk is written.
    bool isLink(const QStringList& components) const {
        return targets_.contains(components.join(u'/'));
    }

    // Records the link placed at components, and checks that every link, this one with the
    // others, still leads inside with it in place.
    bool placeLink(const QStringList& components, const QString& target) {
        targets_.insert(components.join(u'/'), target);
        for (auto link = targets_.cbegin(); link != targets_.cend(); ++link) {
            const QStringList at = link.key().split(u'/');
            if (!resolve(at.mid(0, at.size() - 1), link.value(), true)) {
                targets_.remove(components.join(u'/'));
                return false;
            }
        }
        return true;
    }

private:
    // As many as Linux follows in one path before it gives up with ELOOP.
    static constexpr int kMaxLinksFollowed = 40;
    QHash<QString, QString> targets_;
};

QString entryName(archive_entry* entry) {
    const char* name = archive_entry_pathname(entry);
    return name ? QFile::decodeName(name) : QString();
}

// Files, folders, and symbolic links; nothing that makes a device or a pipe.
std::optional<QString> checkEntryType(archive_entry* entry, const QString& name) {
    switch (archive_entry_filetype(entry)) {
        case AE_IFREG:
        case AE_IFDIR:
            return std::nullopt;
        case AE_IFLNK: {
            const char* target = archive_entry_symlink(entry);
            if (!target) {
                throwUnsafe(name, "the link points outside the archive's folder");
            }
            return QFile::decodeName(target);
        }
        default:
            throwUnsafe(name, "only files, folders and links may be installed");
    }
}

// Checks the entry's names and points them into the staging folder; false for the archive's
// own top folder ("./"), which the staging folder stands for.
bool placeEntry(archive_entry* entry, const QString& stagingDir, StagingLinks& links) {
    const QString name = entryName(entry);
    // A ".." step is refused even when it stays inside: no honest archive has one.
    if (name.isEmpty() || name.startsWith(u'/') || name.split(u'/').contains(u"..")) {
        throwUnsafe(name, "the name leaves the archive's folder");
    }
    const QStringList components = QDir::cleanPath(name).split(u'/', Qt::SkipEmptyParts);
    if (components.isEmpty() || components == QStringList{u"."_s}) {
        return false;
    }
    if (links.isBehindLink(components) || links.isLink(components)) {
        throwUnsafe(name, "the entry would be written through a link");
    }
    std::optional<QString> linkTarget;
    if (const char* hardlink = archive_entry_hardlink(entry)) {
        // A hard link takes the inode its target names, after the links on the way.
        const std::optional<QStringList> target =
            links.resolve({}, QFile::decodeName(hardlink), false);
        if (!target || target->isEmpty()) {
            throwUnsafe(name, "the link points outside the archive's folder");
        }
        const QByteArray targetPath = QFile::encodeName(stagingDir + u'/' + target->join(u'/'));
        archive_entry_set_hardlink(entry, targetPath.constData());
    } else {
        linkTarget = checkEntryType(entry, name);
    }
    if (linkTarget && !links.placeLink(components, *linkTarget)) {
        throwUnsafe(name, "the link points outside the archive's folder");
    }
    const QByteArray path = QFile::encodeName(stagingDir + u'/' + components.join(u'/'));
    archive_entry_set_pathname(entry, path.constData());
    return true;
}

void copyEntryData(archive* reader, archive* writer) {
    const void* block = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    for (;;) {
        const int status = archive_read_data_block(reader, &block, &size, &offset);
        if (status == ARCHIVE_EOF) {
            return;
        }
        if (status < ARCHIVE_WARN) {
            throwArchive(UpdaterError::unreadableArchive, reader);
        }
        if (archive_write_data_block(writer, block, size, offset) < ARCHIVE_WARN) {
            throwArchive(UpdaterError::installFailed, writer);
        }
    }
}

}  // namespace

void UnpackUpdateArchive(const QString& archivePath, const QString& stagingDir) {
    // The checks against links need a folder path with no link in it.
    const QString root = QDir(stagingDir).canonicalPath();
    if (root.isEmpty()) {
        throw UpdaterFailure(UpdaterError::installFailed, stagingDir);
    }
    const ArchiveReader reader(archive_read_new());
    const ArchiveWriter writer(archive_write_disk_new());
    if (!reader || !writer) {
        throw UpdaterFailure(UpdaterError::installFailed, QStringLiteral("out of memory"));
    }
    archive_read_support_format_tar(reader.get());
    archive_read_support_filter_gzip(reader.get());
    archive_read_support_filter_xz(reader.get());
    archive_write_disk_set_options(writer.get(), kExtractFlags);

    const QByteArray path = QFile::encodeName(archivePath);
    if (archive_read_open_filename(reader.get(), path.constData(), 64 * 1024) != ARCHIVE_OK) {
        throwArchive(UpdaterError::unreadableArchive, reader.get());
    }
    StagingLinks links;
    archive_entry* entry = nullptr;
    for (;;) {
        const int status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_EOF) {
            break;
        }
        if (status < ARCHIVE_WARN) {
            throwArchive(UpdaterError::unreadableArchive, reader.get());
        }
        if (!placeEntry(entry, root, links)) {
            continue;
        }
        if (archive_write_header(writer.get(), entry) < ARCHIVE_WARN) {
            // The library's own refusals carry no system error number.
            throwArchive(archive_errno(writer.get()) > 0 ? UpdaterError::installFailed
                                                         : UpdaterError::unsafeArchive,
                         writer.get());
        }
        copyEntryData(reader.get(), writer.get());
        if (archive_write_finish_entry(writer.get()) < ARCHIVE_WARN) {
            throwArchive(UpdaterError::installFailed, writer.get());
        }
    }
    if (archive_write_close(writer.get()) != ARCHIVE_OK) {
        throwArchive(UpdaterError::installFailed, writer.get());
    }
}
