// Cross-check of the sealed envelope against a second implementation written
// independently in Python (crosscheck.py, on Debian's python3-cryptography): what one
// side seals the other must open. The two sides meet only through files in a temporary
// directory.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <random>

#include "key_exchange/key_exchange.h"

namespace {

// The Python side checks its own clock against the sealed timestamp with this much slack.
constexpr std::int64_t kTimestampSlackMs = 10 * 60 * 1000;

struct ScriptRun {
    int exitCode = -1;
    QString output;
};

ScriptRun runScript(const QStringList& arguments) {
    QProcess python;
    python.setProcessChannelMode(QProcess::MergedChannels);
    // -I: ignore PYTHONPATH and the user's site packages, so that Debian's
    // cryptography package is the one imported.
    python.start(
        QStringLiteral(BRISVANE_SYSTEM_PYTHON),
        QStringList{QStringLiteral("-I"), QStringLiteral(BRISVANE_CROSSCHECK_SCRIPT)} + arguments);
    if (!python.waitForFinished(120'000)) {
        python.kill();
        python.waitForFinished();
        return {-1, QStringLiteral("did not finish: ") + python.errorString()};
    }
    ScriptRun run;
    run.exitCode = python.exitStatus() == QProcess::NormalExit ? python.exitCode() : -1;
    run.output = QString::fromUtf8(python.readAll());
    return run;
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    return file.readAll();
}

void writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    ASSERT_EQ(file.write(bytes), bytes.size());
}

// Plaintexts by name: the boundaries (empty, every byte value, a large message) and
// ordinary text.
std::map<QString, QByteArray> plaintexts() {
    QByteArray everyByte(256, '\0');
    for (int i = 0; i < 256; ++i) {
        everyByte[i] = static_cast<char>(i);
    }
    QByteArray mebibyte(1 << 20, '\0');
    std::mt19937 random(20240611);
    for (char& byte : mebibyte) {
        byte = static_cast<char>(random() & 0xff);
    }
    return {
        {QStringLiteral("empty"), QByteArray()},
        {QStringLiteral("text"),
         QByteArrayLiteral("{\"Type\":\"ping\",\"ID\":\"\",\"Data\":\"[]\"}")},
        {QStringLiteral("every-byte"), everyByte},
        {QStringLiteral("mebibyte"), mebibyte},
    };
}

class CrosscheckWithPython : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(directory_.isValid()); }

    QString path(const QString& name) const { return directory_.filePath(name); }

    void expectScriptSucceeds(const QStringList& arguments) {
        const ScriptRun run = runScript(arguments);
        EXPECT_EQ(run.exitCode, 0) << run.output.toStdString();
    }

    QTemporaryDir directory_;
};

TEST_F(CrosscheckWithPython, PythonOpensWhatTheLibrarySeals) {
    ASSERT_NO_FATAL_FAILURE(expectScriptSucceeds({QStringLiteral("keypair"), directory_.path()}));
    const QString pythonPublic = QString::fromLatin1(readFile(path("python-public.txt")));
    const auto store = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(pythonPublic);

    const auto cases = plaintexts();
    for (const auto& [name, plaintext] : cases) {
        const KeyExchangeAEADStore envelope =
            store->encrypt(plaintext, KeyExchangeCurrentTimestampData());
        writeFile(path("from-library-" + name + ".json"), JSONEncode(envelope));
    }
    const KeyExchangeAEADStore record = store->encodeJSONAndEncrypt(
        QStringLiteral("ping"), QStringLiteral("7"), QStringLiteral("[{\"Path\":\"/tmp\"}]"),
        KeyExchangeCurrentTimestampData());
    writeFile(path("from-library-record.json"), JSONEncode(record));

    expectScriptSucceeds({QStringLiteral("open"), directory_.path(), store->LocalPublicKey()});
    for (const auto& [name, plaintext] : cases) {
        SCOPED_TRACE(name.toStdString());
        EXPECT_TRUE(readFile(path("opened-" + name + ".bin")) == plaintext);
    }
    // The record's JSON text is read with Qt's parser, not the package's own decoder.
    const QJsonObject opened =
        QJsonDocument::fromJson(readFile(path("opened-record.bin"))).object();
    EXPECT_EQ(opened.value("Type").toString(), QStringLiteral("ping"));
    EXPECT_EQ(opened.value("ID").toString(), QStringLiteral("7"));
    EXPECT_EQ(opened.value("Data").toString(), QStringLiteral("[{\"Path\":\"/tmp\"}]"));
    EXPECT_EQ(opened.size(), 3);
}

