#pragma once

// Plays the application's side against a real demo helper child: its own key store
// and token, the helper's key read from its output, sealed requests posted over a
// keep-alive HTTP connection and the sealed answers opened again.

#include <httplib.h>

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QThread>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "app/records.h"
#include "key_exchange/key_exchange.h"

using namespace std::chrono_literals;

struct PostResult {
    bool delivered = false;  // false: no HTTP answer at all, for the reason in `failure`
    httplib::Error failure = httplib::Error::Success;
    int status = 0;
    QByteArray body;
};

// An answer's plaintext and the timestamp it was sealed with.
struct OpenedAnswer {
    QByteArray plaintext;
    std::int64_t timestamp = 0;

    // The answer read the way the application reads it: folders, else groups, else envelope.
    std::optional<std::vector<DirItem>> folders() const;
    std::optional<std::vector<GroupItem>> groups() const;
    std::optional<TypeIDAndData> envelope() const;
    // "folders", "groups", or the envelope's type.
    QString kind() const;
};

class HelperSession {
public:
    // stateHome: the child's XDG_STATE_HOME; several sessions may share one in turn.
    explicit HelperSession(QString stateHome);
    ~HelperSession();

    void setEnvironment(const QString& name, const QString& value);
    QStringList defaultArguments() const;

    // Starts the child and waits for its status line (not when `silent`).
    [[nodiscard]] bool start(std::optional<QStringList> arguments = std::nullopt);
    // Reads the helper's key from its output into the store.
    void pair();
    // SIGTERM, then waits; true when it ended with status 0.
    bool terminate();
    bool waitForExit(std::chrono::milliseconds timeout);

    PostResult postRaw(const QByteArray& body,
                       std::optional<QByteArray> authorization = std::nullopt);
    PostResult post(const TypeIDAndData& message,
                    std::optional<std::int64_t> timestamp = std::nullopt);
    // Posts and opens; fails the test when the answer is not a sealed 200.
    OpenedAnswer ask(const QString& type, const QString& id = {}, const QString& data = {});
    OpenedAnswer open(const PostResult& result) const;
    void logIn();

    // Takes in what the child has written so far.
    void collectOutput();
    QString output() const { return QString::fromUtf8(output_); }
    QString errorOutput() const { return QString::fromUtf8(errorOutput_); }
    QProcess& process() { return process_; }
    int port() const { return port_; }
    const KeyExchangeStore& store() const { return *kes_; }
    httplib::Client& client() { return *client_; }

private:
    QString stateHome_;
    QProcessEnvironment environment_;
    std::unique_ptr<KeyExchangeStore> kes_;
    int port_ = 0;
    QProcess process_;
    QByteArray output_;
    QByteArray errorOutput_;
    std::unique_ptr<httplib::Client> client_;
};

// A loopback port nobody listens on right now.
int FreeLoopbackPort();

// Polls `condition` until it holds or the time is up.
template <typename Condition>
bool WaitFor(Condition condition, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        QThread::msleep(5);
    }
    return true;
}

// True when the process is gone or only a zombie waiting to be reaped.
bool ProcessHasEnded(qint64 pid);
