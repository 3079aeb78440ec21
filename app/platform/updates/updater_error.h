#pragma once

// Why an update check or installation did not go through. Operations of the updater's pieces
// throw std::system_error with these codes; the code's message is a plain sentence the update
// dialog can show, and the exception's what() adds the particulars.

#include <QString>
#include <cstdint>
#include <system_error>

enum class UpdaterError : std::uint8_t {
    insecureAddress,        // not https, and not a loopback address either
    networkFailure,         // no answer, or an answer other than success
    malformedFeed,          // not a readable appcast
    noPublicKey,            // this build carries no key to check updates with
    signatureMissing,       // the feed gives the update no signature or no length
    lengthMismatch,         // the download is not as long as the feed says
    signatureInvalid,       // the download is not what the key holder signed
    unreadableArchive,      // not a tar archive, or a damaged one
    unsafeArchive,          // an entry that would land outside the new folder
    incompleteArchive,      // an archive that does not hold a whole installation
    installFolderReadOnly,  // the installation is not the user's to replace
    installFailed,          // the file system refused a step of the swap
};

const std::error_category& UpdaterErrorCategory();
std::error_code make_error_code(UpdaterError error);

template <>
struct std::is_error_code_enum<UpdaterError> : std::true_type {};

// The particulars (an address, a network message, an archive entry) kept apart from the
// sentence, so the dialog can show them on a line of their own.
class UpdaterFailure : public std::system_error {
public:
    UpdaterFailure(UpdaterError error, const QString& detail);
    UpdaterError error() const { return static_cast<UpdaterError>(code().value()); }
    const QString& detail() const { return detail_; }

private:
    QString detail_;
};
