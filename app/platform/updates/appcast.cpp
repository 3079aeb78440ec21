#include "appcast.h"

#include <QXmlStreamReader>
#include <algorithm>

#include "records/base64.h"
#include "updater_error.h"
#include "version_comparator.h"

namespace {

constexpr qsizetype kEd25519SignatureLength = 64;
const QLatin1String kSparkle(kSparkleNamespace);

[[noreturn]] void throwMalformed(const QXmlStreamReader& xml, const QString& fault) {
    throw UpdaterFailure(UpdaterError::malformedFeed,
                         QStringLiteral("line %1: %2").arg(xml.lineNumber()).arg(fault));
}

bool isPlain(const QXmlStreamReader& xml, QStringView name) {
    return xml.namespaceUri().isEmpty() && xml.name() == name;
}

bool isSparkle(const QXmlStreamReader& xml, QStringView name) {
    return xml.namespaceUri() == kSparkle && xml.name() == name;
}

QString elementText(QXmlStreamReader& xml) {
    return xml.readElementText().trimmed();
}

// Digits only: no sign, no blanks, and short enough not to overflow.
qint64 parseLength(const QXmlStreamReader& xml, QStringView text) {
    const bool digitsOnly =
        std::all_of(text.begin(), text.end(), [](QChar c) { return c >= u'0' && c <= u'9'; });
    if (text.isEmpty() || text.size() > 18 || !digitsOnly) {
        throwMalformed(xml,
                       QStringLiteral("enclosure length \"%1\" is not a byte count").arg(text));
    }
    return text.toLongLong();
}

QByteArray parseSignature(const QXmlStreamReader& xml, QStringView text) {
    const std::optional<QByteArray> signature = Base64Decode(text);
    if (!signature || signature->size() != kEd25519SignatureLength) {
        throwMalformed(xml,
                       QStringLiteral("sparkle:edSignature is not a base64 Ed25519 signature"));
    }
    return *signature;
}

// Reads the enclosure's attributes into the item; versions given as elements win.
void readEnclosure(const QXmlStreamReader& xml, AppcastItem& item, bool& hasEnclosure) {
    hasEnclosure = true;
    const QXmlStreamAttributes attributes = xml.attributes();
    const QStringView url = attributes.value(QLatin1String("url"));
    item.url = QUrl(url.toString(), QUrl::StrictMode);
    if (url.isEmpty() || !item.url.isValid() || item.url.isRelative()) {
        throwMalformed(xml,
                       QStringLiteral("enclosure url \"%1\" is not an absolute address").arg(url));
    }
    if (attributes.hasAttribute(QLatin1String("length"))) {
        item.length = parseLength(xml, attributes.value(QLatin1String("length")));
    }
    if (attributes.hasAttribute(kSparkle, QLatin1String("edSignature"))) {
        item.edSignature =
            parseSignature(xml, attributes.value(kSparkle, QLatin1String("edSignature")).trimmed());
    }
    if (item.version.isEmpty()) {
        item.version = attributes.value(kSparkle, QLatin1String("version")).trimmed().toString();
    }
    if (item.shortVersionString.isEmpty()) {
        item.shortVersionString =
            attributes.value(kSparkle, QLatin1String("shortVersionString")).trimmed().toString();
    }
}

std::optional<AppcastItem> readItem(QXmlStreamReader& xml) {
    AppcastItem item;
    bool hasEnclosure = false;
    while (xml.readNextStartElement()) {
        if (isPlain(xml, u"title")) {
            item.title = elementText(xml);
        } else if (isSparkle(xml, u"version")) {
            item.version = elementText(xml);
        } else if (isSparkle(xml, u"shortVersionString")) {
            item.shortVersionString = elementText(xml);
        } else if (isPlain(xml, u"enclosure")) {
            readEnclosure(xml, item, hasEnclosure);
            xml.skipCurrentElement();
        } else {
            xml.skipCurrentElement();
        }
    }
    if (xml.hasError() || !hasEnclosure) {
        return std::nullopt;
    }
    if (item.version.isEmpty()) {
        throwMalformed(xml, QStringLiteral("an item with an enclosure has no sparkle:version"));
    }
    if (item.shortVersionString.isEmpty()) {
        item.shortVersionString = item.version;
    }
    return item;
}

void readChannel(QXmlStreamReader& xml, std::vector<AppcastItem>& items) {
    while (xml.readNextStartElement()) {
        if (isPlain(xml, u"item")) {
            if (std::optional<AppcastItem> item = readItem(xml)) {
                items.push_back(std::move(*item));
            }
        } else {
            xml.skipCurrentElement();
        }
    }
}

}  // namespace

std::vector<AppcastItem> ParseAppcast(QByteArrayView feed) {
    QXmlStreamReader xml(feed.toByteArray());
    if (!xml.readNextStartElement() || !isPlain(xml, u"rss")) {
        throwMalformed(xml, xml.hasError() ? xml.errorString()
                                           : QStringLiteral("the document is not an RSS feed"));
    }
    std::vector<AppcastItem> items;
    bool hasChannel = false;
    while (xml.readNextStartElement()) {
        if (isPlain(xml, u"channel")) {
            hasChannel = true;
            readChannel(xml, items);
        } else {
            xml.skipCurrentElement();
        }
    }
    // Reading to the end catches faults after the channel, such as a missing closing tag.
    while (!xml.atEnd()) {
        xml.readNext();
    }
    if (xml.hasError()) {
        throwMalformed(xml, xml.errorString());
    }
    if (!hasChannel) {
        throwMalformed(xml, QStringLiteral("the feed has no channel"));
    }
    return items;
}

std::optional<AppcastItem> NewestAppcastItem(const std::vector<AppcastItem>& items,
                                             QStringView currentVersion) {
    const AppcastItem* newest = nullptr;
    for (const AppcastItem& item : items) {
        const QStringView best = newest ? QStringView(newest->version) : currentVersion;
        if (CompareVersions(item.version, best) > 0) {
            newest = &item;
        }
    }
    if (!newest) {
        return std::nullopt;
    }
    return *newest;
}
