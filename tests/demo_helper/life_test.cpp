// Who may talk to the helper, and how its life begins and ends.

#include <signal.h>

#include <QFile>
#include <QRegularExpression>
#include <algorithm>

#include "helper_session.h"
#include "support/scoped_environment.h"

namespace {

TEST_F(DemoHelperSession, RefusesAnyOtherAuthorizationWith401) {
    ASSERT_TRUE(start(arguments()));
    const std::string token = kes->LocalPublicKey().toStdString();
    const QString stranger = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store({})->LocalPublicKey();
    for (const std::string& authorization : {std::string(), "Bearer " + stranger.toStdString(),
                                             "bearer " + token, "Bearer  " + token, token}) {
        SCOPED_TRACE(authorization);
        const auto result = post(authorization, {"ping", "", ""});
        ASSERT_TRUE(result);
        EXPECT_EQ(result->status, 401);
    }
    EXPECT_EQ(ask("ping").type, "auth request");
}

TEST_F(DemoHelperSession, RefusesABadCommandLineWithStatus2) {
    const QString tokenArg = arguments()[1];
    const QString portArg = arguments()[2];
    for (const QString& commandLine :
         {portArg, tokenArg, "-token= " + portArg, tokenArg + " -port=0", tokenArg + " -port=65536",
          tokenArg + " -port=80x", "-token=bm90IGEga2V5 " + portArg /* base64, not 32 bytes */,
          tokenArg + " " + portArg + " -pid=me"}) {
        SCOPED_TRACE(qPrintable(commandLine));
        EXPECT_FALSE(start(commandLine.split(' ')));
        EXPECT_EQ(waitForExit(), 2);
        EXPECT_TRUE(output.isEmpty());
    }
    // Any order, and elements it does not know, as a newer application might pass.
    EXPECT_TRUE(start({portArg, "-beta=1", tokenArg, "stray", arguments()[0]}));
}

TEST_F(DemoHelperSession, EndsWhenItsParentDies) {
    // A shell in between is the helper's parent: it prints the helper's pid, then waits.
    const QString script = "\"$0\" -pid=$$ " + arguments().mid(1).join(' ') + " & echo $!; wait";
    ASSERT_TRUE(start({"-c", script, DEMO_HELPER_PATH}, "/bin/sh"));
    const QRegularExpression pidLine("^\\d+$", QRegularExpression::MultilineOption);
    const pid_t pid = pidLine.match(QString(output)).captured().toInt();
    ASSERT_GT(pid, 0);

    process.kill();
    const auto ended = [pid] {
        // "pid (name) S ...": an adopted zombie only waits for its new parent to reap it.
        QFile stat(QString("/proc/%1/stat").arg(pid));
        return !stat.open(QIODevice::ReadOnly) || stat.readAll().split(')').last().startsWith(" Z");
    };
    EXPECT_TRUE(testing_support::waitUntil(ended, 5000));
    if (!ended()) {
        ::kill(pid, SIGKILL);
    }
}

TEST_F(DemoHelperSession, AnnouncesItsFirstThreePingAnswersOnlyWhenAsked) {
    const auto announcements = [&] {
        output += process.readAllStandardOutput();
        return QString(output).split('\n').filter("answered");
    };
    {
        testing_support::ScopedEnvironment environment;
        environment.set("BRISVANE_DEMO_ANNOUNCE_ANSWERS", "1");
        ASSERT_TRUE(start(arguments()));
    }
    // Neither a refused ping nor another message counts.
    ASSERT_EQ(post("Bearer " + kes->LocalPublicKey().toStdString() + "x", {"ping", "", ""})->status,
              401);
    EXPECT_EQ(ask("getGroups").type, "auth request");
    for (int ping = 1; ping <= 4; ++ping) {
        EXPECT_EQ(ask("ping").type, "auth request");
        // The line follows the answer out, so it may arrive a moment after it.
        const auto expected = static_cast<qsizetype>(std::min(ping, 3));
        EXPECT_TRUE(testing_support::waitUntil([&] { return announcements().size() == expected; }));
    }
    QThread::msleep(200);  // a line that should not come would be here by now
    EXPECT_EQ(announcements(),
              (QStringList{"answered ping 1", "answered ping 2", "answered ping 3"}));

    restart();
    EXPECT_EQ(ask("ping").type, "auth request");
    QThread::msleep(200);
    EXPECT_TRUE(announcements().isEmpty());
}

}  // namespace
