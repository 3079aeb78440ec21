#pragma once

// The helper's one endpoint, POST "/request", apart from the HTTP server that carries
// it: checks the bearer token, opens the sealed request, lets the dispatcher act on it
// and seals the answer with a fresh timestamp.

#include <QByteArray>
#include <QString>
#include <atomic>
#include <cstdint>
#include <functional>
#include <string_view>

#include "fault_switches.h"
#include "message_timestamps.h"

class KeyExchangeStore;
class MessageDispatcher;

struct EndpointReply {
    int status = 200;
    QByteArray body;  // a sealed envelope as JSON text, or empty on a refusal
    bool answersPing = false;
};

class RequestEndpoint {
public:
    RequestEndpoint(const KeyExchangeStore& kes, QString token, const MessageDispatcher& dispatcher,
                    const FaultSwitches& faults, TimestampSource now,
                    std::function<void()> endAfterAnswer);

    // 401 for a wrong or missing token, 400 for an envelope that does not open or is
    // not fresh, else the sealed answer. Safe to call from several threads at once.
    EndpointReply respond(std::string_view authorization, std::string_view body);

private:
    const KeyExchangeStore& kes_;
    const QByteArray expectedAuthorization_;
    const MessageDispatcher& dispatcher_;
    const FaultSwitches faults_;
    const TimestampSource now_;
    const std::function<void()> endAfterAnswer_;

    RequestFreshness freshness_;
    AnswerClock answerClock_;
    std::atomic<std::int64_t> answersGiven_{0};
};
