#include "request_endpoint.h"

#include <QByteArrayView>
#include <optional>
#include <thread>

#include "key_exchange/key_exchange.h"
#include "message_dispatch.h"
#include "records/base64.h"

namespace {

constexpr int kUnauthorized = 401;
constexpr int kBadRequest = 400;

// The opening side treats base64 it cannot decode in these fields as a state its
// own data cannot produce and stops; from the network it is just a bad request, so
// the fields are checked here first, with the same decoder.
bool isBase64(QByteArrayView text) {
    return Base64Decode(text).has_value();
}

// The request's plaintext and timestamp, or nothing when the envelope does not open.
struct OpenedRequest {
    TypeIDAndData message;
    std::int64_t timestamp;
    QByteArray identity;
};

// What tells one sealing from every other: the random salt, and the cipher's nonce and tag,
// which no other ciphertext that opens under that key can share. Keeping these instead of
// the whole ciphertext keeps a large library's pings from piling up for the replay check.
QByteArray envelopeIdentity(const KeyExchangeEnvelopeText& envelope) {
    constexpr qsizetype kNonceCharacters = 16;
    constexpr qsizetype kTagCharacters = 24;
    QByteArray identity = envelope.kdfNonce.toByteArray();
    identity.append(envelope.ciphertext.first(kNonceCharacters));
    identity.append(envelope.ciphertext.last(kTagCharacters));
    return identity;
}

std::optional<OpenedRequest> openEnvelope(const KeyExchangeStore& kes,
                                          const KeyExchangeEnvelopeText& envelope) {
    if (!isBase64(envelope.kdfNonce) || !isBase64(envelope.ciphertext) ||
        !isBase64(envelope.additionalData) || envelope.ciphertext.size() < 40) {
        return std::nullopt;
    }
    const std::optional<std::int64_t> timestamp =
        KeyExchangeTimestamp(QString::fromLatin1(envelope.additionalData));
    if (!timestamp) {
        return std::nullopt;
    }
    const QByteArray plaintext = kes.decrypt(envelope);
    return OpenedRequest{JSONDecode<TypeIDAndData>(plaintext), *timestamp,
                         envelopeIdentity(envelope)};
}

std::optional<OpenedRequest> openRequest(const KeyExchangeStore& kes, std::string_view body) {
    try {
        if (const auto text = KeyExchangeReadEnvelopeText(QByteArrayView(body))) {
            return openEnvelope(kes, *text);
        }
        // Text the quick reading leaves alone: read in full, then opened the same way. A
        // character beyond Latin-1 becomes "?", which base64 refuses as it refuses the original.
        const auto envelope = JSONDecode<KeyExchangeAEADStore>(QByteArrayView(body));
        const QByteArray kdfNonce = envelope.kdfNonce.toLatin1();
        const QByteArray ciphertext = envelope.ciphertext.toLatin1();
        const QByteArray aeadNonce = envelope.aeadNonce.toLatin1();
        const QByteArray additionalData = envelope.additionalData.toLatin1();
        return openEnvelope(kes, {kdfNonce, ciphertext, aeadNonce, additionalData});
    } catch (const std::system_error&) {
        return std::nullopt;
    }
}

}  // namespace

RequestEndpoint::RequestEndpoint(const KeyExchangeStore& kes, QString token,
                                 const MessageDispatcher& dispatcher, const FaultSwitches& faults,
                                 TimestampSource now, std::function<void()> endAfterAnswer)
    : kes_(kes),
      expectedAuthorization_(QByteArrayLiteral("Bearer ") + token.toUtf8()),
      dispatcher_(dispatcher),
      faults_(faults),
      now_(now),
      endAfterAnswer_(std::move(endAfterAnswer)),
      answerClock_(faults.timestampFault, std::move(now)) {}

EndpointReply RequestEndpoint::respond(std::string_view authorization, std::string_view body) {
    if (QByteArrayView(authorization) != expectedAuthorization_) {
        return {kUnauthorized, {}};
    }
    const std::optional<OpenedRequest> request = openRequest(kes_, body);
    if (!request || !freshness_.admit(request->timestamp, request->identity, now_())) {
        return {kBadRequest, {}};
    }

    const Dispatched dispatched = dispatcher_.dispatch(request->message);

    if (faults_.answerDelay.count() > 0) {
        std::this_thread::sleep_for(faults_.answerDelay);
    }
    EndpointReply reply;
    reply.answersPing = request->message.type == u"ping";
    if (faults_.garbageBody) {
        reply.body = QByteArrayLiteral("<html>this is not a sealed answer</html>");
    } else {
        reply.status = faults_.httpStatus;
        const QByteArray plaintext =
            std::visit([](const auto& answer) { return JSONEncode(answer); }, dispatched.answer);
        // Taken last of all, once the answer is written: the application allows an answer
        // 10 ms from sealing to check.
        const QByteArray timestamp = TimestampData(answerClock_.next());
        reply.body = kes_.encryptToJSON(plaintext, timestamp);
    }

    const std::int64_t given = ++answersGiven_;
    if (dispatched.endAfterAnswer ||
        (faults_.exitAfterAnswers && given >= *faults_.exitAfterAnswers)) {
        endAfterAnswer_();
    }
    return reply;
}
