#pragma once

// Strict JSON coding for the records that cross the boundary to the helper.
//
// Decoding fails on a missing key or a value of the wrong JSON type, so that a
// caller can try several shapes in turn and take the first that fits. Encoding
// writes object members in the order the record gives them, which QJsonObject
// (always sorted) cannot do.

#include <QByteArray>
#include <QByteArrayView>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>
#include <concepts>
#include <cstdint>
#include <optional>
#include <system_error>
#include <type_traits>
#include <vector>

enum class JSONError : std::uint8_t {
    dataCorrupted,  // not JSON text, or not UTF-8
    keyNotFound,
    typeMismatch,
};

const std::error_category& JSONErrorCategory();
std::error_code make_error_code(JSONError error);

template <>
struct std::is_error_code_enum<JSONError> : std::true_type {};

// Writes compact JSON text, members in call order.
class JSONWriter {
public:
    void beginObject();
    void endObject();
    void beginArray();
    void endArray();
    void key(QLatin1StringView name);
    // The key, then the value as json::write writes it.
    template <typename T>
    void member(QLatin1StringView name, const T& value);

    void value(const QString& text);
    void value(QLatin1StringView text);
    // A string value given as well-formed UTF-8, written exactly as value()
    // writes the same text held in a QString, without widening it first.
    void valueFromUTF8(QByteArrayView utf8);
    void value(std::int64_t number);
    void value(bool flag);
    // A string literal would otherwise quietly become the bool overload.
    void value(const char*) = delete;
    void null();

    const QByteArray& text() const& { return out_; }
    QByteArray text() && { return std::move(out_); }

private:
    void separate();

    QByteArray out_;
    bool needsComma_ = false;
};

namespace json {

// A record reads itself from a JSON value and writes itself to a writer.
template <typename T>
concept Record = requires(const T& record, JSONWriter& writer, const QJsonValue& value) {
    { record.writeJSON(writer) } -> std::same_as<void>;
    { T::readJSON(value) } -> std::same_as<T>;
};

// Parses UTF-8 JSON text whose top level is an object or an array.
// Throws std::system_error(JSONError::dataCorrupted).
QJsonValue parse(QByteArrayView text);

QJsonObject requireObject(const QJsonValue& value);
QJsonArray requireArray(const QJsonValue& value);
QString requireString(const QJsonObject& object, QLatin1StringView key);
bool requireBool(const QJsonObject& object, QLatin1StringView key);
// Exact over the whole signed 64-bit range; a fraction is a type mismatch.
std::int64_t requireInt64(const QJsonObject& object, QLatin1StringView key);
QStringList requireStringArray(const QJsonObject& object, QLatin1StringView key);
// Absent and null both read as no value; any other non-string is a mismatch.
std::optional<QString> optionalString(const QJsonObject& object, QLatin1StringView key);

inline void write(JSONWriter& writer, bool flag) {
    writer.value(flag);
}
inline void write(JSONWriter& writer, std::int64_t number) {
    writer.value(number);
}
inline void write(JSONWriter& writer, const QString& text) {
    writer.value(text);
}
inline void write(JSONWriter& writer, const QStringList& list) {
    writer.beginArray();
    for (const QString& item : list) {
        writer.value(item);
    }
    writer.endArray();
}
template <Record T>
void write(JSONWriter& writer, const T& record) {
    record.writeJSON(writer);
}
template <typename Sequence>
void writeArray(JSONWriter& writer, const Sequence& items) {
    writer.beginArray();
    for (const auto& item : items) {
        write(writer, item);
    }
    writer.endArray();
}
template <typename T>
void write(JSONWriter& writer, const std::vector<T>& items) {
    writeArray(writer, items);
}
template <typename T>
void write(JSONWriter& writer, const QList<T>& items) {
    writeArray(writer, items);
}

template <typename T>
struct Reader;

template <Record T>
struct Reader<T> {
    static T read(const QJsonValue& value) { return T::readJSON(value); }
};

template <typename Sequence>
Sequence readArray(const QJsonValue& value) {
    const QJsonArray array = requireArray(value);
    Sequence items;
    items.reserve(array.size());
    for (const QJsonValue& element : array) {
        items.push_back(Reader<typename Sequence::value_type>::read(element));
    }
    return items;
}
template <typename T>
struct Reader<std::vector<T>> {
    static std::vector<T> read(const QJsonValue& value) { return readArray<std::vector<T>>(value); }
};
template <typename T>
struct Reader<QList<T>> {
    static QList<T> read(const QJsonValue& value) { return readArray<QList<T>>(value); }
};

}  // namespace json

template <typename T>
void JSONWriter::member(QLatin1StringView name, const T& value) {
    key(name);
    json::write(*this, value);
}

template <typename T>
concept JSONEncodable = requires(JSONWriter& writer, const T& value) {
    json::write(writer, value);
};

template <typename T>
concept JSONDecodable = requires(const QJsonValue& value) {
    { json::Reader<T>::read(value) } -> std::same_as<T>;
};

// The value's JSON text as UTF-8 bytes.
template <JSONEncodable T>
QByteArray JSONEncode(const T& value) {
    JSONWriter writer;
    json::write(writer, value);
    return std::move(writer).text();
}

// Throws std::system_error with a JSONError.
template <JSONDecodable T>
T JSONDecode(QByteArrayView text) {
    return json::Reader<T>::read(json::parse(text));
}
