#pragma once

// The demo helper's command line, as the application builds it: single elements
// "-name=value", in any order.

#include <sys/types.h>

#include <QString>
#include <QStringList>
#include <optional>

struct HelperArguments {
    std::optional<pid_t> parentPid;  // -pid=, the application that started us
    QString token;                   // -token=, the application's public key text
    int port = 0;                    // -port=, the loopback port to listen on
};

struct ParsedHelperArguments {
    std::optional<HelperArguments> arguments;
    QString problem;  // why there are none, for standard error
};

// Unknown elements are ignored; a missing or malformed token or port is a problem.
ParsedHelperArguments ParseHelperArguments(const QStringList& elements);
