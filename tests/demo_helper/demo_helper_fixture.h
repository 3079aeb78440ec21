#pragma once

#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <memory>

#include "helper_session.h"

// Each test gets its own state folder and a helper session on a fresh port.
class DemoHelperTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(stateHome_.isValid());
        helper_ = std::make_unique<HelperSession>(stateHome_.path());
    }

    // Starts the helper and pairs with its key.
    void startAndPair() {
        ASSERT_TRUE(helper_->start());
        helper_->pair();
    }

    // A second helper life on the same state folder, as after a restart.
    void restart() {
        ASSERT_TRUE(helper_->terminate());
        helper_ = std::make_unique<HelperSession>(stateHome_.path());
        startAndPair();
    }

    QString stateFile() const { return stateHome_.path() + "/brisvane-demo/state.json"; }

    QTemporaryDir stateHome_;
    std::unique_ptr<HelperSession> helper_;
};
