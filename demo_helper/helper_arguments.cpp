#include "helper_arguments.h"

#include <limits>

namespace {

// The value of the first element "-name=value", if there is one.
std::optional<QString> valueOf(const QStringList& elements, QLatin1StringView name) {
    const QString prefix = u'-' + name + u'=';
    for (const QString& element : elements) {
        if (element.startsWith(prefix)) {
            return element.mid(prefix.size());
        }
    }
    return std::nullopt;
}

}  // namespace

ParsedHelperArguments ParseHelperArguments(const QStringList& elements) {
    HelperArguments arguments;

    const std::optional<QString> token = valueOf(elements, QLatin1StringView("token"));
    if (!token || token->isEmpty()) {
        return {std::nullopt, QStringLiteral("missing -token=<the application's public key>")};
    }
    arguments.token = *token;

    const std::optional<QString> port = valueOf(elements, QLatin1StringView("port"));
    if (!port) {
        return {std::nullopt, QStringLiteral("missing -port=<loopback port>")};
    }
    bool isNumber = false;
    arguments.port = port->toInt(&isNumber);
    if (!isNumber || arguments.port < 1 || arguments.port > 65535) {
        return {std::nullopt, QStringLiteral("-port is not a port number: ") + *port};
    }

    if (const std::optional<QString> pid = valueOf(elements, QLatin1StringView("pid"))) {
        const qlonglong value = pid->toLongLong(&isNumber);
        if (!isNumber || value < 1 || value > std::numeric_limits<pid_t>::max()) {
            return {std::nullopt, QStringLiteral("-pid is not a process id: ") + *pid};
        }
        arguments.parentPid = static_cast<pid_t>(value);
    }
    return {arguments, {}};
}
