#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>

namespace sorv {

// One <item> of a Sparkle appcast (RSS 2.0 with the Sparkle namespace).
// `sparkle:version` and `sparkle:shortVersionString` may sit on the item (as
// elements) or on its enclosure (as attributes); the item's win.
struct AppcastItem {
    QString title;
    QString version;            // sparkle:version: what is compared with ours
    QString shortVersionString; // sparkle:shortVersionString: what is shown, when given
    QUrl enclosureUrl;          // resolved against the feed's address
    qint64 enclosureLength = -1;
    QString edSignature; // sparkle:edSignature, base64, as written
    QString os;          // sparkle:os of the enclosure; empty: any
    QString channel;     // sparkle:channel; empty: the default channel

    QString displayVersion() const
    {
        return shortVersionString.isEmpty() ? version : shortVersionString;
    }
};

// The items of an appcast in document order. None, with the reason in
// `error`, when the document is not well-formed XML or not an RSS feed.
std::optional<QList<AppcastItem>> parseAppcast(const QByteArray& xml, const QUrl& feedUrl,
                                               QString* error);

// An address updates may come from: https, or plain http to this computer
// (the local service), never any other scheme.
bool isTrustedUpdateUrl(const QUrl& url);

// The largest update file this build fetches. A release is a few hundred
// megabytes at most; anything larger is not one of ours.
constexpr qint64 kMaxUpdateBytes = qint64{512} * 1024 * 1024;

// Why this build cannot offer `item` (before fetching it); empty when it may
// fetch it and check its signature.
QString appcastItemProblem(const AppcastItem& item);

// The newest item this build can offer, by `version`. Each item passed over
// adds "{version}: {why}" to `skipped`.
std::optional<AppcastItem> newestAppcastItem(const QList<AppcastItem>& items,
                                             QStringList* skipped = nullptr);

} // namespace sorv
