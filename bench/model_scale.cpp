// CPU time of one poll cycle on the application's side as the number of watched
// folders grows: opening the helper's sealed answer, reading it, merging it into
// the model, and sealing the next ping that carries the folders back. Then, at the
// largest size, how much of an answer's 10 ms freshness window the application takes
// on real loopback sockets, and the peak resident memory of it all.
//
//   model_scale [--cycles N] [--answers N]
//
// Three kinds of answer per size: "steady" repeats the same report (a settled
// library), "scanning" gives one folder in a hundred a new status each cycle,
// "all" changes every folder's status every cycle (the worst case). The
// helper's own sealing is not counted; the model talks to a stand-in for it, and the
// next ping's stage is its building from the model's folders and its sealing, on the
// transport thread.

#include <time.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "app/items_provider.h"
#include "bare_http.h"

namespace {

double threadCPUMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(p * static_cast<double>(values.size() - 1))];
}

double median(std::vector<double> values) {
    return percentile(std::move(values), 0.5);
}

enum class Answers { steady, scanning, all };

QList<DirItem> library(int size, int cycle, Answers answers) {
    static const char* const stages[] = {
        "1 of 6 Listing files", "2 of 6 Hashing files", "3 of 6 Comparing", "4 of 6 Uploading",
        "5 of 6 Confirming",    "6 of 6 Finishing",     "Up to date"};
    QList<DirItem> items;
    items.reserve(size);
    for (int index = 0; index < size; ++index) {
        const bool changes =
            answers == Answers::all || (answers == Answers::scanning && index % 100 == cycle % 100);
        const int stage = changes ? (index + cycle) % 7 : 6;
        items.append({.error = std::nullopt,
                      .enabled = true,
                      .groupID = 4611686018427387917,
                      .name = QStringLiteral("Album %1").arg(index, 5, 10, QLatin1Char('0')),
                      .path = QStringLiteral("/home/ada/Pictures/Archive/%1/Album %2")
                                  .arg(2000 + index % 25)
                                  .arg(index, 5, 10, QLatin1Char('0')),
                      .status = QString::fromLatin1(stages[stage])});
    }
    return items;
}

struct Stages {
    std::vector<double> open, read, ping, total;
};

void runSize(int size, Answers answers, int cycles) {
    // The model's helper is a stand-in: each request other than a ping is answered at once
    // with the text of this cycle's answer, and each ping is sealed as the transport seals
    // it, which is the last stage of a cycle.
    auto appStore = KeyExchange_Curve25519_SHA256_HKDF_AESGCM();
    auto helperStore = KeyExchange_Curve25519_SHA256_HKDF_AESGCM();
    helperStore->setExternalPublicKey(appStore->LocalPublicKey());
    appStore->setExternalPublicKey(helperStore->LocalPublicKey());
    QByteArray answerText;
    // The pings come from the transport thread. A ping's stage is that thread's CPU time from
    // the end of the exchange before it to the end of its sealing: building it from the
    // model's folders, when they changed, and sealing it.
    std::mutex pingLock;
    QByteArray sealedPingJSON;
    double pingStage = 0;
    std::optional<double> lastExchangeEnd;
    ItemsProviderCollaborators collaborators;
    collaborators.choosePort = [](std::int64_t lower, std::int64_t) { return lower; };
    collaborators.isLaunchAtLoginEnabled = [] { return true; };
    collaborators.setLaunchAtLogin = [](bool) {};
    collaborators.exitIfAlreadyOpen = [] {};
    collaborators.exchange = [&](const QByteArray& json) {
        if (!json.startsWith(R"({"Type":"ping")")) {
            return QtFuture::makeReadyFuture(answerText);
        }
        (void)appStore->encryptToJSON(json, KeyExchangeCurrentTimestampData());
        const double sealedAt = threadCPUMicroseconds();
        {
            std::lock_guard lock(pingLock);
            pingStage = lastExchangeEnd ? sealedAt - *lastExchangeEnd : 0;
            sealedPingJSON = json;
        }
        // Failed, as a transport fails: the next ping follows 0.1 s later.
        auto failed = QtFuture::makeExceptionalFuture<QByteArray>(
            std::make_exception_ptr(std::system_error(TransportError::timedOut)));
        lastExchangeEnd = threadCPUMicroseconds();
        return failed;
    };
    ItemsProvider model(collaborators);

    PollManager pm;
    std::int64_t sealedAt = KeyExchangeCurrentTimestamp();
    pm.setClock([&sealedAt] { return sealedAt; });
    const auto auth = [&pm](const QString& data) { return pm.authTimestamp(data); };

    Stages stages;
    for (int cycle = 0; cycle < cycles + 1; ++cycle) {
        ++sealedAt;
        const QByteArray answer = helperStore->encryptToJSON(
            JSONEncode(library(size, cycle, answers)), QByteArray::number(sealedAt));

        const double start = threadCPUMicroseconds();
        answerText = pm.decryptJSONText(answer, *appStore, auth);
        const double openedAt = threadCPUMicroseconds();
        QFuture<void> applied = model.publishAndWait(QStringLiteral("getGroups"), {}, {});
        while (!applied.isFinished()) {
            QCoreApplication::processEvents();
        }
        const double mergedAt = threadCPUMicroseconds();
        // The first ping built from the folders as merged; one on its way during the merge
        // still carries the ones before.
        const QByteArray expectedPing = JSONEncode(TypeIDAndData{
            QStringLiteral("ping"), QString(), QString::fromUtf8(JSONEncode(model.dirItems()))});
        double pingCPU = 0;
        for (bool seen = false; !seen;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            std::lock_guard lock(pingLock);
            seen = sealedPingJSON == expectedPing;
            pingCPU = pingStage;
        }
        {
            std::lock_guard lock(pingLock);
            sealedPingJSON.clear();
        }

        if (model.dirItems().size() != size) {
            std::fprintf(stderr, "model_scale: the model did not take the answer\n");
            std::exit(1);
        }
        if (cycle == 0) {
            continue;  // the first cycle fills the library; the rest are the steady state
        }
        stages.open.push_back(openedAt - start);
        stages.read.push_back(mergedAt - openedAt);
        stages.ping.push_back(pingCPU);
        stages.total.push_back(mergedAt - start + pingCPU);
    }
    std::printf("%7d  %-8s  %9.0f  %12.0f  %9.0f  %11.0f  %8.2f\n", size,
                answers == Answers::steady     ? "steady"
                : answers == Answers::scanning ? "scanning"
                                               : "all",
                median(stages.open), median(stages.read), median(stages.ping), median(stages.total),
                median(stages.total) / size);
}

