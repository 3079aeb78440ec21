#include "appcast.h"

#include <QXmlStreamReader>
#include <algorithm>

#include "records/base64.h"
#include "updater_error.h"
#include "version_comparator.h"

namespace {

constexpr qsizetype kEd25519SignatureLength = 64;
const QLatin1String kSparkle(kSparkleNamespace);

[[noreturn]] void ThrowMalformed(const QXmlStreamReader& xml, const QString& fault) {
    throw UpdaterFailure(UpdaterError::malformedFeed,
                         QStringLiteral("line %1: %2").arg(xml.lineNumber()).arg(fault));
}

bool IsPlain(const QXmlStreamReader& xml, QStringView name) {
    return xml.namespaceUri().isEmpty() && xml.name() == name;
}

bool IsSparkle(const QXmlStreamReader& xml, QStringView name) {
    return xml.namespaceUri() == kSparkle && xml.name() == name;
}

QString ElementText(QXmlStreamReader& xml) {
    return xml.readElementText().trimmed();
}

// Digits only: no sign, no blanks, and short enough not to overflow.
qint64 ParseLength(const QXmlStreamReader& xml, QStringView text) {
    const bool digitsOnly =
        std::all_of(text.begin(), text.end(), [](QChar c) { return c >= u'0' && c <= u'9'; });
    if (text.isEmpty() || text.size() > 18 || !digitsOnly) {
        ThrowMalformed(xml,
                       QStringLiteral("enclosure length \"%1\" is not a byte count").arg(text));
    }
    return text.toLongLong();
}

QByteArray ParseSignature(const QXmlStreamReader& xml, QStringView text) {
    const std::optional<QByteArray> signature = Base64Decode(text);
    if (!signature || signature->size() != kEd25519SignatureLength) {
        ThrowMalformed(xml,
                       QStringLiteral("sparkle:edSignature is not a base64 Ed25519 signature"));
    }
    return *signature;
}

// Reads the enclosure's attributes into the item; versions given as elements win.
void ReadEnclosure(const QXmlStreamReader& xml, AppcastItem& item, bool& hasEnclosure) {
    hasEnclosure = true;
    const QXmlStreamAttributes attributes = xml.attributes();
    const QStringView url = attributes.value(QLatin1String("url"));
    item.url = QUrl(url.toString(), QUrl::StrictMode);
    if (url.isEmpty() || !item.url.isValid() || item.url.isRelative()) {
        ThrowMalformed(xml,
                       QStringLiteral("enclosure url \"%1\" is not an absolute address").arg(url));
    }
    if (attributes.hasAttribute(QLatin1String("length"))) {
        item.length = ParseLength(xml, attributes.value(QLatin1String("length")));
    }
    if (attributes.hasAttribute(kSparkle, QLatin1String("edSignature"))) {
        item.edSignature =
            ParseSignature(xml, attributes.value(kSparkle, QLatin1String("edSignature")).trimmed());
    }
    if (item.version.isEmpty()) {
        item.version = attributes.value(kSparkle, QLatin1String("version")).trimmed().toString();
    }
    if (item.shortVersionString.isEmpty()) {
        item.shortVersionString =
            attributes.value(kSparkle, QLatin1String("shortVersionString")).trimmed().toString();
    }
}

std::optional<AppcastItem> ReadItem(QXmlStreamReader& xml) {
    AppcastItem item;
    bool hasEnclosure = false;
    while (xml.readNextStartElement()) {
        if (IsPlain(xml, u"title")) {
            item.title = ElementText(xml);
        } else if (IsSparkle(xml, u"version")) {
            item.version = ElementText(xml);
        } else if (IsSparkle(xml, u"shortVersionString")) {
            item.shortVersionString = ElementText(xml);
        } else if (IsPlain(xml, u"enclosure")) {
            ReadEnclosure(xml, item, hasEnclosure);
            xml.skipCurrentElement();
        } else {
            xml.skipCurrentElement();
        }
    }
    if (xml.hasError() || !hasEnclosure) {
        return std::nullopt;
    }
    if (item.version.isEmpty()) {
        ThrowMalformed(xml, QStringLiteral("an item with an enclosure has no sparkle:version"));
    }
    if (item.shortVersionString.isEmpty()) {
        item.shortVersionString = item.version;
    }
    return item;
}

void ReadChannel(QXmlStreamReader& xml, std::vector<AppcastItem>& items) {
    while (xml.readNextStartElement()) {
        if (IsPlain(xml, u"item")) {
            if (std::optional<AppcastItem> item = ReadItem(xml)) {
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
    if (!xml.readNextStartElement() || !IsPlain(xml, u"rss")) {
        ThrowMalformed(xml, xml.hasError() ? xml.errorString()
                                           : QStringLiteral("the document is not an RSS feed"));
    }
    std::vector<AppcastItem> items;
    bool hasChannel = false;
    while (xml.readNextStartElement()) {
        if (IsPlain(xml, u"channel")) {
            hasChannel = true;
            ReadChannel(xml, items);
        } else {
            xml.skipCurrentElement();
        }
    }
    // Reading to the end catches faults after the channel, such as a missing closing tag.
    while (!xml.atEnd()) {
        xml.readNext();
    }
    if (xml.hasError()) {
        ThrowMalformed(xml, xml.errorString());
    }
    if (!hasChannel) {
        ThrowMalformed(xml, QStringLiteral("the feed has no channel"));
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
