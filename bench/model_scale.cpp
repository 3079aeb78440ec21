// CPU time of one poll cycle on the application's side as the number of watched
// folders grows: opening the helper's sealed answer, reading it, merging it into
// the model, and sealing the next ping that carries the folders back.
//
//   model_scale [--cycles N]
//
// Three kinds of answer per size: "steady" repeats the same report (a settled
// library), "scanning" gives one folder in a hundred a new status each cycle,
// "all" changes every folder's status every cycle (the worst case). The
// helper's own sealing is not counted.

#include <time.h>

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "app/items_provider.h"

namespace {

double threadCPUMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
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
    std::vector<double> open, read, merge, ping, total;
};

void runSize(int size, Answers answers, int cycles) {
    // A model of its own per run, so every run starts from an empty library.
    QTemporaryDir home;
    for (const char* name : {"XDG_CONFIG_HOME", "XDG_STATE_HOME", "XDG_RUNTIME_DIR"}) {
        const QString folder = QDir(home.path()).filePath(QString::fromLatin1(name));
        QDir().mkpath(folder);
        qputenv(name, folder.toUtf8());
    }
    ItemsProvider model;
    PollManager& pm = model.pm();

    auto helperStore = KeyExchange_Curve25519_SHA256_HKDF_AESGCM();
    auto appStore = KeyExchange_Curve25519_SHA256_HKDF_AESGCM();
    helperStore->setExternalPublicKey(appStore->LocalPublicKey());
    appStore->setExternalPublicKey(helperStore->LocalPublicKey());
    std::int64_t sealedAt = KeyExchangeCurrentTimestamp();
    pm.setClock([&sealedAt] { return sealedAt; });
    const auto auth = [&pm](const QString& data) { return pm.authTimestamp(data); };
    HelperAnswerReader reader;

    Stages stages;
    for (int cycle = 0; cycle < cycles + 1; ++cycle) {
        ++sealedAt;
        const QByteArray answer = JSONEncode(helperStore->encrypt(
            JSONEncode(library(size, cycle, answers)), QByteArray::number(sealedAt)));

        const double start = threadCPUMicroseconds();
        const QByteArray opened = pm.decryptJSONText(answer, *appStore, auth);
        const double openedAt = threadCPUMicroseconds();
        const HelperAnswer read = reader.read(opened);
        const double readAt = threadCPUMicroseconds();
        model.applyAnswer(read);
        const double mergedAt = threadCPUMicroseconds();
        const QByteArray ping =
            JSONEncode(appStore->encrypt(model.pingMessage(), KeyExchangeCurrentTimestampData()));
        const double pingedAt = threadCPUMicroseconds();

        if (model.dirItems().size() != size || ping.isEmpty()) {
            std::fprintf(stderr, "model_scale: the model did not take the answer\n");
            std::exit(1);
        }
        if (cycle == 0) {
            continue;  // the first cycle fills the library; the rest are the steady state
        }
        stages.open.push_back(openedAt - start);
        stages.read.push_back(readAt - openedAt);
        stages.merge.push_back(mergedAt - readAt);
        stages.ping.push_back(pingedAt - mergedAt);
        stages.total.push_back(pingedAt - start);
    }
    std::printf("%7d  %-8s  %9.0f  %9.0f  %9.0f  %9.0f  %11.0f  %8.2f\n", size,
                answers == Answers::steady     ? "steady"
                : answers == Answers::scanning ? "scanning"
                                               : "all",
                median(stages.open), median(stages.read), median(stages.merge), median(stages.ping),
                median(stages.total), median(stages.total) / size);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    int cycles = 31;
    for (int index = 1; index + 1 < argc; ++index) {
        if (std::strcmp(argv[index], "--cycles") == 0) {
            cycles = std::max(1, std::atoi(argv[index + 1]));
        }
    }
    // The model runs a helper of its own; a silent one keeps its pings away.
    qputenv("BRISVANE_DEMO_SILENT", "1");

    std::printf(
        "CPU time per poll cycle on the GUI and transport side, medians of %d cycles (µs)\n",
        cycles);
    std::printf(
        "folders  answer    open       read       merge      next ping  cycle total  µs/folder\n");
    for (const int size : {10, 1000, 10000}) {
        for (const Answers answers : {Answers::steady, Answers::scanning, Answers::all}) {
            runSize(size, answers, cycles);
        }
    }
    std::printf("goal: under 5000 µs per cycle at 10000 folders\n");
    return 0;
}
