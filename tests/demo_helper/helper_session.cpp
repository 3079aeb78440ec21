#include "helper_session.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QFile>

namespace {

// Slow machines and sanitizer builds start the child slowly; nothing here is timed.
constexpr auto kStartTimeout = 20s;

template <typename T>
std::optional<T> tryDecode(const QByteArray& text) {
    try {
        return JSONDecode<T>(text);
    } catch (const std::system_error&) {
        return std::nullopt;
    }
}

}  // namespace

std::optional<std::vector<DirItem>> OpenedAnswer::folders() const {
    return tryDecode<std::vector<DirItem>>(plaintext);
}
std::optional<std::vector<GroupItem>> OpenedAnswer::groups() const {
    return tryDecode<std::vector<GroupItem>>(plaintext);
}
std::optional<TypeIDAndData> OpenedAnswer::envelope() const {
    return tryDecode<TypeIDAndData>(plaintext);
}

QString OpenedAnswer::kind() const {
    if (folders()) {
        return QStringLiteral("folders");
    }
    if (groups()) {
        return QStringLiteral("groups");
    }
    if (const auto answer = envelope()) {
        return answer->type;
    }
    return QStringLiteral("undecodable");
}

HelperSession::HelperSession(QString stateHome)
    : stateHome_(std::move(stateHome)),
      environment_(QProcessEnvironment::systemEnvironment()),
      kes_(KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store({})),
      port_(FreeLoopbackPort()) {
    for (const QString& name : environment_.keys()) {
        if (name.startsWith(u"BRISVANE_DEMO_")) {
            environment_.remove(name);
        }
    }
    environment_.insert(QStringLiteral("XDG_STATE_HOME"), stateHome_);
    // Never open a real browser or file manager from a test.
    environment_.insert(QStringLiteral("BRISVANE_DEMO_OPENER"), QStringLiteral("true"));
}

HelperSession::~HelperSession() {
    if (process_.state() != QProcess::NotRunning) {
        process_.kill();
        process_.waitForFinished(5000);
    }
    if (::testing::Test::HasFailure()) {
        std::fprintf(stderr, "--- helper stdout:\n%s\n--- helper stderr:\n%s\n",
                     qPrintable(output()), qPrintable(errorOutput()));
    }
}

void HelperSession::setEnvironment(const QString& name, const QString& value) {
    environment_.insert(name, value);
}

QStringList HelperSession::defaultArguments() const {
    return {QStringLiteral("-pid=%1").arg(QCoreApplication::applicationPid()),
            QStringLiteral("-token=") + kes_->LocalPublicKey(),
            QStringLiteral("-port=%1").arg(port_)};
}

bool HelperSession::start(std::optional<QStringList> arguments) {
    output_.clear();
    errorOutput_.clear();
    process_.setProcessEnvironment(environment_);
    process_.start(QStringLiteral(DEMO_HELPER_PATH), arguments.value_or(defaultArguments()));
    if (!process_.waitForStarted(5000)) {
        return false;
    }
    if (environment_.value(QStringLiteral("BRISVANE_DEMO_SILENT")) == u"1") {
        return true;
    }
    const bool announced = WaitFor(
        [&] {
            collectOutput();
            return output_.contains("listening on") || process_.state() == QProcess::NotRunning;
        },
        kStartTimeout);
    if (announced && output_.contains("listening on")) {
        client_ = std::make_unique<httplib::Client>("127.0.0.1", port_);
        client_->set_keep_alive(true);
        client_->set_tcp_nodelay(true);
        client_->set_read_timeout(10s);
        return true;
    }
    return false;
}

void HelperSession::collectOutput() {
    process_.waitForReadyRead(5);
    output_ += process_.readAllStandardOutput();
    errorOutput_ += process_.readAllStandardError();
}

void HelperSession::pair() {
    kes_->setExternalPublicKey(PEMFromString(output()));
}

bool HelperSession::terminate() {
    process_.terminate();
    return waitForExit(10s) && process_.exitStatus() == QProcess::NormalExit &&
           process_.exitCode() == 0;
}

bool HelperSession::waitForExit(std::chrono::milliseconds timeout) {
    const bool ended = process_.state() == QProcess::NotRunning ||
                       process_.waitForFinished(static_cast<int>(timeout.count()));
    collectOutput();
    return ended;
}

PostResult HelperSession::postRaw(const QByteArray& body, std::optional<QByteArray> authorization) {
    httplib::Headers headers;
    const QByteArray bearer = authorization.value_or("Bearer " + kes_->LocalPublicKey().toUtf8());
    if (!bearer.isEmpty()) {
        headers.emplace("Authorization", bearer.toStdString());
    }
    const auto result = client_->Post("/request", headers, body.constData(),
                                      static_cast<std::size_t>(body.size()), "application/json");
    if (!result) {
        return {false, result.error(), 0, {}};
    }
    return {true, httplib::Error::Success, result->status, QByteArray::fromStdString(result->body)};
}

PostResult HelperSession::post(const TypeIDAndData& message,
                               std::optional<std::int64_t> timestamp) {
    const QByteArray additionalData =
        timestamp ? QByteArray::number(*timestamp) : KeyExchangeCurrentTimestampData();
    return postRaw(JSONEncode(kes_->encodeJSONAndEncrypt(message, additionalData)));
}

OpenedAnswer HelperSession::open(const PostResult& result) const {
    const auto opened = KeyExchangeSocketMessage::text(QString::fromUtf8(result.body)).open(*kes_);
    return {opened.plaintext, KeyExchangeTimestamp(opened.additionalData).value_or(-1)};
}

OpenedAnswer HelperSession::ask(const QString& type, const QString& id, const QString& data) {
    const PostResult result = post({type, id, data});
    EXPECT_TRUE(result.delivered) << qPrintable(type) << ": " << httplib::to_string(result.failure);
    EXPECT_EQ(result.status, 200) << qPrintable(type);
    if (!result.delivered || result.status != 200) {
        return {};
    }
    return open(result);
}

void HelperSession::logIn() {
    ASSERT_EQ(
        ask(QStringLiteral("auth"), QStringLiteral("ann@example.org"), QStringLiteral("secret"))
            .kind(),
        u"ping");
}

int FreeLoopbackPort() {
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(probe, reinterpret_cast<sockaddr*>(&address), length);
    getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
    close(probe);
    return ntohs(address.sin_port);
}

bool ProcessHasEnded(qint64 pid) {
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly)) {
        return true;
    }
    // "pid (name) S ...": the state follows the name's closing parenthesis.
    const QByteArray line = stat.readAll();
    const qsizetype nameEnd = line.lastIndexOf(')');
    return nameEnd < 0 || line.mid(nameEnd + 2, 1) == "Z";
}
