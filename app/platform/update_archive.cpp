#include "app/platform/update_archive.h"

#include <archive.h>
#include <archive_entry.h>

#include <QDir>
#include <QFile>
#include <QStringList>
#include <memory>
#include <optional>

#include "app/platform/updater_error.h"

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

[[noreturn]] void ThrowArchive(UpdaterError error, archive* source) {
    const char* message = archive_error_string(source);
    throw UpdaterFailure(error, QString::fromLocal8Bit(message ? message : "unknown error"));
}

[[noreturn]] void ThrowUnsafe(const QString& name, const char* fault) {
    throw UpdaterFailure(UpdaterError::unsafeArchive,
                         QStringLiteral("%1: %2").arg(name, QLatin1String(fault)));
}

// The components of a path inside the staging folder, or nothing when the path would leave
// it. A link's target is resolved against the link's own folder.
std::optional<QStringList> ComponentsInside(const QStringList& base, const QString& path) {
    if (path.startsWith(u'/')) {
        return std::nullopt;
    }
    QStringList components = base;
    for (const QString& component : path.split(u'/', Qt::SkipEmptyParts)) {
        if (component == u"..") {
            if (components.isEmpty()) {
                return std::nullopt;
            }
            components.removeLast();
        } else if (component != u".") {
            components.append(component);
        }
    }
    return components;
}

QString EntryName(archive_entry* entry) {
    const char* name = archive_entry_pathname(entry);
    return name ? QFile::decodeName(name) : QString();
}

// Files, folders, and symbolic links that stay inside; nothing that makes a device or a pipe.
void CheckEntryType(archive_entry* entry, const QString& name, const QStringList& components) {
    switch (archive_entry_filetype(entry)) {
        case AE_IFREG:
        case AE_IFDIR:
            return;
        case AE_IFLNK: {
            const char* target = archive_entry_symlink(entry);
            const QStringList folder = components.mid(0, components.size() - 1);
            if (!target || !ComponentsInside(folder, QFile::decodeName(target))) {
                ThrowUnsafe(name, "the link points outside the archive's folder");
            }
            return;
        }
        default:
            ThrowUnsafe(name, "only files, folders and links may be installed");
    }
}

// Checks the entry's names and points them into the staging folder; false for the archive's
// own top folder ("./"), which the staging folder stands for.
bool PlaceEntry(archive_entry* entry, const QString& stagingDir) {
    const QString name = EntryName(entry);
    // A ".." step is refused even when it stays inside: no honest archive has one.
    if (name.isEmpty() || name.startsWith(u'/') || name.split(u'/').contains(u"..")) {
        ThrowUnsafe(name, "the name leaves the archive's folder");
    }
    const std::optional<QStringList> components = ComponentsInside({}, name);
    if (!components) {
        ThrowUnsafe(name, "the name leaves the archive's folder");
    }
    if (components->isEmpty()) {
        return false;
    }
    if (const char* hardlink = archive_entry_hardlink(entry)) {
        const std::optional<QStringList> target = ComponentsInside({}, QFile::decodeName(hardlink));
        if (!target || target->isEmpty()) {
            ThrowUnsafe(name, "the link points outside the archive's folder");
        }
        const QByteArray targetPath = QFile::encodeName(stagingDir + u'/' + target->join(u'/'));
        archive_entry_set_hardlink(entry, targetPath.constData());
    } else {
        CheckEntryType(entry, name, *components);
    }
    const QByteArray path = QFile::encodeName(stagingDir + u'/' + components->join(u'/'));
    archive_entry_set_pathname(entry, path.constData());
    return true;
}

void CopyEntryData(archive* reader, archive* writer) {
    const void* block = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    for (;;) {
        const int status = archive_read_data_block(reader, &block, &size, &offset);
        if (status == ARCHIVE_EOF) {
            return;
        }
        if (status < ARCHIVE_WARN) {
            ThrowArchive(UpdaterError::unreadableArchive, reader);
        }
        if (archive_write_data_block(writer, block, size, offset) < ARCHIVE_WARN) {
            ThrowArchive(UpdaterError::installFailed, writer);
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
        ThrowArchive(UpdaterError::unreadableArchive, reader.get());
    }
    archive_entry* entry = nullptr;
    for (;;) {
        const int status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_EOF) {
            break;
        }
        if (status < ARCHIVE_WARN) {
            ThrowArchive(UpdaterError::unreadableArchive, reader.get());
        }
        if (!PlaceEntry(entry, root)) {
            continue;
        }
        if (archive_write_header(writer.get(), entry) < ARCHIVE_WARN) {
            // The library's own refusals carry no system error number.
            ThrowArchive(archive_errno(writer.get()) > 0 ? UpdaterError::installFailed
                                                         : UpdaterError::unsafeArchive,
                         writer.get());
        }
        CopyEntryData(reader.get(), writer.get());
        if (archive_write_finish_entry(writer.get()) < ARCHIVE_WARN) {
            ThrowArchive(UpdaterError::installFailed, writer.get());
        }
    }
    if (archive_write_close(writer.get()) != ARCHIVE_OK) {
        ThrowArchive(UpdaterError::installFailed, writer.get());
    }
}
