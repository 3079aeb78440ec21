// Round trips of sealed pings through PollManager against the demo helper, next to
// a floor measured in the same run: keep-alive POSTs of the same bytes to a bare
// echo endpoint, with no sealing or opening.
//
//   roundtrip [--count N] [--stress]
//
// --stress repeats both measurements while stress-ng loads every core.

#include <QCoreApplication>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <optional>
#include <thread>
#include <vector>

#include "poll_manager/poll_manager.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Figures {
    std::vector<double> microseconds;
    int accepted = 0;
    int total = 0;

    double percentile(double p) {
        std::sort(microseconds.begin(), microseconds.end());
        const auto index =
            static_cast<std::size_t>(p * static_cast<double>(microseconds.size() - 1));
        return microseconds[index];
    }
};

// Answers carry millisecond timestamps that must strictly increase, so the
// helper never seals two in one millisecond; pings start 2 ms apart so that this
// rule never adds to a round trip (the application pings every 100 ms).
constexpr auto kPingSpacing = std::chrono::milliseconds(2);

template <typename Send>
Figures measure(int count, Send send) {
    Figures figures;
    figures.total = count;
    auto next = Clock::now();
    for (int i = 0; i < count; ++i) {
        std::this_thread::sleep_until(next);
        const auto start = Clock::now();
        next = start + kPingSpacing;
        const bool ok = send();
        figures.microseconds.push_back(
            std::chrono::duration<double, std::micro>(Clock::now() - start).count());
        figures.accepted += ok ? 1 : 0;
    }
    return figures;
}

template <typename T>
bool succeeded(QFuture<T> future) {
    future.waitForFinished();
    try {
        (void)future.result();
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

// A helper under PollManager supervision, as the application runs it.
class Helper {
public:
    explicit Helper(const QString& stateHome) {
        qputenv("XDG_STATE_HOME", stateHome.toUtf8());
        pm.processManager().addPIDAsArgument(QStringLiteral("pid"));
        pm.processManager().addArgument(QStringLiteral("token"), pm.kes().LocalPublicKey());
        port = pm.randomOpenPort(20000, 60000);
        pm.processManager().addArgument(QStringLiteral("port"), port);
        supervision_ = std::thread([this] {
            pm.subscribeWithBinary(QStringLiteral(BRISVANE_DEMO_HELPER), true, true, 0, {}, {}, {});
        });
    }
    ~Helper() {
        pm.processManager().cancelNow();
        supervision_.join();
    }

    bool waitForKey() {
        for (int i = 0; i < 10000; ++i) {
            try {
                if (!pm.kes().ExternalPublicKey().isEmpty()) {
                    return true;
                }
            } catch (const std::system_error&) {
            }
            QThread::msleep(1);
        }
        return false;
    }

    PollManager pm;
    std::int64_t port = 0;

private:
    std::thread supervision_;
};

void report(const char* label, Figures sealed, Figures floor) {
    const double sealedMedian = sealed.percentile(0.5);
    const double floorMedian = floor.percentile(0.5);
    std::printf("%s\n", label);
    std::printf(
        "  sealed ping via PollManager: median %7.1f us  p99 %7.1f us  accepted %d/%d (%.2f %%)\n",
        sealedMedian, sealed.percentile(0.99), sealed.accepted, sealed.total,
        100.0 * sealed.accepted / sealed.total);
    std::printf("  bare keep-alive POST (floor): median %7.1f us  p99 %7.1f us\n", floorMedian,
                floor.percentile(0.99));
    std::printf("  ratio sealed/floor: median %.2fx\n", sealedMedian / floorMedian);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    int count = 5000;
    bool stress = false;
    const QStringList args = app.arguments();
    for (int i = 1; i < args.size(); ++i) {
        if (args[i] == QLatin1String("--count") && i + 1 < args.size()) {
            count = args[++i].toInt();
        } else if (args[i] == QLatin1String("--stress")) {
            stress = true;
        }
    }

    QTemporaryDir stateHome;
    Helper helper(stateHome.path());
    if (!helper.waitForKey()) {
        std::fprintf(stderr, "the demo helper never printed its key\n");
        return 1;
    }

    QProcess echo;
    echo.start(QStringLiteral(BRISVANE_ECHO_SERVER), {});
    if (!echo.waitForStarted() || !echo.waitForReadyRead()) {
        std::fprintf(stderr, "the echo endpoint did not start\n");
        return 1;
    }
    const int echoPort = echo.readLine().trimmed().toInt();

    const KeyExchangeTypeIDAndData ping{QStringLiteral("ping"), QString(), QStringLiteral("[]")};
    const QString path = QStringLiteral("/request");
    const KeyExchangeAEADStore sameBytes =
        helper.pm.kes().encodeJSONAndEncrypt(ping, KeyExchangeCurrentTimestampData());
    const QUrl echoURL = PollManager::LocalURL(echoPort, QStringLiteral("/echo"));

    auto sealedRound = [&] { return succeeded(helper.pm.request(ping, helper.port, path)); };
    auto floorRound = [&] {
        return succeeded(helper.pm.publishWithURL(sameBytes, echoURL, helper.pm.bearerToken()));
    };

    std::printf("request body %lld bytes, %d round trips each\n",
                static_cast<long long>(JSONEncode(sameBytes).size()), count);
    measure(200, sealedRound);
    measure(200, floorRound);
    report("idle machine", measure(count, sealedRound), measure(count, floorRound));

    if (stress) {
        QProcess load;
        load.start(QStringLiteral("stress-ng"),
                   {QStringLiteral("--cpu"), QString::number(QThread::idealThreadCount()),
                    QStringLiteral("--quiet")});
        if (!load.waitForStarted()) {
            std::fprintf(stderr, "stress-ng is not available\n");
            return 1;
        }
        QThread::sleep(1);
        report("under stress-ng --cpu load", measure(count, sealedRound),
               measure(count, floorRound));
        load.terminate();
        load.waitForFinished();
    }
    echo.kill();
    echo.waitForFinished();
    return 0;
}