// From the moment a server thread starts writing a freshly sealed answer of `size`
// folders to a loopback socket, to the end of the freshness check that
// PollManager::requestJSONText runs on it: the part of the answer's 10 ms that is the
// application's. The check reads PollManager's clock last of all, so that reading
// marks its end. Requests go 100 ms apart, as the application's pings do, each the
// ping that carries the same folders back.
void freshnessWindow(int size, int answers) {
    const auto serverStore = KeyExchange_Curve25519_SHA256_HKDF_AESGCM();
    const QString serverKey = serverStore->LocalPublicKey();
    bare::Clock::time_point checkedAt;
    PollManager pm([&serverKey] {
        auto store = KeyExchange_Curve25519_SHA256_HKDF_AESGCM();
        store->setExternalPublicKey(serverKey);
        return store;
    });
    serverStore->setExternalPublicKey(pm.kes().LocalPublicKey());
    pm.setClock([&checkedAt] {
        checkedAt = bare::Clock::now();
        return KeyExchangeCurrentTimestamp();
    });

    const QByteArray folders = JSONEncode(library(size, 0, Answers::steady));
    // Sealed when asked, with the time of sealing: 100 ms between requests keep
    // every answer's millisecond its own.
    std::size_t answerBytes = 0;
    bare::Server server([&](std::string_view) {
        // Sealed as the helper seals: straight to the envelope's JSON text.
        std::string answer =
            serverStore->encryptToJSON(folders, KeyExchangeCurrentTimestampData()).toStdString();
        answerBytes = answer.size();
        return answer;
    });
    std::thread serving([&server] { server.serve(); });
    const QByteArray ping = JSONEncode(
        KeyExchangeTypeIDAndData{QStringLiteral("ping"), QString(), QString::fromUtf8(folders)});

    std::vector<double> microseconds;
    int accepted = 0;
    for (int index = 0; index < answers; ++index) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        checkedAt = {};
        QFuture<QByteArray> answer =
            pm.requestJSONText(ping, server.port(), QStringLiteral("/request"));
        try {
            // Rethrows a failed request's exception, as result() does.
            answer.waitForFinished();
            accepted += answer.result() == folders ? 1 : 0;
        } catch (const std::exception&) {
            // Stale, or not opened: counted as not accepted.
        }
        if (checkedAt != bare::Clock::time_point{}) {
            microseconds.push_back(
                std::chrono::duration<double, std::micro>(checkedAt - server.lastWriteStarted())
                    .count());
        }
    }
    server.stop();
    serving.join();

    std::printf(
        "\nthe application's share of the freshness window at %d folders: from the first byte "
        "of a sealed answer (%zu bytes) written to a loopback socket to the end of "
        "requestJSONText's freshness check, %d answers 100 ms apart\n",
        size, answerBytes, answers);
    if (microseconds.empty()) {
        std::printf("  no answer reached the freshness check\n");
    } else {
        std::printf("  median %7.0f µs  p99 %7.0f µs  accepted %d/%d (%.2f %%)\n",
                    median(microseconds), percentile(microseconds, 0.99), accepted, answers,
                    100.0 * accepted / answers);
    }
    std::printf("goal: under 3 ms\n");
}

// VmHWM of this process in MB (10^6 bytes), from /proc/self/status.
double peakResidentMB() {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly)) {
        return 0.0;
    }
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:")) {
            return line.mid(6).trimmed().split(' ').first().toDouble() * 1024.0 / 1e6;
        }
    }
    return 0.0;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    int cycles = 31;
    int windowAnswers = 200;
    for (int index = 1; index + 1 < argc; ++index) {
        if (std::strcmp(argv[index], "--cycles") == 0) {
            cycles = std::max(1, std::atoi(argv[index + 1]));
        } else if (std::strcmp(argv[index], "--answers") == 0) {
            windowAnswers = std::max(1, std::atoi(argv[index + 1]));
        }
    }
    std::printf(
        "CPU time per poll cycle on the GUI and transport side, medians of %d cycles (µs)\n",
        cycles);
    std::printf("folders  answer    open       read+merge    next ping  cycle total  µs/folder\n");
    for (const int size : {10, 1000, 10000}) {
        for (const Answers answers : {Answers::steady, Answers::scanning, Answers::all}) {
            runSize(size, answers, cycles);
        }
    }
    std::printf("goal: under 3000 µs per steady cycle at 10000 folders\n");

    freshnessWindow(10000, windowAnswers);
    std::printf("\npeak resident memory (VmHWM) after the 10000-folder runs: %.1f MB\n",
                peakResidentMB());
    std::printf("goal: at most 150 MB\n");
    return 0;
}
