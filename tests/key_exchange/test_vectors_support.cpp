#include "key_exchange/test_vectors_support.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <cstdio>
#include <stdexcept>

namespace test_vectors {

namespace {

int hexDigit(QChar c) {
    const char16_t u = c.unicode();
    if (u >= u'0' && u <= u'9') {
        return u - u'0';
    }
    if (u >= u'a' && u <= u'f') {
        return u - u'a' + 10;
    }
    if (u >= u'A' && u <= u'F') {
        return u - u'A' + 10;
    }
    return -1;
}

std::string codeText(const std::error_code& code) {
    return std::string(code.category().name()) + "/" + std::to_string(code.value()) + " (" +
           code.message() + ")";
}

std::string hexText(const QByteArray& bytes) {
    return bytes.toHex().toStdString();
}

}  // namespace

QByteArray hexBytes(QStringView hex) {
    if (hex.size() % 2 != 0) {
        throw std::invalid_argument("hex text of odd length");
    }
    QByteArray bytes;
    bytes.reserve(hex.size() / 2);
    for (qsizetype i = 0; i < hex.size(); i += 2) {
        const int high = hexDigit(hex[i]);
        const int low = hexDigit(hex[i + 1]);
        if (high < 0 || low < 0) {
            throw std::invalid_argument("not a hex digit");
        }
        bytes.append(static_cast<char>(high * 16 + low));
    }
    return bytes;
}

QByteArray hexField(const QJsonObject& object, const char* key) {
    const QJsonValue value = object.value(QLatin1String(key));
    if (!value.isString()) {
        throw std::invalid_argument(std::string("missing hex field ") + key);
    }
    return hexBytes(value.toString());
}

QJsonObject loadWycheproofFile(const QString& fileName) {
    const QString path = QStringLiteral(BRISVANE_TEST_DATA_DIR "/wycheproof/") + fileName;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        throw std::runtime_error("cannot read " + path.toStdString());
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        throw std::runtime_error("not a JSON object: " + path.toStdString());
    }
    return document.object();
}

Label labelOf(const QJsonObject& test) {
    const QString result = test.value(QLatin1String("result")).toString();
    if (result == QLatin1String("valid")) {
        return Label::valid;
    }
    if (result == QLatin1String("acceptable")) {
        return Label::acceptable;
    }
    if (result == QLatin1String("invalid")) {
        return Label::invalid;
    }
    throw std::invalid_argument("unknown result label " + result.toStdString());
}

std::string caseName(const QJsonObject& test) {
    QStringList flags;
    for (const QJsonValue& flag : test.value(QLatin1String("flags")).toArray()) {
        flags.append(flag.toString());
    }
    return QStringLiteral("tcId %1 [%2] %3")
        .arg(test.value(QLatin1String("tcId")).toInteger())
        .arg(flags.join(QLatin1Char(',')), test.value(QLatin1String("comment")).toString())
        .toStdString();
}

void forEachCase(const QJsonObject& file,
                 const std::function<void(const QJsonObject& group, const QJsonObject& test)>& f) {
    for (const QJsonValue& group : file.value(QLatin1String("testGroups")).toArray()) {
        const QJsonObject groupObject = group.toObject();
        for (const QJsonValue& test : groupObject.value(QLatin1String("tests")).toArray()) {
            f(groupObject, test.toObject());
        }
    }
}

VectorTally::VectorTally(QString fileName, int numberOfTests)
    : fileName_(std::move(fileName)), numberOfTests_(numberOfTests) {}

void VectorTally::expectOutput(const Attempt<QByteArray>& got, const QByteArray& expected) {
    if (!got.value) {
        ++failed_;
        ADD_FAILURE() << "refused with " << codeText(got.error) << ", expected "
                      << hexText(expected);
        return;
    }
    if (*got.value != expected) {
        ++failed_;
        ADD_FAILURE() << "got      " << hexText(*got.value) << "\nexpected " << hexText(expected);
        return;
    }
    ++passed_;
}

bool VectorTally::refused(const Attempt<QByteArray>& got, const std::error_code& wanted) {
    if (got.value) {
        ++failed_;
        ADD_FAILURE() << "accepted with " << hexText(*got.value) << ", expected a refusal with "
                      << codeText(wanted);
        return false;
    }
    if (got.error != wanted) {
        ++failed_;
        ADD_FAILURE() << "refused with " << codeText(got.error) << ", expected "
                      << codeText(wanted);
        return false;
    }
    return true;
}

void VectorTally::expectRefusedAsLabelled(const Attempt<QByteArray>& got,
                                          const std::error_code& wanted) {
    if (refused(got, wanted)) {
        ++refusedAsLabelled_;
    }
}

void VectorTally::expectRefusedByDesign(const Attempt<QByteArray>& got,
                                        const std::error_code& wanted) {
    if (refused(got, wanted)) {
        ++refusedByDesign_;
    }
}

void VectorTally::expectRefusedAsLabelled(const Attempt<QByteArray>& got,
                                          const std::error_category& wanted) {
    if (got.value) {
        ++failed_;
        ADD_FAILURE() << "accepted with " << hexText(*got.value) << ", expected a refusal from "
                      << wanted.name();
        return;
    }
    if (got.error.category() != wanted) {
        ++failed_;
        ADD_FAILURE() << "refused with " << codeText(got.error) << ", expected a refusal from "
                      << wanted.name();
        return;
    }
    ++refusedAsLabelled_;
}

void VectorTally::report() const {
    const int settled = passed_ + refusedAsLabelled_ + refusedByDesign_ + skipped_ + failed_;
    std::printf(
        "%s: %d cases, %d run, %d passed, %d refused as labelled, %d refused by design, "
        "%d skipped, %d failed\n",
        qPrintable(fileName_), numberOfTests_, settled - skipped_, passed_, refusedAsLabelled_,
        refusedByDesign_, skipped_, failed_);
    std::fflush(stdout);
    ::testing::Test::RecordProperty("passed", passed_);
    ::testing::Test::RecordProperty("refusedAsLabelled", refusedAsLabelled_);
    ::testing::Test::RecordProperty("refusedByDesign", refusedByDesign_);
    ::testing::Test::RecordProperty("skipped", skipped_);
    EXPECT_EQ(settled, numberOfTests_)
        << "not every case of " << qPrintable(fileName_) << " was settled";
    EXPECT_EQ(failed_, 0);
}

}  // namespace test_vectors
