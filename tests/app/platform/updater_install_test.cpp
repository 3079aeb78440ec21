// Unpacking and swapping in an archive, without the network.

#include <gtest/gtest.h>
#include <unistd.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>

#include "app/platform/update_installer.h"
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
