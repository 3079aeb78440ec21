// Checking, unpacking and swapping in an archive, without the network.

#include <gtest/gtest.h>
#include <unistd.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>

#include "app/platform/update_installer.h"
#include "app/platform/update_signature.h"
#include "app/platform/updater_error.h"
#include "updater_test_support.h"

using namespace updater_testing;

namespace {

UpdaterError FailureOf(const std::function<void()>& step) {
    try {
        step();
    } catch (const UpdaterFailure& failure) {
        return failure.error();
    }
    ADD_FAILURE() << "the step went through";
    return UpdaterError::installFailed;
}

class UpdaterInstall : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(root_.isValid());
        ASSERT_TRUE(QDir().mkpath(install_ + QStringLiteral("/bin")));
        WriteFile(install_ + u'/' + QLatin1String(kSelfContainedInstallMarker), {});
        WriteFile(install_ + QStringLiteral("/bin/brisvane"), "old");
    }

    QString archive(const std::vector<ArchiveEntry>& entries) {
        const QString path = root_.filePath(QStringLiteral("update.tar.gz"));
        WriteFile(path, TarGz(entries));
        return path;
    }

    // Everything below the temporary root, apart from the archive.
    QStringList tree() const {
        QStringList paths;
        QDirIterator it(root_.path(),
                        QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                        QDirIterator::Subdirectories);
        while (it.hasNext()) {
            paths << QDir(root_.path()).relativeFilePath(it.next());
        }
        paths.removeAll(QStringLiteral("update.tar.gz"));
        paths.sort();
        return paths;
    }

    QTemporaryDir root_;
    const QString install_ = root_.filePath(QStringLiteral("apps/install"));
};

TEST_F(UpdaterInstall, SwapsInTheNewVersionAndKeepsOnlyTheLastOne) {
    InstallUpdateArchive(archive(InstallationEntries("new")), install_);
    EXPECT_EQ(ReadFile(install_ + QStringLiteral("/bin/brisvane")), "new");
    EXPECT_EQ(ReadFile(UpdatePreviousFolder(install_) + QStringLiteral("/bin/brisvane")), "old");
    EXPECT_TRUE(QFileInfo(install_ + QStringLiteral("/bin/brisvane")).isExecutable());
    EXPECT_FALSE(QFileInfo::exists(UpdateStagingFolder(install_)));

    InstallUpdateArchive(archive(InstallationEntries("newer")), install_);
    EXPECT_EQ(ReadFile(install_ + QStringLiteral("/bin/brisvane")), "newer");
    EXPECT_EQ(ReadFile(UpdatePreviousFolder(install_) + QStringLiteral("/bin/brisvane")), "new");
}

TEST_F(UpdaterInstall, EntriesLeavingTheFolderAreRefusedAndNothingChanges) {
    using E = ArchiveEntry;
    // clang-format off
    const std::vector<std::vector<E>> cases = {
        {{"../evil", E::file, "x"}},
        {{"bin/../../evil", E::file, "x"}},
        {{"bin/../bin/evil", E::file, "x"}},
        {{"/tmp/brisvane-updater-test-evil", E::file, "x"}},
        {{"bin/evil", E::symlink, "../../evil"}},
        {{"bin/evil", E::symlink, "/etc"}},
        {{"evil", E::symlink, "."}, {"evil/../../evil", E::file, "x"}},
        {{"evil", E::hardlink, "../outside"}},
        // A link that stays inside is fine, but nothing may be written through it.
        {{"lib", E::symlink, "bin"}, {"lib/evil", E::file, "x"}},
    };
    // clang-format on
    const QStringList before = tree();
    for (const std::vector<E>& entries : cases) {
        std::vector<E> withInstallation = InstallationEntries("new");
        withInstallation.insert(withInstallation.begin() + 2, entries.begin(), entries.end());
        const QString path = archive(withInstallation);
        SCOPED_TRACE(entries.back().name + " -> " + entries.back().contents);
        EXPECT_EQ(FailureOf([&] { InstallUpdateArchive(path, install_); }),
                  UpdaterError::unsafeArchive);
        EXPECT_EQ(tree(), before);
    }
    EXPECT_FALSE(QFileInfo::exists(QStringLiteral("/tmp/brisvane-updater-test-evil")));
}

