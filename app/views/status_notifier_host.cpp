#include "status_notifier_host.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QGuiApplication>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kWatcherService = u"org.kde.StatusNotifierWatcher"_s;
const QString kWatcherPath = u"/StatusNotifierWatcher"_s;
// A watcher that does not answer this quickly is taken as no host at all.
constexpr int kAnswerTimeoutMs = 2000;

}  // namespace

StatusNotifierHostWatch::StatusNotifierHostWatch(QObject* parent)
    : QObject(parent),
      watcherAppears_(kWatcherService, QDBusConnection::sessionBus(),
                      QDBusServiceWatcher::WatchForRegistration) {
    connect(&watcherAppears_, &QDBusServiceWatcher::serviceRegistered, this,
            &StatusNotifierHostWatch::ask);
    // A watcher takes its name before its host registers with it.
    QDBusConnection::sessionBus().connect(kWatcherService, kWatcherPath, kWatcherService,
                                          u"StatusNotifierHostRegistered"_s, this, SLOT(ask()));
}

void StatusNotifierHostWatch::ask() {
    QDBusMessage get = QDBusMessage::createMethodCall(
        kWatcherService, kWatcherPath, u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
    get << kWatcherService << u"IsStatusNotifierHostRegistered"_s;
    auto* call = new QDBusPendingCallWatcher(
        QDBusConnection::sessionBus().asyncCall(get, kAnswerTimeoutMs), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* done) {
        const QDBusPendingReply<QDBusVariant> reply = *done;
        done->deleteLater();
        emit answered(reply.isValid() && reply.value().variant().toBool());
    });
}

bool IsWaylandSession() {
    return QGuiApplication::platformName().startsWith(u"wayland"_s);
}
