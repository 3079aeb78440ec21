#include "updater_error.h"

#include <string>

namespace {

class UpdaterCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "UpdaterError"; }
    std::string message(int value) const override {
        switch (static_cast<UpdaterError>(value)) {
            case UpdaterError::insecureAddress:
                return "The update address is not a secure (https) address.";
            case UpdaterError::networkFailure:
                return "The update server could not be reached.";
            case UpdaterError::malformedFeed:
                return "The list of updates could not be read.";
            case UpdaterError::noPublicKey:
                return "This copy of brisvane cannot check the signature of updates.";
            case UpdaterError::signatureMissing:
                return "The update is not signed.";
            case UpdaterError::lengthMismatch:
                return "The downloaded update is incomplete or too long.";
            case UpdaterError::signatureInvalid:
                return "The downloaded update is not signed by brisvane's publisher.";
            case UpdaterError::unreadableArchive:
                return "The downloaded update could not be unpacked.";
            case UpdaterError::unsafeArchive:
                return "The downloaded update holds files outside its own folder.";
            case UpdaterError::incompleteArchive:
                return "The downloaded update is not a complete brisvane installation.";
            case UpdaterError::installFolderReadOnly:
                return "brisvane cannot replace its own installation folder.";
            case UpdaterError::installFailed:
                return "The update could not be put in place.";
        }
        return "unknown UpdaterError";
    }
};

}  // namespace

const std::error_category& UpdaterErrorCategory() {
    static const UpdaterCategory category;
    return category;
}

std::error_code make_error_code(UpdaterError error) {
    return {static_cast<int>(error), UpdaterErrorCategory()};
}

UpdaterFailure::UpdaterFailure(UpdaterError error, const QString& detail)
    : std::system_error(make_error_code(error), detail.toStdString()), detail_(detail) {}
