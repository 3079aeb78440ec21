#include "instance_activation.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QThread>
#include <QVariantMap>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kApplicationInterface = u"org.freedesktop.Application"_s;

// Errors a caller meets while the other copy holds the name but has not yet put its
// object on the bus.
bool isNotReadyYet(const QDBusError& error) {
    return error.type() == QDBusError::UnknownObject ||
           error.type() == QDBusError::UnknownInterface ||
           error.type() == QDBusError::UnknownMethod;
}

class FreedesktopApplicationAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Application")

public:
    explicit FreedesktopApplicationAdaptor(ApplicationActivation* activation)
        : QDBusAbstractAdaptor(activation), activation_(activation) {}

public slots:
    void Activate(const QVariantMap& platformData) {
        Q_UNUSED(platformData);
        emit activation_->activateRequested();
    }
    void Open(const QStringList& uris, const QVariantMap& platformData) {
        Q_UNUSED(uris);
        Activate(platformData);
    }
    void ActivateAction(const QString& name, const QVariantList& parameter,
                        const QVariantMap& platformData) {
        Q_UNUSED(parameter);
        Q_UNUSED(platformData);
        activation_->refuseAction(name);
    }

private:
    ApplicationActivation* activation_;
};

}  // namespace

QString ApplicationBusName() {
    return u"app.brisvane.Brisvane"_s;
}

QString ApplicationObjectPath() {
    return u"/app/brisvane/Brisvane"_s;
}

bool ClaimApplicationBusName() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.registerService(ApplicationBusName());
}

bool ActivateRunningInstance(std::chrono::milliseconds patience) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return false;
    }
    QDBusMessage activate = QDBusMessage::createMethodCall(
        ApplicationBusName(), ApplicationObjectPath(), kApplicationInterface, u"Activate"_s);
    activate << QVariantMap();
    QElapsedTimer waited;
    waited.start();
    // Blocking is fine here: this copy has nothing to show and ends right after.
    for (;;) {
        const auto left = static_cast<int>(patience.count() - waited.elapsed());
        const QDBusMessage reply = bus.call(activate, QDBus::Block, qMax(left, 1));
        if (reply.type() == QDBusMessage::ReplyMessage) {
            return true;
        }
        if (!isNotReadyYet(QDBusError(reply)) || waited.elapsed() >= patience.count()) {
            return false;
        }
        QThread::msleep(50);
    }
}

ApplicationActivation::ApplicationActivation(QObject* parent) : QObject(parent) {
    new FreedesktopApplicationAdaptor(this);
    QDBusConnection bus = QDBusConnection::sessionBus();
    isListening_ = bus.isConnected() && bus.registerObject(ApplicationObjectPath(), this,
                                                           QDBusConnection::ExportAdaptors);
}

ApplicationActivation::~ApplicationActivation() {
    if (isListening_) {
        QDBusConnection::sessionBus().unregisterObject(ApplicationObjectPath());
    }
}

void ApplicationActivation::refuseAction(const QString& name) {
    sendErrorReply(QDBusError::NotSupported, u"brisvane has no action named \"%1\""_s.arg(name));
}

#include "instance_activation.moc"
