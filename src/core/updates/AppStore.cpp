#include "core/updates/AppStore.h"

#include "core/updates/HttpClient.h"
#include "core/updates/Versions.h"
#include "platform/Workspace.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

// The public lookup service; QUORVEL_APP_STORE_URL replaces it for mirrors and tests.
QString lookupBase()
{
    QString base = qEnvironmentVariable("QUORVEL_APP_STORE_URL");
    if (base.isEmpty())
        base = u"https://itunes.apple.com"_s;
    while (base.endsWith(u'/'))
        base.chop(1);
    return base;
}

// The identifier and region go in verbatim; QUrl percent-encodes what a query cannot
// hold, and anything that still is no absolute URL is never requested.
std::optional<QUrl> lookupUrl(const QString &bundleID, const QString &region)
{
    const QUrl url(lookupBase() + u"/lookup?bundleId="_s + bundleID + u"&country="_s + region);
    if (!url.isValid() || url.isRelative() || url.host().isEmpty())
        return std::nullopt;
    return url;
}

void nothingLater(Finding done)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app) {
        done(std::nullopt);
        return;
    }
    QMetaObject::invokeMethod(
        app, [done = std::move(done)] { done(std::nullopt); }, Qt::QueuedConnection);
}

} // namespace

QString AppStore::appStoreRegion(const QLocale &locale)
{
    // No territory (the C locale) has no code either.
    const QString code = QLocale::territoryToCode(locale.territory());
    return code.isEmpty() ? u"NZ"_s : code;
}

std::optional<OutdatedApp> AppStore::parseAppStoreAnswer(const AppInfo &app, const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    const QJsonValue results = document.object().value(u"results");
    if (!results.isArray())
        return std::nullopt;
    const QJsonArray list = results.toArray();
    if (list.isEmpty())
        return std::nullopt;
    // Read as a list of objects as a whole: one stray element spoils the answer.
    for (const QJsonValue &result : list) {
        if (!result.isObject())
            return std::nullopt;
    }
    const QJsonValue version = list.first().toObject().value(u"version");
    if (!version.isString() || app.shortVersion.isEmpty())
        return std::nullopt;
    const QString latest = version.toString();
    if (!Versions::versionLess(app.shortVersion, latest))
        return std::nullopt;
    return OutdatedApp{
        app.bundleID, app.name, app.shortVersion, latest, OutdatedApp::Source::appStore, app.path};
}

void AppStore::checkAppStore(const AppInfo &app, Finding done)
{
    const std::optional<QUrl> url = lookupUrl(app.bundleID, appStoreRegion());
    if (!url) {
        nothingLater(std::move(done));
        return;
    }
    HttpClient::get(*url, {}, [app, done = std::move(done)](std::optional<QByteArray> body) {
        done(body ? parseAppStoreAnswer(app, *body) : std::nullopt);
    });
}

void AppStore::openAppStoreUpdates()
{
    Platform::openAppStoreUpdates();
}
