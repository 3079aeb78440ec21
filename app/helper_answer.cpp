#include "helper_answer.h"

#include <optional>
#include <system_error>

namespace {

template <typename T>
std::optional<T> tryDecode(const QJsonValue& answer) {
    try {
        return json::Reader<T>::read(answer);
    } catch (const std::system_error&) {
        return std::nullopt;
    }
}

}  // namespace

HelperAnswer ReadHelperAnswer(const QJsonValue& answer) {
    if (answer.isArray()) {
        if (auto folders = tryDecode<QList<DirItem>>(answer)) {
            return std::move(*folders);
        }
        if (auto groups = tryDecode<QList<GroupItem>>(answer)) {
            return std::move(*groups);
        }
        return UndecodableAnswer{};
    }
    if (auto envelope = tryDecode<TypeIDAndData>(answer)) {
        return std::move(*envelope);
    }
    return UndecodableAnswer{};
}
