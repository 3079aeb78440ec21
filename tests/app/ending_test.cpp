// The application as the session ends it: its helper is stopped, even one that ignores
// SIGTERM, and it is gone within three seconds, whichever way it was asked to go.

#include <gtest/gtest.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <cerrno>
#include <csignal>

namespace {

constexpr int kStartPatienceMs = 60'000;
// Two seconds of grace for the helper, and the rest for the application's own way out.
constexpr qint64 kEndWithinMs = 3'000;

bool processGroupExists(pid_t group) {
    return ::killpg(group, 0) == 0 || errno != ESRCH;
}

class EndingTest : public ::testing::TestWithParam<int> {
protected:
    // brisvane with a helper that ignores SIGTERM, in a process group of its own that
    // the helper joins, so that what is left of either can be found.
    void start() {
        ASSERT_TRUE(home_.isValid());
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const char* folder : {"XDG_RUNTIME_DIR", "XDG_CONFIG_HOME", "XDG_STATE_HOME"}) {
            const QString path = home_.filePath(QString::fromLatin1(folder));
            ASSERT_TRUE(QDir().mkpath(path));
            QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
            environment.insert(QString::fromLatin1(folder), path);
        }
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        environment.insert(QStringLiteral("BRISVANE_DEMO_IGNORE_TERM"), QStringLiteral("1"));
        environment.insert(QStringLiteral("BRISVANE_DEMO_ANNOUNCE_ANSWERS"), QStringLiteral("1"));
        environment.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
        environment.remove(QStringLiteral("DISPLAY"));
        app_.setProcessEnvironment(environment);
        app_.setChildProcessModifier([] { ::setpgid(0, 0); });
        app_.setProcessChannelMode(QProcess::MergedChannels);
        app_.start(QStringLiteral(BRISVANE_APP), {});
        ASSERT_TRUE(app_.waitForStarted(kStartPatienceMs));
        // Running for real: the helper has answered a ping.
        QByteArray output;
        QElapsedTimer waited;
        waited.start();
        while (!output.contains("answered ping 1") && waited.elapsed() < kStartPatienceMs) {
            app_.waitForReadyRead(1000);
            output += app_.readAll();
        }
        ASSERT_TRUE(output.contains("answered ping 1")) << output.toStdString();
    }

    // Waits for the application's end; false when it outlived the deadline.
    void expectEndedInTime(const char* cause) {
        QElapsedTimer ending;
        ending.start();
        const bool ended = app_.waitForFinished(kEndWithinMs);
        const qint64 took = ending.elapsed();
        if (!ended) {
            ::killpg(static_cast<pid_t>(app_.processId()), SIGKILL);
            app_.waitForFinished();
        }
        const std::string output = app_.readAll().toStdString();
        EXPECT_TRUE(ended) << "still running " << took << " ms after " << cause;
        EXPECT_EQ(app_.exitStatus(), QProcess::NormalExit) << cause << ", saying:\n" << output;
        EXPECT_EQ(app_.exitCode(), 0) << cause << ", saying:\n" << output;
        std::printf("ended %lld ms after %s\n", static_cast<long long>(took), cause);
    }

    QTemporaryDir home_;
    QProcess app_;
};

TEST_P(EndingTest, TheSessionsSignalStopsTheStubbornHelperAndEndsTheApplicationInTime) {
    const int signal = GetParam();
    start();
    const auto group = static_cast<pid_t>(app_.processId());
    ::kill(group, signal);
    expectEndedInTime(strsignal(signal));
    EXPECT_FALSE(processGroupExists(group)) << "the helper outlived the application";
    ::killpg(group, SIGKILL);
}

INSTANTIATE_TEST_SUITE_P(SessionSignals, EndingTest, ::testing::Values(SIGTERM, SIGINT, SIGHUP),
                         [](const ::testing::TestParamInfo<int>& signal) {
                             return std::string(sigabbrev_np(signal.param));
                         });

}  // namespace
