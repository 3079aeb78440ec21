// Unpacking and swapping in an archive, without the network.

#include <gtest/gtest.h>
#include <unistd.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>

#include "update_installer.h"
#include "updater_test_support.h"

using namespace updater_testing;

namespace {

class UpdaterInstall : public ::testing::Test {
protected:
    void SetUp() override { MakeInstallation(install_, "old"); }

    QString archive(const std::vector<ArchiveEntry>& entries) {
        const QString path = root_.filePath(QStringLiteral("update.tar.gz"));
        WriteFile(path, TarGz(entries));
        return path;
    }

    // Everything below the temporary root.
    QStringList tree() const {
        QStringList paths;
        QDirIterator it(root_.path(), QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            paths << it.next() + u':' + QString::fromUtf8(ReadFile(it.filePath()));
        }
        paths.sort();
        return paths;
    }

    QTemporaryDir root_;
    const QString install_ = root_.filePath(QStringLiteral("install"));
};

TEST_F(UpdaterInstall, EntriesLeavingTheFolderAreRefusedAndNothingChanges) {
    using E = ArchiveEntry;
    const std::vector<std::vector<E>> cases = {
        {{"../evil", E::file, "x"}},
        {{root_.filePath(QStringLiteral("evil")).toStdString(), E::file, "x"}},
        {{"bin/evil", E::symlink, "../../evil"}},
        {{"bin/evil", E::symlink, "/etc"}},
        // A link that stays inside is fine, but nothing may be written through it.
        {{"lib", E::symlink, "bin"}, {"lib/evil", E::file, "x"}},
        // Inside by their text, outside once the links they pass through are followed, in
        // either order.
        {{"sub", E::folder, ""}, {"sub/a", E::symlink, ".."}, {"sub/b", E::symlink, "a/.."}},
        {{"sub", E::folder, ""}, {"sub/b", E::symlink, "a/.."}, {"sub/a", E::symlink, ".."}},
        {{"x", E::symlink, "sub/.."}, {"sub", E::symlink, "."}},
        {{"loop", E::symlink, "loop"}},
        // Nor may a link be replaced by whatever comes after it.
        {{"lib", E::symlink, "bin"}, {"lib", E::folder, ""}},
    };
    for (const std::vector<E>& entries : cases) {
        std::vector<E> withInstallation = InstallationEntries("new");
        withInstallation.insert(withInstallation.begin() + 2, entries.begin(), entries.end());
        const QString path = archive(withInstallation);
        const QStringList before = tree();
        SCOPED_TRACE(entries.back().name + " -> " + entries.back().contents);
        EXPECT_EQ(FailureOf([&] { InstallUpdateArchive(path, install_); }),
                  UpdaterError::unsafeArchive);
        EXPECT_EQ(tree(), before);
    }
}

TEST_F(UpdaterInstall, LinksThatStayInsideAreUnpackedWhateverTheirOrder) {
    using E = ArchiveEntry;
    std::vector<E> entries = InstallationEntries("new");
    const std::vector<E> links = {
        {"bin/tool", E::symlink, "../lib/libtool.so"},  // before its target exists
        {"lib", E::folder, ""},
        {"lib/libtool.so", E::symlink, "libtool.so.1"},
        {"lib/libtool.so.1", E::symlink, "./libtool.so.1.2"},
        {"lib/libtool.so.1.2", E::file, "tool"},
        {"lib/current", E::symlink, "."},
        {"lib/up", E::symlink, "current/.."},
    };
    entries.insert(entries.end(), links.begin(), links.end());
    try {
        InstallUpdateArchive(archive(entries), install_);
    } catch (const UpdaterFailure& failure) {
        FAIL() << failure.detail().toStdString();
    }
    EXPECT_EQ(ReadFile(install_ + QStringLiteral("/bin/tool")), "tool");
    EXPECT_EQ(ReadFile(install_ + QStringLiteral("/lib/up/bin/brisvane")), "new");
}

TEST_F(UpdaterInstall, OnlyAMarkedFolderOfTheUsersOwnIsReplaced) {
    EXPECT_TRUE(CanSelfInstall(install_));
    // A shared prefix such as /usr or ~/.local has no marker.
    const QString shared = root_.filePath(QStringLiteral("shared"));
    ASSERT_TRUE(QDir().mkpath(shared + QStringLiteral("/bin")));
    EXPECT_FALSE(CanSelfInstall(shared));
    EXPECT_EQ(FailureOf([&] { InstallUpdateArchive(archive(InstallationEntries("new")), shared); }),
              UpdaterError::installFolderReadOnly);

    // Another user's folder; only root can make one to try.
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(QFile::encodeName(install_).constData(), 65534, 65534), 0);
    } else {
        QFile::setPermissions(install_, QFile::ReadOwner | QFile::ExeOwner);
    }
    EXPECT_FALSE(CanSelfInstall(install_));
    QFile::setPermissions(install_, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

}  // namespace
