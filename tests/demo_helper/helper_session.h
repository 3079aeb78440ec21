#pragma once

// Plays the application's side against a real demo helper child: its own key as the token,
// the helper's key read from its output, sealed requests over HTTP; one state folder a test.

#include <gtest/gtest.h>
#include <httplib.h>

#include <QCoreApplication>
#include <QProcess>
#include <QTcpServer>
#include <QTemporaryDir>
#include <memory>

#include "key_exchange/key_exchange.h"
#include "records/records.h"
#include "support/wait.h"

// Failing comparisons show texts as texts.
inline void PrintTo(const QString& text, std::ostream* out) {
    *out << text.toStdString();
}

class DemoHelperSession : public ::testing::Test {
protected:
    DemoHelperSession() {
        QTcpServer probe;  // a loopback port nobody listens on right now
        probe.listen(QHostAddress::LocalHost);
        port = probe.serverPort();
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    }
    ~DemoHelperSession() override {
        process.kill();
        process.waitForFinished();
    }

    QStringList arguments() const {
        return {QString("-pid=%1").arg(QCoreApplication::applicationPid()),
                "-token=" + kes->LocalPublicKey(), QString("-port=%1").arg(port)};
    }

    // Starts the child; false when it never says it listens.
    bool start(const QStringList& arguments, const QString& program = DEMO_HELPER_PATH) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("XDG_STATE_HOME", stateHome.path());
        environment.insert("BRISVANE_DEMO_OPENER", opener);
        process.setProcessEnvironment(environment);
        output.clear();
        process.start(program, arguments);
        // Sanitizer builds start the child slowly; nothing here is timed.
        testing_support::waitUntil(
            [&] {
                output += process.readAllStandardOutput();
                return output.contains("listening on") || process.state() == QProcess::NotRunning;
            },
            20000);
        return output.contains("listening on");
    }

    // A new life of the helper on the same state, once the last one has ended cleanly.
    void restart() {
        process.terminate();
        ASSERT_EQ(waitForExit(), 0);
        ASSERT_TRUE(start(arguments()));
    }

    // The exit code once the child has ended normally; -1 otherwise.
    int waitForExit() {
        process.waitForFinished(10000);  // false at once when it has ended already
        const bool normal =
            process.state() == QProcess::NotRunning && process.exitStatus() == QProcess::NormalExit;
        return normal ? process.exitCode() : -1;
    }

    httplib::Result post(const std::string& authorization, const TypeIDAndData& message) {
        const auto headers = authorization.empty()
                                 ? httplib::Headers()
                                 : httplib::Headers{{"Authorization", authorization}};
        kes->setExternalPublicKey(PEMFromString(output));  // the key this helper life printed
        const auto sealed = kes->encodeJSONAndEncrypt(message, KeyExchangeCurrentTimestampData());
        return httplib::Client("127.0.0.1", port)
            .Post("/request", headers, JSONEncode(sealed).toStdString(), "application/json");
    }

    // The sealed answer, opened and read as an envelope or as the record list given.
    template <typename Answer = TypeIDAndData>
    Answer ask(const QString& type, const QString& id = {}, const QString& data = {}) {
        const auto result = post("Bearer " + kes->LocalPublicKey().toStdString(), {type, id, data});
        try {
            const QString body = QString::fromStdString(result ? result->body : "");
            return JSONDecode<Answer>(KeyExchangeSocketMessage::text(body).open(*kes).plaintext);
        } catch (const std::system_error& error) {
            ADD_FAILURE() << type.toStdString() << " (HTTP " << (result ? result->status : 0)
                          << "): " << error.what();
            return {};
        }
    }

    void logIn() { ASSERT_EQ(ask("auth", "ann@example.org", "secret").type, "ping"); }

    QTemporaryDir stateHome;
    QTemporaryDir files;
    QString opener = "true";  // what the helper runs to open things: nothing for real
    int port = 0;
    QProcess process;
    QByteArray output;
    std::unique_ptr<KeyExchangeStore> kes = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store({});
};
