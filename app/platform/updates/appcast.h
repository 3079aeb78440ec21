#pragma once

// The update feed: an RSS 2.0 channel whose items each offer one release, with the release's
// versions in the sparkle namespace and its archive as the item's enclosure.
//
//   <item>
//     <sparkle:version>42</sparkle:version>
//     <sparkle:shortVersionString>1.2</sparkle:shortVersionString>
//     <enclosure url="https://..." length="1234" sparkle:edSignature="base64"/>
//   </item>
//
// The two versions may instead be attributes of the enclosure. Items without an enclosure
// (release notes, announcements) offer nothing to install and are passed over.

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringView>
#include <QUrl>
#include <optional>
#include <vector>

inline constexpr char kSparkleNamespace[] = "http://www.andymatuschak.org/xml-namespaces/sparkle";

struct AppcastItem {
    QString title;
    QString version;             // compared with the running build's version
    QString shortVersionString;  // shown to the user; the version when the feed gives none
    QUrl url;
    qint64 length = -1;      // -1 when the feed gives no length
    QByteArray edSignature;  // 64 bytes; empty when the feed gives no signature
};

// Throws UpdaterFailure (malformedFeed) naming the line of the first fault.
std::vector<AppcastItem> ParseAppcast(QByteArrayView feed);

// The item with the highest version above currentVersion, if any.
std::optional<AppcastItem> NewestAppcastItem(const std::vector<AppcastItem>& items,
                                             QStringView currentVersion);
