#pragma once

// States that the package's own callers cannot produce from well-formed data end the program
// here instead of being reported, with the line "key exchange fatal error: <reason>".

#include <QByteArray>
#include <QByteArrayView>
#include <QStringView>

inline constexpr char16_t kKeyExchangeStopHeading[] = u"key exchange fatal error";

// Base64 text that only a well-formed envelope can hold, decoded; any other text stops the
// program for the reason given.
QByteArray DecodeBase64OrStop(QStringView text, const char* reason);
QByteArray DecodeBase64OrStop(QByteArrayView text, const char* reason);
