#include "update_address.h"

#include <QHostAddress>

bool IsAllowedUpdateAddress(const QUrl& address) {
    if (!address.isValid() || address.host().isEmpty()) {
        return false;
    }
    if (address.scheme() == u"https") {
        return true;
    }
    return address.scheme() == u"http" &&
           (address.host() == u"localhost" || QHostAddress(address.host()).isLoopback());
}
