// Round trips of sealed pings through PollManager against the demo helper, beside a
// floor measured in the same run: the same sealed bytes POSTed over a kept-alive
// connection by a bare socket client (one write, one blocking read) to bare_echo, a
// bare socket server in a process of its own, as the helper is. The floor has no
// event loop, no hand-over between threads and no sealing, so the gap between the
// two is what the application's transport and cryptography cost.
//
// Two sealed kinds: the request loop's pings, which is how the application pings, timed
// on the transport thread from the loop asking for the ping to the answer opened and found
// fresh; and a request made from another thread and waited for there, as a view's request
// is, which adds two hand-overs between threads.
//
//   roundtrip [--count N] [--stress] [--interval-ms N] [--paced-count N]
//
// Back to back, pings start 2 ms apart (N round trips of each kind, default 5000).
// --interval-ms also paces them the way the application does (100: ten a second, with
// the caches gone cold in between), for --paced-count round trips of each kind
// (default 300). --stress repeats everything while stress-ng --cpu 2 loads the machine.

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "bare_http.h"
#include "poll_manager/poll_manager.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Figures {
    std::vector<double> microseconds;
    int accepted = 0;

    double percentile(double p) const {
        std::vector<double> sorted = microseconds;
        std::sort(sorted.begin(), sorted.end());
        return sorted[static_cast<std::size_t>(p * static_cast<double>(sorted.size() - 1))];
    }
    double acceptedPercent() const {
        return 100.0 * accepted / static_cast<double>(microseconds.size());
    }
};

// Answers carry millisecond timestamps that must strictly increase, so the
// helper never seals two in one millisecond; pings start 2 ms apart so that this
// rule never adds to a round trip (the application pings every 100 ms).
constexpr auto kPingSpacing = std::chrono::milliseconds(2);
// The two kinds take turns in blocks of this many, so that a change of load on the
// shared machine falls on both alike.
constexpr int kBlock = 250;

template <typename Send>
void measure(Figures& figures, int count, Clock::duration spacing, Send send) {
    auto next = Clock::now();
    for (int i = 0; i < count; ++i) {
        std::this_thread::sleep_until(next);
        const auto start = Clock::now();
        next = start + spacing;
        const bool ok = send();
        figures.microseconds.push_back(
            std::chrono::duration<double, std::micro>(Clock::now() - start).count());
        figures.accepted += ok ? 1 : 0;
    }
}

// `count` more of the request loop's round trips, each `spacing` after the one before ended.
void measureLoop(Figures& figures, int count, Clock::duration spacing, PollManager& pm,
                 std::int64_t port, const QString& path, const QByteArray& pingJSON) {
    struct Rounds {
        std::mutex lock;
        std::condition_variable done;
        Clock::time_point start;
        Figures figures;
        int wanted = 0;
    };
    auto rounds = std::make_shared<Rounds>();
    rounds->wanted = count;
    pm.startRequestLoop(
        port, path,
        {.interval = std::chrono::duration_cast<std::chrono::milliseconds>(spacing),
         .message =
             [rounds, pingJSON] {
                 rounds->start = Clock::now();
                 return pingJSON;
             },
         .answered =
             [rounds](std::optional<QByteArray> answer) {
                 const auto end = Clock::now();
                 std::lock_guard lock(rounds->lock);
                 if (static_cast<int>(rounds->figures.microseconds.size()) < rounds->wanted) {
                     rounds->figures.microseconds.push_back(
                         std::chrono::duration<double, std::micro>(end - rounds->start).count());
                     rounds->figures.accepted += answer ? 1 : 0;
                 }
                 rounds->done.notify_one();
             }});
    std::unique_lock lock(rounds->lock);
    rounds->done.wait(lock, [&] {
        return static_cast<int>(rounds->figures.microseconds.size()) >= rounds->wanted;
    });
    pm.stopRequestLoop();
    figures.microseconds.insert(figures.microseconds.end(), rounds->figures.microseconds.begin(),
                                rounds->figures.microseconds.end());
    figures.accepted += rounds->figures.accepted;
}

struct Comparison {
    Figures loop;
    Figures request;
    Figures floor;
};

template <typename Loop, typename Request, typename Floor>
Comparison compare(int count, Clock::duration spacing, Loop loopRounds, Request requestRound,
                   Floor floorRound) {
    Comparison comparison;
    for (int done = 0; done < count; done += kBlock) {
        const int block = std::min(kBlock, count - done);
        loopRounds(comparison.loop, block, spacing);
        measure(comparison.request, block, spacing, requestRound);
        measure(comparison.floor, block, spacing, floorRound);
    }
    return comparison;
}

