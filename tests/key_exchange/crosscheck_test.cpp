// The sealed envelope against a second implementation written independently in Python
// (crosscheck.py, on Debian's python3-cryptography): what one side seals the other must open.
// The two sides meet only through files in a temporary directory.

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <cstdlib>
#include <map>

#include "key_exchange/key_exchange.h"

namespace {

void runScript(const QStringList& arguments) {
    QProcess python;
    python.setProcessChannelMode(QProcess::MergedChannels);
    // -I: no PYTHONPATH or user site packages, so that Debian's cryptography is imported.
    python.start(
        QStringLiteral("/usr/bin/python3"),
        QStringList{QStringLiteral("-I"), QStringLiteral(BRISVANE_CROSSCHECK_SCRIPT)} + arguments);
    ASSERT_TRUE(python.waitForFinished(120'000)) << python.errorString().toStdString();
    EXPECT_EQ(python.exitStatus(), QProcess::NormalExit);
    ASSERT_EQ(python.exitCode(), 0) << python.readAll().toStdString();
}

QByteArray readFile(const QTemporaryDir& directory, const QString& name) {
    QFile file(directory.filePath(name));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << name.toStdString();
    return file.readAll();
}

void writeFile(const QTemporaryDir& directory, const QString& name, const QByteArray& bytes) {
    QFile file(directory.filePath(name));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << name.toStdString();
    ASSERT_EQ(file.write(bytes), bytes.size());
}

TEST(CrosscheckWithPython, EachSideOpensWhatTheOtherSeals) {
    const QTemporaryDir directory;
    ASSERT_TRUE(directory.isValid());
    const auto store = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(QString());
    ASSERT_NO_FATAL_FAILURE(runScript({QStringLiteral("keypair"), directory.path()}));
    store->setExternalPublicKey(QString::fromLatin1(readFile(directory, "python-public.txt")));

    const std::map<QString, QByteArray> plaintexts = {
        {QStringLiteral("empty"), QByteArray()},
        {QStringLiteral("text"), QByteArrayLiteral("{\"Type\":\"ping\",\"ID\":\"\"}")},
        {QStringLiteral("mebibyte"), KeyExchangeRandomBytes(1 << 20)}};
    for (const auto& [name, plaintext] : plaintexts) {
        writeFile(directory, "plaintext-" + name + ".bin", plaintext);
        writeFile(directory, "from-library-" + name + ".json",
                  JSONEncode(store->encrypt(plaintext, KeyExchangeCurrentTimestampData())));
    }
    const QString data = QStringLiteral("[{\"Path\":\"/tmp\"}]");
    writeFile(directory, "from-library-record.json",
              JSONEncode(store->encodeJSONAndEncrypt(QStringLiteral("ping"), QStringLiteral("7"),
                                                     data, KeyExchangeCurrentTimestampData())));
    ASSERT_NO_FATAL_FAILURE(
        runScript({QStringLiteral("exchange"), directory.path(), store->LocalPublicKey()}));

    for (const auto& [name, plaintext] : plaintexts) {
        SCOPED_TRACE(name.toStdString());
        EXPECT_TRUE(readFile(directory, "opened-" + name + ".bin") == plaintext);
        // The road an answer takes: a text message, opened by the store.
        const QByteArray text = readFile(directory, "from-python-" + name + ".json");
        const auto opened = KeyExchangeSocketMessage::text(QString::fromUtf8(text)).open(*store);
        EXPECT_TRUE(opened.plaintext == plaintext);
        const auto timestamp = KeyExchangeTimestamp(opened.additionalData);
        ASSERT_TRUE(timestamp.has_value()) << opened.additionalData.toStdString();
        EXPECT_LE(std::abs(*timestamp - KeyExchangeCurrentTimestamp()), 10 * 60 * 1000);
    }
    // The record is read with Qt's JSON parser, not the package's own decoder.
    const QByteArray record = readFile(directory, QStringLiteral("opened-record.bin"));
    EXPECT_EQ(QJsonDocument::fromJson(record).object(),
              (QJsonObject{{"Type", "ping"}, {"ID", "7"}, {"Data", data}}))
        << record.toStdString();
}

}  // namespace