TEST_F(CrosscheckWithPython, LibraryOpensWhatPythonSeals) {
    const auto store = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(QString());
    const auto cases = plaintexts();
    for (const auto& [name, plaintext] : cases) {
        writeFile(path("plaintext-" + name + ".bin"), plaintext);
    }
    ASSERT_NO_FATAL_FAILURE(
        expectScriptSucceeds({QStringLiteral("seal"), directory_.path(), store->LocalPublicKey()}));
    store->setExternalPublicKey(QString::fromLatin1(readFile(path("python-public.txt"))));

    for (const auto& [name, plaintext] : cases) {
        SCOPED_TRACE(name.toStdString());
        const QByteArray text = readFile(path("from-python-" + name + ".json"));
        // The road an answer takes: a text message, opened by the store.
        const auto opened = KeyExchangeSocketMessage::text(QString::fromUtf8(text)).open(*store);
        EXPECT_TRUE(opened.plaintext == plaintext);
        const auto timestamp = KeyExchangeTimestamp(opened.additionalData);
        ASSERT_TRUE(timestamp.has_value()) << opened.additionalData.toStdString();
        EXPECT_LE(std::abs(*timestamp - KeyExchangeCurrentTimestamp()), kTimestampSlackMs);
    }
}

// The Python side must be a real check: an envelope changed in any of the fields that
// feed the key or the cipher is refused there, while the untouched one opens.
TEST_F(CrosscheckWithPython, PythonRefusesChangedEnvelopes) {
    ASSERT_NO_FATAL_FAILURE(expectScriptSucceeds({QStringLiteral("keypair"), directory_.path()}));
    const auto store = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(
        QString::fromLatin1(readFile(path("python-public.txt"))));
    const QByteArray plaintext = QByteArrayLiteral("a message the helper must not misread");
    const QByteArray timestamp = KeyExchangeCurrentTimestampData();
    const KeyExchangeAEADStore envelope = store->encrypt(plaintext, timestamp);

    std::map<QString, KeyExchangeAEADStore> changed;
    changed["later-timestamp"] = envelope;
    changed["later-timestamp"].additionalData =
        QString::fromLatin1(QByteArray::number(KeyExchangeCurrentTimestamp() + 1).toBase64());
    QByteArray flipped = QByteArray::fromBase64(envelope.ciphertext.toLatin1());
    flipped[12] = static_cast<char>(flipped[12] ^ 0x01);
    changed["flipped-ciphertext"] = envelope;
    changed["flipped-ciphertext"].ciphertext = QString::fromLatin1(flipped.toBase64());
    changed["other-kdf-nonce"] = envelope;
    changed["other-kdf-nonce"].kdfNonce =
        QString::fromLatin1(AEADRandomKey(KeyExchangeAEAD::aesgcm).toBase64());

    writeFile(path("from-library-untouched.json"), JSONEncode(envelope));
    for (const auto& [name, variant] : changed) {
        writeFile(path("from-library-" + name + ".json"), JSONEncode(variant));
    }
    const ScriptRun run =
        runScript({QStringLiteral("open"), directory_.path(), store->LocalPublicKey()});
    EXPECT_EQ(run.exitCode, 1) << run.output.toStdString();
    EXPECT_TRUE(readFile(path("opened-untouched.bin")) == plaintext) << run.output.toStdString();
    for (const auto& [name, variant] : changed) {
        EXPECT_FALSE(QFile::exists(path("opened-" + name + ".bin"))) << name.toStdString();
    }
}

}  // namespace
