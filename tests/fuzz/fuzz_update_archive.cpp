// A downloaded update archive unpacked into a fresh staging folder, with a canary folder and
// the archive itself beside it. Whatever the bytes hold, nothing may appear, change or go
// outside the staging folder, and no link left inside it may lead out of it.

#include <unistd.h>

#include <QByteArray>
#include <QString>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <system_error>

#include "app/platform/updates/updater_error.h"
#include "fuzz_check.h"
#include "update_archive.h"

namespace fs = std::filesystem;

namespace {

const std::string kCanaryText = "left alone\n";

fs::path& root() {
    static fs::path path;
    return path;
}

void writeFile(const fs::path& path, const char* data, std::size_t size) {
    std::ofstream out(path, std::ios::binary);
    out.write(data, static_cast<std::streamsize>(size));
    FUZZ_CHECK(out.good());
}

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// An archive may leave folders without permissions for their owner; give them back so the
// folder can be walked and removed.
void makeRemovable(const fs::path& folder) {
    std::error_code ignored;
    fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add, ignored);
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, ignored)) {
        if (entry.is_directory(ignored) && !entry.is_symlink(ignored)) {
            makeRemovable(entry.path());
        }
    }
}

bool isInside(const fs::path& path, const fs::path& folder) {
    const fs::path relative = path.lexically_relative(folder);
    return !relative.empty() && relative != "." && *relative.begin() != "..";
}

// Where the link leads, through whatever links already lie on the way; a link that cannot
// be followed (a loop) leads nowhere outside.
void checkLinksStayInside(const fs::path& staging) {
    const fs::path realStaging = fs::canonical(staging);
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(staging, error);
         it != fs::recursive_directory_iterator(); it.increment(error)) {
        FUZZ_CHECK(!error);
        if (!it->is_symlink()) {
            continue;
        }
        const fs::path target = fs::read_symlink(it->path());
        const fs::path leadsTo = fs::weakly_canonical(
            target.is_absolute() ? target : it->path().parent_path() / target, error);
        if (error) {
            error.clear();
            continue;
        }
        FUZZ_CHECK(leadsTo == realStaging || isInside(leadsTo, realStaging));
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    char folder[] = "/tmp/brisvane-fuzz-update-archive-XXXXXX";
    FUZZ_CHECK(::mkdtemp(folder) != nullptr);
    root() = folder;
    std::atexit([] {
        makeRemovable(root());
        std::error_code ignored;
        fs::remove_all(root(), ignored);
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fs::path run = root() / "run";
    const fs::path staging = run / "staging";
    const fs::path canary = run / "canary";
    const fs::path archive = run / "update.tar";
    fs::create_directories(staging);
    fs::create_directories(canary);
    writeFile(canary / "keep", kCanaryText.data(), kCanaryText.size());
    writeFile(archive, reinterpret_cast<const char*>(data), size);
    const fs::perms canaryPerms = fs::status(canary).permissions();
    const fs::path workingFolder = fs::current_path();

    try {
        UnpackUpdateArchive(QString::fromStdString(archive.string()),
                            QString::fromStdString(staging.string()));
    } catch (const UpdaterFailure& failure) {
        FUZZ_CHECK(failure.error() == UpdaterError::unreadableArchive ||
                   failure.error() == UpdaterError::unsafeArchive ||
                   failure.error() == UpdaterError::installFailed);
    }
    FUZZ_CHECK(fs::current_path() == workingFolder);

    makeRemovable(staging);
    checkLinksStayInside(staging);
    // Everything under the root but the staging folder's contents is what was put there.
    std::set<fs::path> found;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(root(), error);
         it != fs::recursive_directory_iterator(); it.increment(error)) {
        FUZZ_CHECK(!error);
        found.insert(it->path());
        if (it->path() == staging) {
            it.disable_recursion_pending();
        }
    }
    FUZZ_CHECK(!error);
    FUZZ_CHECK(found == (std::set<fs::path>{run, staging, canary, canary / "keep", archive}));
    FUZZ_CHECK(fs::is_directory(fs::symlink_status(canary)));
    FUZZ_CHECK(fs::status(canary).permissions() == canaryPerms);
    FUZZ_CHECK(fs::is_regular_file(fs::symlink_status(canary / "keep")));
    FUZZ_CHECK(readFile(canary / "keep") == kCanaryText);
    // A hard link to it from inside would let a later write change it.
    FUZZ_CHECK(fs::hard_link_count(canary / "keep") == 1);
    FUZZ_CHECK(fs::is_regular_file(fs::symlink_status(archive)));
    FUZZ_CHECK(readFile(archive) == std::string(reinterpret_cast<const char*>(data), size));
    FUZZ_CHECK(fs::hard_link_count(archive) == 1);

    fs::remove_all(run);
    return 0;
}
