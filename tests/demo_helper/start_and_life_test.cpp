// The demo helper's command line, its key block, and the end of its life.

#include <signal.h>

#include <QFile>
#include <QRegularExpression>

#include "demo_helper_fixture.h"

namespace {

using DemoHelperStart = DemoHelperTest;
using DemoHelperLife = DemoHelperTest;

TEST_F(DemoHelperStart, PrintsExactlyTheKeyBlockAndStatusLine) {
    // Any order, with elements it does not know, as a newer application might pass.
    QStringList arguments = helper_->defaultArguments();
    std::reverse(arguments.begin(), arguments.end());
    arguments << "-beta=1"
              << "stray";
    ASSERT_TRUE(helper_->start(arguments));

    const QRegularExpression expected(
        "^-----BEGIN PUBLIC KEY-----\n([A-Za-z0-9+/]{43}=)\n-----END PUBLIC KEY-----\n"
        "brisvane demo helper listening on 127\\.0\\.0\\.1:(\\d+)\n$");
    const auto match = expected.match(helper_->output());
    ASSERT_TRUE(match.hasMatch()) << qPrintable(helper_->output());
    EXPECT_EQ(match.captured(2).toInt(), helper_->port());
    EXPECT_EQ(PEMFromString(helper_->output()), match.captured(1));

    helper_->pair();
    EXPECT_EQ(helper_->ask("ping").kind(), u"auth request");
}

TEST_F(DemoHelperStart, RefusesAnIncompleteCommandLineWithStatus2) {
    const QString token = "-token=" + helper_->store().LocalPublicKey();
    const QString port = QString("-port=%1").arg(helper_->port());
    const QList<QStringList> commandLines = {
        {port},
        {token},
        {"-token=", port},
        {token, "-port=0"},
        {token, "-port=65536"},
        {token, "-port=80x"},
        {"-token=bm90IGEga2V5", port},  // base64, but not 32 bytes
        {token, port, "-pid=me"},
    };
    for (const QStringList& commandLine : commandLines) {
        SCOPED_TRACE(qPrintable(commandLine.join(' ')));
        EXPECT_FALSE(helper_->start(commandLine));
        ASSERT_TRUE(helper_->waitForExit(10s));
        EXPECT_EQ(helper_->process().exitCode(), 2);
        EXPECT_TRUE(helper_->output().isEmpty());
        EXPECT_FALSE(helper_->errorOutput().isEmpty());
    }
}

TEST_F(DemoHelperStart, ReportsAPortInUse) {
    ASSERT_TRUE(helper_->start());
    HelperSession second(stateHome_.path());
    QStringList arguments = second.defaultArguments();
    arguments.last() = QString("-port=%1").arg(helper_->port());
    EXPECT_FALSE(second.start(arguments));
    ASSERT_TRUE(second.waitForExit(10s));
    EXPECT_EQ(second.process().exitCode(), 1);
    EXPECT_TRUE(second.errorOutput().contains("cannot listen")) << qPrintable(second.errorOutput());
}

TEST_F(DemoHelperLife, EndsCleanlyOnSigterm) {
    startAndPair();
    EXPECT_TRUE(helper_->terminate());
}

TEST_F(DemoHelperLife, EndsWhenThePidIsNotItsParent) {
    QStringList arguments = helper_->defaultArguments();
    arguments.first() = "-pid=1";
    EXPECT_TRUE(helper_->start(arguments));
    ASSERT_TRUE(helper_->waitForExit(10s));
    EXPECT_EQ(helper_->process().exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(helper_->process().exitCode(), 0);
}

TEST_F(DemoHelperLife, EndsWhenItsParentIsKilled) {
    // A shell in between is the helper's parent; it prints the helper's pid, then waits.
    QProcess shell;
    QStringList arguments = helper_->defaultArguments();
    arguments.first() = "-pid=$$";
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_STATE_HOME", stateHome_.path());
    shell.setProcessEnvironment(environment);
    shell.start("/bin/sh",
                {"-c", QString("\"$0\" %1 >/dev/null & echo $!; wait").arg(arguments.join(' ')),
                 DEMO_HELPER_PATH});
    ASSERT_TRUE(shell.waitForReadyRead(10000));
    const qint64 helperPid = shell.readLine().trimmed().toLongLong();
    ASSERT_GT(helperPid, 0);
    // It is up once it listens.
    ASSERT_TRUE(WaitFor(
        [&] {
            httplib::Client probe("127.0.0.1", helper_->port());
            return static_cast<bool>(probe.Post("/request", "", "application/json"));
        },
        20s));

    shell.kill();
    ASSERT_TRUE(shell.waitForFinished(5000));
    EXPECT_TRUE(WaitFor([&] { return ProcessHasEnded(helperPid); }, 5s));
    if (!ProcessHasEnded(helperPid)) {
        ::kill(static_cast<pid_t>(helperPid), SIGKILL);
    }
}

}  // namespace
