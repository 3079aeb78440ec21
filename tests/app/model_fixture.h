#pragma once

// An ItemsProvider started the way the application starts it, with the demo
// helper as its real child, in folders of its own: the autostart entry, the
// helper's state and the single-instance lock all live in a temporary home.

#include <QDir>
#include <QTemporaryDir>
#include <functional>
#include <map>
#include <memory>

#include "app/items_provider.h"
#include "support/scoped_environment.h"
#include "support/wait.h"

namespace testing_support {

class ModelFixture {
public:
    // beforeStart prepares the home (say, the helper's remembered state) before the model
    // and its helper start.
    explicit ModelFixture(const std::map<QByteArray, QByteArray>& helperFaults = {},
                          ItemsProviderCollaborators host = {},
                          const std::function<void(const ModelFixture&)>& beforeStart = {}) {
        for (const char* folder : {"config", "state", "runtime"}) {
            QDir(home_.path()).mkpath(QString::fromLatin1(folder));
        }
        environment_.set("XDG_CONFIG_HOME", path("config"));
        environment_.set("XDG_STATE_HOME", path("state"));
        environment_.set("XDG_RUNTIME_DIR", path("runtime"));
        // The helper opens folders and pages with this; tests must not open windows.
        environment_.set("BRISVANE_DEMO_OPENER", "true");
        for (const auto& [name, value] : helperFaults) {
            environment_.set(name, value);
        }
        if (beforeStart) {
            beforeStart(*this);
        }
        model = std::make_unique<ItemsProvider>(host);
    }

    QByteArray path(const char* folder) const {
        return QDir(home_.path()).filePath(QString::fromLatin1(folder)).toUtf8();
    }

private:
    QTemporaryDir home_;
    ScopedEnvironment environment_;

public:
    // Last, so that it is gone before the environment is put back.
    std::unique_ptr<ItemsProvider> model;
};

}  // namespace testing_support
