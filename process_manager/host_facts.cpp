#include "host_facts.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <QRandomGenerator>
#include <cstring>

#include "diagnostics/diagnostics.h"

QString UtsName::sMachine() {
    // The result of uname is deliberately not checked: a zeroed record reads as "".
    struct utsname name {};
    ::uname(&name);
    return QString::fromUtf8(name.machine,
                             static_cast<qsizetype>(::strnlen(name.machine, sizeof name.machine)));
}

bool UtsName::isAppleSilicon() {
    return sMachine() == QLatin1StringView("arm64");
}

QString SystemArchitecture() {
    return UtsName::sMachine();
}

bool IsOpenPort(std::int64_t port) {
    if (port < 0 || port > 65535) {
        Diagnostics::stop("IsOpenPort", QStringLiteral("port %1 is outside 0...65535").arg(port));
    }
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd == -1) {
        return false;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = ::inet_addr("0.0.0.0");
    // No SO_REUSEADDR: a port that anything still holds must read as taken.
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == -1) {
        // Left open on purpose: every busy port probed costs one descriptor until exit.
        return false;
    }
    const bool listening = ::listen(fd, 128) != -1;
    ::close(fd);
    return listening;
}

std::int64_t RandomOpenPort(std::int64_t lower, std::int64_t upper) {
    if (lower >= upper) {
        Diagnostics::stop("RandomOpenPort",
                          QStringLiteral("the range %1..<%2 is empty").arg(lower).arg(upper));
    }
    // Independent draws with no memory of tried ports and no limit: a range with
    // no free port never returns.
    for (;;) {
        const std::int64_t port = QRandomGenerator::global()->bounded(qint64{lower}, qint64{upper});
        if (IsOpenPort(port)) {
            return port;
        }
    }
}
