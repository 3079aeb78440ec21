// A second start brings the running copy forward over a private session bus, as the
// desktop's own application launchers do.

#include "process_manager/instance_activation.h"

#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QProcess>
#include <QTemporaryDir>
#include <memory>

#include "run_loop.h"
#include "support/scoped_environment.h"

namespace {

using testing_support::ScopedEnvironment;

constexpr char kAlreadyOpened[] = "Application already opened.  Exiting ...\n";

// A session bus of the test's own, and a runtime folder for the instance lock, both
// handed to the copies the test starts.
class InstanceActivationTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(runtimeDir_.isValid());
        environment_.set("XDG_RUNTIME_DIR", QFile::encodeName(runtimeDir_.path()));
        bus_.start(QStringLiteral("dbus-daemon"),
                   {QStringLiteral("--session"), QStringLiteral("--nofork"),
                    QStringLiteral("--print-address=1")});
        ASSERT_TRUE(bus_.waitForReadyRead(kPatienceMs)) << "dbus-daemon did not start";
        busAddress_ = bus_.readLine().trimmed();
        environment_.set("DBUS_SESSION_BUS_ADDRESS", busAddress_);
    }

    void TearDown() override {
        for (auto& copy : copies_) {
            copy->closeWriteChannel();
            copy->waitForFinished(kPatienceMs);
        }
        bus_.terminate();
        bus_.waitForFinished(kPatienceMs);
    }

    // A copy of the application (child_probe app); its first line tells whether it
    // took the bus.
    QProcess& startCopy(const QString& mode = QStringLiteral("app")) {
        copies_.push_back(std::make_unique<QProcess>());
        QProcess& copy = *copies_.back();
        copy.start(QStringLiteral(BRISVANE_CHILD_PROBE), {mode});
        return copy;
    }

    static QByteArray nextLine(QProcess& copy) {
        if (!copy.canReadLine() && !WaitFor([&copy] { return copy.canReadLine(); })) {
            return {};
        }
        return copy.readLine();
    }

    // A call as another program on the bus makes it.
    QDBusMessage callRunningCopy(const QString& method, const QVariantList& arguments) {
        QDBusConnection bus = QDBusConnection::connectToBus(QString::fromUtf8(busAddress_),
                                                            QStringLiteral("test caller"));
        QDBusMessage call =
            QDBusMessage::createMethodCall(ApplicationBusName(), ApplicationObjectPath(),
                                           QStringLiteral("org.freedesktop.Application"), method);
        call.setArguments(arguments);
        // Asynchronous, so the copies' answers are read while it waits.
        QDBusPendingCall pending = bus.asyncCall(call);
        WaitFor([&pending] { return pending.isFinished(); });
        return pending.reply();
    }

    ScopedEnvironment environment_;
    QTemporaryDir runtimeDir_;
    QProcess bus_;
    QByteArray busAddress_;
    std::vector<std::unique_ptr<QProcess>> copies_;
};

TEST_F(InstanceActivationTest, ASecondStartBringsTheFirstCopyForwardAndExits) {
    QProcess& first = startCopy();
    ASSERT_EQ(nextLine(first), "listening\n");

    for (const QString& mode : {QStringLiteral("lock"), QStringLiteral("app")}) {
        QProcess& second = startCopy(mode);
        ASSERT_TRUE(second.waitForFinished(kPatienceMs));
        EXPECT_EQ(second.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(second.exitCode(), 0);
        EXPECT_EQ(second.readAllStandardOutput(), kAlreadyOpened);
        EXPECT_EQ(nextLine(first), "activated\n")
            << "after a second start in " << mode.toStdString();
    }
    EXPECT_EQ(first.state(), QProcess::Running);
}

TEST_F(InstanceActivationTest, OpenComesForwardAndActionsAreRefused) {
    QProcess& first = startCopy();
    ASSERT_EQ(nextLine(first), "listening\n");

    const QDBusMessage opened = callRunningCopy(
        QStringLiteral("Open"), {QStringList{QStringLiteral("file:///tmp")}, QVariantMap()});
    EXPECT_EQ(opened.type(), QDBusMessage::ReplyMessage) << opened.errorMessage().toStdString();
    EXPECT_EQ(nextLine(first), "activated\n");

    const QDBusMessage action = callRunningCopy(
        QStringLiteral("ActivateAction"),
        {QStringLiteral("quit"), QVariant::fromValue(QVariantList()), QVariantMap()});
    EXPECT_EQ(action.type(), QDBusMessage::ErrorMessage);
    EXPECT_EQ(action.errorName(), QStringLiteral("org.freedesktop.DBus.Error.NotSupported"));
    EXPECT_EQ(first.bytesAvailable(), 0) << "an action must not bring the panel";
}

TEST_F(InstanceActivationTest, ASecondStartStillExitsWhenTheFirstCopyIsNotOnTheBus) {
    // The first copy runs without a session bus, as on a desktop that has none.
    environment_.set("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    QProcess& first = startCopy();
    ASSERT_EQ(nextLine(first), "not listening\n");
    environment_.set("DBUS_SESSION_BUS_ADDRESS", busAddress_);

    QProcess& second = startCopy(QStringLiteral("lock"));
    ASSERT_TRUE(second.waitForFinished(kPatienceMs));
    EXPECT_EQ(second.exitCode(), 0);
    EXPECT_EQ(second.readAllStandardOutput(), kAlreadyOpened);
    EXPECT_FALSE(ActivateRunningInstance(std::chrono::milliseconds(0)));
}

}  // namespace
