// A child for the process manager's tests.
//   child_probe lock     a copy of the application: holds the instance lock until stdin closes
//   child_probe app      the same, and answers a second start: prints "activated" each time
//   child_probe stubborn a helper that ignores SIGTERM and waits for ever
//   child_probe HEX ...  writes each hex-coded chunk as one read of its own

#include <sys/ioctl.h>
#include <unistd.h>

#include <QByteArray>
#include <QCoreApplication>
#include <QSocketNotifier>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "process_manager/host_facts.h"
#include "process_manager/instance_activation.h"

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "app") == 0) {
        QCoreApplication application(argc, argv);
        ExitAppIfAlreadyOpen();
        ApplicationActivation activation;
        QObject::connect(&activation, &ApplicationActivation::activateRequested, [] {
            std::printf("activated\n");
            std::fflush(stdout);
        });
        std::printf(activation.isListening() ? "listening\n" : "not listening\n");
        std::fflush(stdout);
        QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
        QObject::connect(&input, &QSocketNotifier::activated, [] {
            char ignored = 0;
            if (::read(STDIN_FILENO, &ignored, 1) <= 0) {
                QCoreApplication::quit();
            }
        });
        return QCoreApplication::exec();
    }
    if (argc == 2 && std::strcmp(argv[1], "stubborn") == 0) {
        std::signal(SIGTERM, SIG_IGN);
        std::printf("ignoring SIGTERM\n");
        std::fflush(stdout);
        for (;;) {
            ::pause();
        }
    }
    if (argc == 2 && std::strcmp(argv[1], "lock") == 0) {
        const QCoreApplication application(argc, argv);
        ExitAppIfAlreadyOpen();
        std::printf("holding the instance lock\n");
        std::fflush(stdout);
        while (std::getchar() != EOF) {
        }
        return 0;
    }
    for (int i = 1; i < argc; ++i) {
        const QByteArray chunk = QByteArray::fromHex(argv[i]);
        (void)!::write(STDOUT_FILENO, chunk.data(), chunk.size());
        // The next write waits until the reader has taken this one.
        int pending = 0;
        while (::ioctl(STDOUT_FILENO, FIONREAD, &pending) == 0 && pending > 0) {
            ::usleep(1000);
        }
    }
    return 0;
}
