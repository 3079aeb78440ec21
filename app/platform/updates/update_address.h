#pragma once

#include <QUrl>

// Feeds and archives come over https only. Plain http is accepted for the loopback interface,
// where nothing travels over a network (a local test server).
bool IsAllowedUpdateAddress(const QUrl& address);
