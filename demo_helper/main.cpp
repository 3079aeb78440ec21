// The demo helper: plays the sync service's helper for the application, so that
// brisvane runs without the real one and tests have a real child to talk to.
//
//   harlix-darwin-amd64 -pid=<application pid> -token=<application public key> -port=<n>
//
// It prints its public key block and one status line, then answers sealed requests
// on http://127.0.0.1:<port>/request until it is told to end, its parent is gone,
// or the user logs out. Fault switches for tests: see fault_switches.cpp.

#include <httplib.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <QStringList>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <thread>
#include <utility>

#include "brisvane_version.h"
#include "desktop_opener.h"
#include "diagnostics/diagnostics.h"
#include "fault_switches.h"
#include "helper_arguments.h"
#include "key_block.h"
#include "key_exchange/key_exchange.h"
#include "life_supervisor.h"
#include "message_dispatch.h"
#include "request_endpoint.h"
#include "simulated_service.h"
#include "state_file.h"
#include "wire_faults.h"

namespace {

constexpr const char* kLoopback = "127.0.0.1";
// How long a kept-alive connection may sit idle. The application's ping loop uses its
// connection ten times a second, so this only closes connections nobody uses. It is
// short because the server notices a stop on an idle connection only when this runs
// out, and ending the helper should not wait long for that.
constexpr time_t kKeepAliveSeconds = 1;

void fail(const QString& message) {
    Diagnostics::printErrorLine(QStringLiteral("brisvane demo helper: ") + message);
}

// The key block and the status line in one write, so the application reads the
// whole block in one chunk.
void announce(const KeyExchangeStore& kes, const FaultSwitches& faults, int port) {
    const bool malformed =
        !faults.badKeyBlockMarker.isEmpty() && ClaimMalformedKeyBlock(faults.badKeyBlockMarker);
    QByteArray text = malformed ? MalformedKeyBlock() : KeyBlock(kes.LocalPublicKey());
    text += QByteArrayLiteral("brisvane demo helper listening on ") + kLoopback + ':' +
            QByteArray::number(port) + '\n';
    std::fwrite(text.constData(), 1, static_cast<std::size_t>(text.size()), stdout);
    std::fflush(stdout);
}

// Counts the ping answers that have gone out, and names the first few on standard output.
class PingAnswerAnnouncer {
public:
    // The body is handed over through a content provider only so that the library reports
    // when it has been written; on the wire it is the same answer.
    void setContent(httplib::Response& response, QByteArray body) {
        const auto size = static_cast<std::size_t>(body.size());
        response.set_content_provider(
            size, "application/json",
            [body = std::move(body)](std::size_t offset, std::size_t length,
                                     httplib::DataSink& sink) {
                return sink.write(body.constData() + offset, length);
            },
            [this](bool written) {
                if (written) {
                    announce(++answered_);
                }
            });
    }

private:
    static constexpr std::int64_t kAnnounced = 3;

    static void announce(std::int64_t number) {
        if (number <= kAnnounced) {
            Diagnostics::printLine(QStringLiteral("answered ping %1").arg(number));
        }
    }

    std::atomic<std::int64_t> answered_{0};
};

void serve(httplib::Server& server, RequestEndpoint& endpoint, LifeSupervisor& supervisor,
           WireFaults& wireFaults, PingAnswerAnnouncer* announcer) {
    server.set_keep_alive_max_count(std::numeric_limits<std::size_t>::max());
    server.set_keep_alive_timeout(kKeepAliveSeconds);
    server.Post("/request", [&](const httplib::Request& request, httplib::Response& response) {
        const WireFaults::Treatment treatment = wireFaults.next();
        if (treatment == WireFaults::Treatment::hold) {
            wireFaults.hold();
            response.status = 503;
            return;
        }
        const std::string authorization = request.get_header_value("Authorization");
        EndpointReply reply = endpoint.respond(authorization, request.body);
        response.status = reply.status;
        if (treatment == WireFaults::Treatment::oversize) {
            wireFaults.oversize(response);
            return;
        }
        if (reply.body.isEmpty()) {
            return;
        }
        if (treatment == WireFaults::Treatment::trickle) {
            wireFaults.trickle(response, std::move(reply.body));
        } else if (announcer && reply.answersPing) {
            announcer->setContent(response, std::move(reply.body));
        } else {
            response.set_content(reply.body.constData(),
                                 static_cast<std::size_t>(reply.body.size()), "application/json");
        }
    });

    std::atomic<bool> listeningEnded = false;
    std::thread stopper([&] {
        supervisor.waitForEnd();
        wireFaults.release();
        // stop() does nothing until the accept loop runs; wait for it, or for its end.
        while (!server.is_running() && !listeningEnded) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        if (!listeningEnded) {
            server.stop();
        }
    });
    // Returns once stopped, after the answers in progress have been written.
    server.listen_after_bind();
    listeningEnded = true;
    supervisor.requestEnd();
    stopper.join();
}

}  // namespace

int main(int argc, char** argv) {
    QStringList elements;
    for (int i = 1; i < argc; ++i) {
        elements.append(QString::fromLocal8Bit(argv[i]));
    }
    const ParsedHelperArguments parsed = ParseHelperArguments(elements);
    if (!parsed.arguments) {
        fail(parsed.problem + QStringLiteral("\nusage: ") + QString::fromLocal8Bit(argv[0]) +
             QStringLiteral(" -pid=<parent pid> -token=<base64 X25519 public key> -port=<port>"));
        return 2;
    }
    const HelperArguments& arguments = *parsed.arguments;
    const FaultSwitches faults = FaultSwitches::fromEnvironment();

    // A client that hangs up mid-answer must not end the helper.
    std::signal(SIGPIPE, SIG_IGN);
    LifeSupervisor supervisor(arguments.parentPid, faults.ignoreTermination);

    std::unique_ptr<KeyExchangeStore> kes;
    try {
        kes = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(arguments.token);
    } catch (const std::system_error& error) {
        fail(QStringLiteral("-token is not an X25519 public key: ") +
             QString::fromLocal8Bit(error.what()));
        return 2;
    }

    httplib::Server server;
    // Instead of the library's default, which also sets SO_REUSEPORT: that would let a
    // second helper share the port and take half of the application's requests.
    // TCP_NODELAY is inherited by the accepted connections; without it the answer's
    // header and body, written apart, wait out the client's delayed acknowledgement.
    server.set_socket_options([](socket_t socket) {
        const int yes = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    });
    if (!server.bind_to_port(kLoopback, arguments.port)) {
        fail(QStringLiteral("cannot listen on %1:%2").arg(kLoopback).arg(arguments.port));
        return 1;
    }
    if (faults.silent) {
        // Bound, so connections are taken by the kernel, but nothing is ever accepted.
        supervisor.waitForEnd();
        return 0;
    }

    SimulatedService service(DefaultStateFilePath());
    const DesktopOpener opener(faults.openerProgram);
    const MessageDispatcher dispatcher(service, opener, QStringLiteral(BRISVANE_SITE_URL));
    RequestEndpoint endpoint(*kes, arguments.token, dispatcher, faults, KeyExchangeCurrentTimestamp,
                             [&] { supervisor.requestEnd(); });

    announce(*kes, faults, arguments.port);
    if (faults.exitAfterAnswers == 0) {
        return 0;
    }
    PingAnswerAnnouncer announcer;
    WireFaults wireFaults(faults);
    serve(server, endpoint, supervisor, wireFaults, faults.announceAnswers ? &announcer : nullptr);
    return 0;
}
