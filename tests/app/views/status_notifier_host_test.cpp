// The first tray icon on Wayland waits for a status-notifier host: a watcher alone is
// not one, since the watcher takes its name before its host registers with it.

#include "status_notifier_host.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

namespace {

// The tray's side of the bus, reduced to what the watch reads.
class FakeWatcher : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered MEMBER hostRegistered_)

public:
    explicit FakeWatcher(QDBusConnection bus) : bus_(std::move(bus)) {
        bus_.registerObject(
            QStringLiteral("/StatusNotifierWatcher"), this,
            QDBusConnection::ExportAllProperties | QDBusConnection::ExportAllSignals);
        bus_.registerService(QStringLiteral("org.kde.StatusNotifierWatcher"));
    }
    ~FakeWatcher() override {
        bus_.unregisterService(QStringLiteral("org.kde.StatusNotifierWatcher"));
        bus_.unregisterObject(QStringLiteral("/StatusNotifierWatcher"));
    }

    void registerHost() {
        hostRegistered_ = true;
        emit StatusNotifierHostRegistered();
    }

signals:
    void StatusNotifierHostRegistered();

private:
    QDBusConnection bus_;
    bool hostRegistered_ = false;
};

}  // namespace

class StatusNotifierHostTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        bus_.start(QStringLiteral("dbus-daemon"),
                   {QStringLiteral("--session"), QStringLiteral("--nofork"),
                    QStringLiteral("--print-address=1")});
        QVERIFY(bus_.waitForReadyRead(30'000));
        address_ = QString::fromUtf8(bus_.readLine().trimmed());
        // Before anything touches the session bus, which is connected once per process.
        qputenv("DBUS_SESSION_BUS_ADDRESS", address_.toUtf8());
        QVERIFY(QDBusConnection::sessionBus().isConnected());
    }
    void cleanupTestCase() {
        bus_.terminate();
        bus_.waitForFinished();
    }

    void aHostIsAwaitedThroughTheWatchersComingAndItsHostsRegistering() {
        StatusNotifierHostWatch watch;
        QSignalSpy answers(&watch, &StatusNotifierHostWatch::answered);
        watch.ask();
        QVERIFY(answers.wait());
        QCOMPARE(answers.takeFirst(), QVariantList{false});

        {
            // The watcher's arrival alone is asked about, and is no host yet.
            FakeWatcher watcher(QDBusConnection::connectToBus(address_, QStringLiteral("tray")));
            QVERIFY(answers.wait());
            QCOMPARE(answers.takeFirst(), QVariantList{false});

            watcher.registerHost();
            QVERIFY(answers.wait());
            QCOMPARE(answers.takeFirst(), QVariantList{true});
        }
        QDBusConnection::disconnectFromBus(QStringLiteral("tray"));

        // A tray that restarts with its host already in place.
        FakeWatcher restarted(QDBusConnection::connectToBus(address_, QStringLiteral("again")));
        restarted.registerHost();
        QTRY_VERIFY(!answers.isEmpty() && answers.last() == QVariantList{true});
    }

private:
    QProcess bus_;
    QString address_;
};

QTEST_MAIN(StatusNotifierHostTest)
#include "status_notifier_host_test.moc"