template <typename T>
bool succeeded(QFuture<T> future) {
    try {
        // Rethrows a failed request's exception, as result() does.
        future.waitForFinished();
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

// stress-ng loading both cores for as long as it lives. Ended with SIGTERM, which
// stress-ng passes on to its workers; a SIGKILL would leave them spinning.
class CpuLoad {
public:
    CpuLoad() {
        load_.start(QStringLiteral("stress-ng"),
                    {QStringLiteral("--cpu"), QStringLiteral("2"), QStringLiteral("--quiet")});
    }
    ~CpuLoad() {
        load_.terminate();
        load_.waitForFinished();
    }
    bool started() { return load_.waitForStarted(); }

private:
    QProcess load_;
};

void report(const std::string& label, int count, const Comparison& figures) {
    const Figures& floor = figures.floor;
    std::printf("%s, %d round trips each\n", label.c_str(), count);
    const auto sealed = [&](const char* kind, const Figures& kindFigures) {
        std::printf("  %-30s median %7.1f µs  p99 %7.1f µs  accepted %.2f %%\n", kind,
                    kindFigures.percentile(0.5), kindFigures.percentile(0.99),
                    kindFigures.acceptedPercent());
    };
    sealed("sealed ping, request loop:", figures.loop);
    sealed("sealed request, other thread:", figures.request);
    std::printf("  %-30s median %7.1f µs  p99 %7.1f µs\n",
                "bare socket floor:", floor.percentile(0.5), floor.percentile(0.99));
    std::printf("  %-30s median %7.2fx    p99 %7.2fx\n",
                "ratio loop/floor:", figures.loop.percentile(0.5) / floor.percentile(0.5),
                figures.loop.percentile(0.99) / floor.percentile(0.99));
    std::fflush(stdout);
}

struct Options {
    int count = 5000;
    bool stress = false;
    int intervalMs = 0;
    int pacedCount = 300;
};

Options parse(const QStringList& args) {
    Options options;
    for (int i = 1; i < args.size(); ++i) {
        const bool hasValue = i + 1 < args.size();
        if (args[i] == QLatin1String("--count") && hasValue) {
            options.count = std::max(1, args[++i].toInt());
        } else if (args[i] == QLatin1String("--stress")) {
            options.stress = true;
        } else if (args[i] == QLatin1String("--interval-ms") && hasValue) {
            options.intervalMs = std::max(0, args[++i].toInt());
        } else if (args[i] == QLatin1String("--paced-count") && hasValue) {
            options.pacedCount = std::max(1, args[++i].toInt());
        } else {
            std::fprintf(stderr,
                         "usage: roundtrip [--count N] [--stress] [--interval-ms N] "
                         "[--paced-count N]\n");
            std::exit(2);
        }
    }
    return options;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const Options options = parse(app.arguments());

    QTemporaryDir stateHome;
    Helper helper(stateHome.path());
    if (!helper.waitForKey()) {
        std::fprintf(stderr, "the demo helper never printed its key\n");
        return 1;
    }

    QProcess echo;
    echo.start(QStringLiteral(BRISVANE_BARE_ECHO), {});
    if (!echo.waitForStarted() || !echo.waitForReadyRead()) {
        std::fprintf(stderr, "the bare echo server did not start\n");
        return 1;
    }
    const int echoPort = echo.readLine().trimmed().toInt();

    const KeyExchangeTypeIDAndData ping{QStringLiteral("ping"), QString(), QStringLiteral("[]")};
    const QString path = QStringLiteral("/request");
    const QByteArray sameBytes =
        JSONEncode(helper.pm.kes().encodeJSONAndEncrypt(ping, KeyExchangeCurrentTimestampData()));
    const std::string_view floorBody(sameBytes.constData(),
                                     static_cast<std::size_t>(sameBytes.size()));

    try {
        bare::Client floorClient(echoPort, path.toStdString(),
                                 helper.pm.kes().LocalPublicKey().toStdString());
        const QByteArray pingJSON = JSONEncode(ping);
        auto loopRounds = [&](Figures& figures, int count, Clock::duration spacing) {
            measureLoop(figures, count, spacing, helper.pm, helper.port, path, pingJSON);
        };
        auto requestRound = [&] { return succeeded(helper.pm.request(ping, helper.port, path)); };
        auto floorRound = [&] { return floorClient.post(floorBody).size() == floorBody.size(); };

        std::printf("request body %zu bytes, the same sealed bytes on both paths\n",
                    floorBody.size());
        compare(200, kPingSpacing, loopRounds, requestRound, floorRound);  // warm-up

        auto run = [&](const std::string& load) {
            report(load + ", back to back (pings 2 ms apart)", options.count,
                   compare(options.count, kPingSpacing, loopRounds, requestRound, floorRound));
            if (options.intervalMs > 0) {
                const Clock::duration interval = std::max<Clock::duration>(
                    kPingSpacing, std::chrono::milliseconds(options.intervalMs));
                report(load + ", paced every " + std::to_string(options.intervalMs) + " ms",
                       options.pacedCount,
                       compare(options.pacedCount, interval, loopRounds, requestRound, floorRound));
            }
        };
        run("idle machine");

        if (options.stress) {
            CpuLoad load;
            if (!load.started()) {
                std::fprintf(stderr, "stress-ng is not available (scripts/install-deps.sh)\n");
                return 1;
            }
            QThread::sleep(1);
            run("under stress-ng --cpu 2");
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "roundtrip: the floor failed: %s\n", error.what());
        return 1;
    }
    std::printf("goal: the request loop's sealed ping p99 under 300 µs\n");
    echo.kill();
    echo.waitForFinished();
    return 0;
}
