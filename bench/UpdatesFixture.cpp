#include "UpdatesFixture.h"

#include <QStringView>
#include <QUrl>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

namespace UpdatesBench {

namespace {

constexpr int kMinLatencyMs = 50;
constexpr int kMaxLatencyMs = 500;

} // namespace

Outcome outcome(int i)
{
    return i % 3 == 0 ? Outcome::outdated : i % 3 == 1 ? Outcome::current : Outcome::ahead;
}

// The outdated pairs only order correctly by number (9 < 10), not as text.
Release release(int i)
{
    const QString n = QString::number(i);
    switch (outcome(i)) {
    case Outcome::outdated:
        return {u"1."_s + n + u".9"_s, u"1."_s + n + u".10"_s};
    case Outcome::current:
        return {u"2."_s + n, u"2."_s + n};
    case Outcome::ahead:
        break;
    }
    return {u"3."_s + n + u".1"_s, u"3."_s + n + u".0"_s};
}

const QString kInstalledBuild = u"500"_s;

namespace {

const QString kFeedBuild = u"10"_s;

QString padded(int i)
{
    return u"%1"_s.arg(i, 3, 10, QChar(u'0'));
}

} // namespace

QString storeName(int i)
{
    return u"Bench Store "_s + padded(i);
}
QString storeId(int i)
{
    return u"org.quorvel.bench.store-"_s + padded(i);
}
QString feedName(int i)
{
    return u"Bench Feed "_s + padded(i);
}
QString feedId(int i)
{
    return u"org.quorvel.bench.feed-"_s + padded(i);
}
QString feedPath(int i)
{
    return u"/feed/"_s + padded(i) + u".xml"_s;
}
QString decoyPath(int i)
{
    return u"/decoy/"_s + padded(i) + u".xml"_s;
}
QString silentName(int i)
{
    return u"Bench Silent "_s + padded(i);
}
QString silentId(int i)
{
    return u"org.quorvel.bench.silent-"_s + padded(i);
}
QString silentPath(int i)
{
    return u"/silent/"_s + padded(i) + u".xml"_s;
}

namespace {

// The fixture number in `text` between prefix and suffix, or -1.
int numberIn(QStringView text, QStringView prefix, QStringView suffix, int count)
{
    if (!text.startsWith(prefix) || !text.endsWith(suffix))
        return -1;
    const QStringView digits =
        text.sliced(prefix.size(), text.size() - prefix.size() - suffix.size());
    bool ok = false;
    const int i = digits.toInt(&ok);
    return ok && i >= 0 && i < count && digits == padded(i) ? i : -1;
}

// Deterministic per URL, so a rerun and curl's run see the same delays.
int latencyMs(const QByteArray &key)
{
    quint32 hash = 2166136261u; // FNV-1a
    for (const char c : key) {
        hash ^= quint8(c);
        hash *= 16777619u;
    }
    return kMinLatencyMs + int(hash % quint32(kMaxLatencyMs - kMinLatencyMs + 1));
}

// Release notes in the size real feeds carry, so the parser has something to wade through.
QByteArray releaseNotes()
{
    QByteArray notes;
    for (int k = 0; k < 40; ++k)
        notes += "<li>Fixes a rare problem where item " + QByteArray::number(k) +
                 " was shown twice after waking from sleep.</li>\n";
    return notes;
}

QByteArray appcast(const QString &title, const QString &latest)
{
    static const QByteArray notes = releaseNotes();
    const QByteArray name = title.toUtf8();
    const auto item = [&](const QByteArray &heading, const QByteArray &channel,
                          const QByteArray &shortVersion, const QByteArray &build) {
        return "    <item>\n      <title>" + heading + "</title>\n" + channel +
               "      <description><![CDATA[<ul>\n" + notes +
               "</ul>]]></description>\n"
               "      <enclosure url=\"https://downloads.example.org/" +
               shortVersion + ".zip\" sparkle:version=\"" + build +
               "\" sparkle:shortVersionString=\"" + shortVersion +
               "\" length=\"48211968\" type=\"application/octet-stream\"/>\n"
               "    </item>\n";
    };
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           "<rss version=\"2.0\" xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/"
           "sparkle\">\n  <channel>\n    <title>" +
           name + "</title>\n" +
           item("Beta", "      <sparkle:channel>beta</sparkle:channel>\n", "99.0", "9999") +
           item(name + ' ' + latest.toUtf8(), {}, latest.toUtf8(), kFeedBuild.toUtf8()) +
           item("First release", {}, "0.9", "1") + "  </channel>\n</rss>\n";
}

QByteArray lookupAnswer(int i)
{
    return "{\n \"resultCount\":1,\n \"results\": [\n{\"kind\":\"mac-software\", "
           "\"features\":[], \"advisories\":[], \"bundleId\":\"" +
           storeId(i).toUtf8() + "\", \"trackName\":\"" + storeName(i).toUtf8() +
           "\", \"releaseNotes\":\"Faster sync; fixes a crash when \\\"version\\\" appeared "
           "in a note\", \"version\":\"" +
           release(i).latest.toUtf8() +
           "\", \"minimumOsVersion\":\"12.0\", \"price\":0.00, \"currency\":\"NZD\", "
           "\"genres\":[\"Productivity\"], \"averageUserRating\":4.5}]\n}\n";
}

} // namespace

Answer answerFor(const QByteArray &target)
{
    const QUrl url(QString::fromLatin1(target));
    const QString path = url.path();
    if (numberIn(path, u"/silent/", u".xml", kSilentFeeds) >= 0)
        return {true, 0, 0, {}, {}};
    if (const int i = numberIn(path, u"/feed/", u".xml", kFeedApps); i >= 0)
        return {false, latencyMs(path.toUtf8()), 200, "application/rss+xml",
                appcast(feedName(i), release(i).latest)};
    if (const int i = numberIn(path, u"/decoy/", u".xml", kStoreApps); i >= 0)
        return {false, latencyMs(path.toUtf8()), 200, "application/rss+xml",
                appcast(storeName(i), u"98.0"_s)};
    if (path == u"/lookup") {
        // Keyed by the identifier alone: the region follows the locale, the delay must not.
        const QString id = QUrlQuery(url).queryItemValue(u"bundleId"_s);
        if (const int i = numberIn(id, u"org.quorvel.bench.store-", u"", kStoreApps); i >= 0)
            return {false, latencyMs(id.toUtf8()), 200, "text/javascript; charset=utf-8",
                    lookupAnswer(i)};
        return {false, kMinLatencyMs, 200, "text/javascript; charset=utf-8",
                "{\"resultCount\":0,\"results\":[]}"};
    }
    return {false, kMinLatencyMs, 404, "text/plain", "not here\n"};
}

} // namespace UpdatesBench
