#pragma once

// Environment variables set for one test and put back as they were afterwards.
// Children spawned meanwhile inherit them, which is how tests reach the demo
// helper's fault switches and keep the user's own folders out of reach.

#include <QByteArray>
#include <QtGlobal>
#include <map>
#include <optional>

namespace testing_support {

class ScopedEnvironment {
public:
    ScopedEnvironment() = default;
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

    ~ScopedEnvironment() {
        for (const auto& [name, value] : saved_) {
            if (value) {
                qputenv(name.constData(), *value);
            } else {
                qunsetenv(name.constData());
            }
        }
    }

    void set(const QByteArray& name, const QByteArray& value) {
        if (!saved_.contains(name)) {
            saved_[name] = qEnvironmentVariableIsSet(name.constData())
                               ? std::optional(qgetenv(name.constData()))
                               : std::nullopt;
        }
        qputenv(name.constData(), value);
    }

private:
    std::map<QByteArray, std::optional<QByteArray>> saved_;
};

}  // namespace testing_support
