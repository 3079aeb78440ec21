// The helper's standard output through a real pipe and the output reader into the poll
// manager's key watch, with the read boundaries chosen by the input. Each read is handed on
// and searched on its own, so the model here works chunk by chunk: the chunks that are UTF-8
// arrive whole and in order, the others are dropped, and the helper's key afterwards is the
// last block found that is a key.

#include <fcntl.h>
#include <unistd.h>

#include <QByteArray>
#include <QCoreApplication>
#include <QList>
#include <QString>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <system_error>

#include "fuzz_check.h"
#include "key_exchange/key_exchange.h"
#include "output_reader.h"
#include "poll_manager/poll_manager.h"

namespace {

// RFC 7748, section 6.1: Alice's private key; Bob's public key is a key the helper may send.
const QString kPrivateKey = QStringLiteral("dwdtCnMYpX08FsFyUbJmRd9ML4frwJkqsXf7pR25LCo=");

std::unique_ptr<KeyExchangeStore> unpairedStore() {
    auto store = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(QString());
    store->resetPrivateKey(kPrivateKey);
    return store;
}

const QString kBegin = QStringLiteral("-----BEGIN PUBLIC KEY-----");

// A BEGIN marker nowhere followed by a line feed stops the program on purpose.
bool reachesDeliberateStop(const QString& text) {
    return text.contains(kBegin) && !text.contains(kBegin + QLatin1Char('\n'));
}

// Well-formed UTF-8: no stray continuation bytes, no overlong forms, no surrogates, nothing
// above U+10FFFF, and no character cut off at the end.
bool isUTF8(const QByteArray& bytes) {
    qsizetype at = 0;
    while (at < bytes.size()) {
        const auto lead = static_cast<unsigned char>(bytes[at]);
        int trailing = 0;
        std::uint32_t code = 0;
        std::uint32_t least = 0;
        if (lead < 0x80) {
            ++at;
            continue;
        } else if ((lead & 0xE0) == 0xC0) {
            trailing = 1, code = lead & 0x1F, least = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            trailing = 2, code = lead & 0x0F, least = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            trailing = 3, code = lead & 0x07, least = 0x10000;
        } else {
            return false;
        }
        if (bytes.size() - at - 1 < trailing) {
            return false;
        }
        for (int i = 1; i <= trailing; ++i) {
            const auto next = static_cast<unsigned char>(bytes[at + i]);
            if ((next & 0xC0) != 0x80) {
                return false;
            }
            code = (code << 6) | (next & 0x3F);
        }
        if (code < least || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
            return false;
        }
        at += 1 + trailing;
    }
    return true;
}

// The text exactly as sent: QString::fromUtf8 would skip a leading byte-order mark.
QString decoded(const QByteArray& utf8) {
    const QString text = QString::fromUtf8(utf8);
    return utf8.startsWith("\xEF\xBB\xBF") ? QChar(0xFEFF) + text : text;
}

bool isKey(const QString& body) {
    try {
        (void)CreateSharedSecret(KeyExchangeCurve::curve25519, kPrivateKey, body);
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

// The first byte gives a count of up to seven chunk lengths that follow it; what remains is
// the output, cut at those lengths, with the rest as a last chunk.
QList<QByteArray> chunksOf(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return {};
    }
    const std::size_t count = std::min<std::size_t>(data[0] % 8, size - 1);
    QByteArray rest(reinterpret_cast<const char*>(data + 1 + count),
                    static_cast<qsizetype>(size - 1 - count));
    QList<QByteArray> chunks;
    for (std::size_t i = 0; i < count && !rest.isEmpty(); ++i) {
        const qsizetype length = data[1 + i] == 0 ? 256 : data[1 + i];
        chunks.append(rest.first(std::min(length, rest.size())));
        rest.remove(0, chunks.last().size());
    }
    if (!rest.isEmpty()) {
        chunks.append(rest);
    }
    return chunks;
}

class Pipe {
public:
    Pipe() { FUZZ_CHECK(::pipe2(ends_, O_NONBLOCK | O_CLOEXEC) == 0); }
    ~Pipe() {
        ::close(ends_[0]);
        ::close(ends_[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int readEnd() const { return ends_[0]; }
    void write(const QByteArray& bytes) const {
        FUZZ_CHECK(::write(ends_[1], bytes.constData(), static_cast<std::size_t>(bytes.size())) ==
                   bytes.size());
    }

private:
    int ends_[2] = {-1, -1};
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    static QCoreApplication application(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QList<QByteArray> chunks = chunksOf(data, size);
    qsizetype total = 0;
    for (const QByteArray& chunk : chunks) {
        if (reachesDeliberateStop(QString::fromUtf8(chunk))) {
            return -1;
        }
        total += chunk.size();
    }
    // One read must take a whole chunk, so each fits the pipe and the reader's buffer.
    if (total > 60'000) {
        return -1;
    }

    PollManager manager(unpairedStore);
    QList<QString> handedOn;
    const OutputReader::StandardOutput output = [&](const QString& chunk) {
        handedOn.append(chunk);
        manager.watchForKeyBlock(chunk);
    };
    const Pipe pipe;
    for (const QByteArray& chunk : chunks) {
        // The chunk is in the pipe before the reader starts, so its first read takes all of it.
        pipe.write(chunk);
        OutputReader reader(pipe.readEnd(), output);
        reader.finish();
    }

    QList<QString> expected;
    std::optional<QString> key;
    for (const QByteArray& chunk : chunks) {
        if (!isUTF8(chunk)) {
            continue;
        }
        expected.append(decoded(chunk));
        const std::optional<QString> block = PEMSearchString(expected.last());
        if (block && isKey(*block)) {
            key = block;
        }
    }
    FUZZ_CHECK(handedOn == expected);
    std::optional<QString> helperKey;
    try {
        helperKey = manager.kes().ExternalPublicKey();
    } catch (const std::system_error& refusal) {
        FUZZ_CHECK(refusal.code() == KeyExchangeError::publicKeyNotSet);
    }
    FUZZ_CHECK(helperKey == key);
    return 0;
}
