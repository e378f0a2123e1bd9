#include "core/updates/Appcast.h"

#include "core/updates/AppcastParser.h"
#include "core/updates/HttpClient.h"
#include "core/updates/Versions.h"

using namespace Qt::StringLiterals;

namespace {

// "{name}/{short} Sparkle", the agent feeds expect from the framework. Control characters
// from a hostile Info.plist would split the header, so they become spaces.
QByteArray userAgent(const AppInfo &app)
{
    QString agent = app.name + u'/' + app.shortVersion + u" Sparkle"_s;
    for (QChar &c : agent) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            c = u' ';
    }
    return agent.toUtf8();
}

// The short versions decide when both sides have one; otherwise the builds do.
std::optional<OutdatedApp> finding(const AppInfo &app, const AppcastParser::Entry &best)
{
    OutdatedApp record{app.bundleID, app.name, QString(), QString(), OutdatedApp::Source::sparkle,
                       app.path};
    if (best.short_ && !app.shortVersion.isEmpty()) {
        if (!Versions::versionLess(app.shortVersion, *best.short_))
            return std::nullopt;
        record.installed = app.shortVersion;
        record.latest = *best.short_;
        return record;
    }
    if (best.build && !app.build.isEmpty()) {
        if (!Versions::versionLess(app.build, *best.build))
            return std::nullopt;
        record.installed = app.shortVersion.isEmpty() ? app.build : app.shortVersion;
        record.latest = *best.build;
        return record;
    }
    return std::nullopt;
}

} // namespace

void Appcast::checkSparkle(const AppInfo &app, const QUrl &feed, Finding done)
{
    HttpClient::get(feed, {{"User-Agent", userAgent(app)}},
                    [app, done = std::move(done)](std::optional<QByteArray> body) {
                        if (!body) {
                            done(std::nullopt);
                            return;
                        }
                        AppcastParser parser;
                        parser.parse(*body);
                        const std::optional<AppcastParser::Entry> best = parser.best();
                        done(best ? finding(app, *best) : std::nullopt);
                    });
}