TEST_F(UpdaterInstall, IncompleteOrDamagedArchivesAreRefused) {
    const QStringList before = tree();
    std::vector<ArchiveEntry> unmarked = InstallationEntries("new");
    unmarked.erase(unmarked.begin());
    EXPECT_EQ(FailureOf([&] { InstallUpdateArchive(archive(unmarked), install_); }),
              UpdaterError::incompleteArchive);
    EXPECT_EQ(FailureOf([&] {
                  InstallUpdateArchive(
                      archive({{kSelfContainedInstallMarker, ArchiveEntry::file, ""}}), install_);
              }),
              UpdaterError::incompleteArchive);

    const QString damaged = root_.filePath(QStringLiteral("update.tar.gz"));
    WriteFile(damaged, TarGz(InstallationEntries("new")).left(40));
    EXPECT_EQ(FailureOf([&] { InstallUpdateArchive(damaged, install_); }),
              UpdaterError::unreadableArchive);
    WriteFile(damaged, "plain text, not an archive");
    EXPECT_EQ(FailureOf([&] { InstallUpdateArchive(damaged, install_); }),
              UpdaterError::unreadableArchive);
    EXPECT_EQ(tree(), before);
}

TEST_F(UpdaterInstall, OnlyAMarkedFolderOfTheUsersOwnIsReplaced) {
    EXPECT_TRUE(CanSelfInstall(install_));

    // A shared prefix such as /usr or ~/.local has no marker.
    const QString shared = root_.filePath(QStringLiteral("shared"));
    ASSERT_TRUE(QDir().mkpath(shared + QStringLiteral("/bin")));
    EXPECT_FALSE(CanSelfInstall(shared));
    EXPECT_FALSE(CanSelfInstall(QStringLiteral("/usr")));
    EXPECT_FALSE(CanSelfInstall(root_.filePath(QStringLiteral("missing"))));

    const QString link = root_.filePath(QStringLiteral("link"));
    ASSERT_TRUE(QFile::link(install_, link));
    EXPECT_FALSE(CanSelfInstall(link));

    EXPECT_EQ(FailureOf([&] { InstallUpdateArchive(archive(InstallationEntries("new")), shared); }),
              UpdaterError::installFolderReadOnly);

    // Another user's folder; only root can make one to try.
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(QFile::encodeName(install_).constData(), 65534, 65534), 0);
        EXPECT_FALSE(CanSelfInstall(install_));
    } else {
        QFile::setPermissions(install_, QFile::ReadOwner | QFile::ExeOwner);
        EXPECT_FALSE(CanSelfInstall(install_));
        QFile::setPermissions(install_, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
}

TEST(UpdaterSignature, LengthThenSignatureOverTheWholeFile) {
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("update.tar.gz"));
    const QByteArray contents = TarGz(InstallationEntries("new"));
    WriteFile(path, contents);
    const Ed25519TestKey key;
    const Ed25519TestKey otherKey;
    const QByteArray signature = key.sign(contents);
    QByteArray changed = contents;
    changed[changed.size() / 2] = static_cast<char>(changed[changed.size() / 2] ^ 1);
    const qint64 length = contents.size();

    EXPECT_NO_THROW(VerifyUpdateArchive(path, length, key.publicKey(), signature));
    // clang-format off
    const std::vector<std::pair<std::function<void()>, UpdaterError>> cases = {
        {[&] { VerifyUpdateArchive(path, length, otherKey.publicKey(), signature); }, UpdaterError::signatureInvalid},
        {[&] { VerifyUpdateArchive(path, length, key.publicKey(), key.sign(changed)); }, UpdaterError::signatureInvalid},
        {[&] { VerifyUpdateArchive(path, length, key.publicKey(), signature.left(63)); }, UpdaterError::signatureInvalid},
        {[&] { VerifyUpdateArchive(path, length + 1, key.publicKey(), signature); }, UpdaterError::lengthMismatch},
        {[&] { VerifyUpdateArchive(path, length - 1, key.publicKey(), signature); }, UpdaterError::lengthMismatch},
        {[&] { VerifyUpdateArchive(path, -1, key.publicKey(), signature); }, UpdaterError::signatureMissing},
        {[&] { VerifyUpdateArchive(path, length, key.publicKey(), {}); }, UpdaterError::signatureMissing},
        {[&] { VerifyUpdateArchive(path, length, {}, signature); }, UpdaterError::noPublicKey},
        {[&] { VerifyUpdateArchive(path + u'x', length, key.publicKey(), signature); }, UpdaterError::signatureInvalid},
    };
    // clang-format on
    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_EQ(FailureOf(cases[i].first), cases[i].second) << "case " << i;
    }
    // The same bytes changed on disk after signing.
    WriteFile(path, changed);
    EXPECT_EQ(FailureOf([&] { VerifyUpdateArchive(path, length, key.publicKey(), signature); }),
              UpdaterError::signatureInvalid);
}

}  // namespace
