#pragma once

// Reading the Wycheproof JSON files, and keeping count of how each case was settled.

#include <gtest/gtest.h>

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringView>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <system_error>
#include <utility>

namespace test_vectors {

// Lowercase or uppercase hex, even length, nothing else (QByteArray::fromHex skips
// what it does not understand, which would hide a broken vector file).
// Throws std::invalid_argument.
QByteArray hexBytes(QStringView hex);
// The hex string member `key` of a test case. Throws std::invalid_argument.
QByteArray hexField(const QJsonObject& object, const char* key);

// The parsed file tests/data/wycheproof/<fileName>. Throws std::runtime_error.
QJsonObject loadWycheproofFile(const QString& fileName);

enum class Label { valid, acceptable, invalid };
Label labelOf(const QJsonObject& test);

// "tcId 12 [ModifiedTag] comment", for failure messages.
std::string caseName(const QJsonObject& test);

// Calls f(group, test) for every test of every group, in file order.
void forEachCase(const QJsonObject& file,
                 const std::function<void(const QJsonObject& group, const QJsonObject& test)>& f);

// The package refuses by throwing std::system_error; anything else is a fault and
// is left to propagate.
template <typename T>
struct Attempt {
    std::optional<T> value;
    std::error_code error;
};

template <typename F>
auto attempt(F&& call) -> Attempt<decltype(call())> {
    try {
        return {std::forward<F>(call)(), {}};
    } catch (const std::system_error& refusal) {
        return {std::nullopt, refusal.code()};
    }
}

// How the cases of one file were settled:
// - passed: accepted with exactly the expected output;
// - refused as labelled: an invalid case refused, or an acceptable one refused for the
//   reason its test documents;
// - refused by design: a valid or acceptable case whose input the package's fixed wire
//   formats cannot carry (a nonce that is not 96 bits, a compressed point), refused;
// - skipped: a case that asks for something the package has no way to be asked;
// - failed: anything else (each one is also reported as a test failure).
class VectorTally {
public:
    // numberOfTests is the file's own count, to show that no case went unnoticed.
    VectorTally(QString fileName, int numberOfTests);

    // Prints one line of counts and checks that every case of the file was settled.
    void report() const;

    void expectOutput(const Attempt<QByteArray>& got, const QByteArray& expected);
    void expectRefusedAsLabelled(const Attempt<QByteArray>& got, const std::error_code& wanted);
    void expectRefusedByDesign(const Attempt<QByteArray>& got, const std::error_code& wanted);
    // Like expectRefusedAsLabelled, for refusals whose exact code depends on where the
    // package notices (key import or key agreement): any code of the category will do.
    void expectRefusedAsLabelled(const Attempt<QByteArray>& got, const std::error_category& wanted);
    void skip() { ++skipped_; }

private:
    bool refused(const Attempt<QByteArray>& got, const std::error_code& wanted);

    QString fileName_;
    int numberOfTests_;
    int passed_ = 0;
    int refusedAsLabelled_ = 0;
    int refusedByDesign_ = 0;
    int skipped_ = 0;
    int failed_ = 0;
};

// Names a parameterised test by its parameter's label field.
template <typename T>
std::string labelName(const ::testing::TestParamInfo<T>& info) {
    return info.param.label;
}

// Shows a parameter by its label, so test names stay the same from build to build.
template <typename T>
requires requires(const T& param) {
    param.label;
}
void PrintTo(const T& param, std::ostream* out) {
    *out << param.label;
}

}  // namespace test_vectors

// Failure messages show bytes as hex and text as text.
inline void PrintTo(const QByteArray& bytes, std::ostream* out) {
    *out << '[' << bytes.size() << " bytes] " << bytes.toHex().toStdString();
}
inline void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}
