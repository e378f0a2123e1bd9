#include "core/updates/Homebrew.h"

#include "core/process/Shell.h"
#include "platform/Homebrew.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Listing reads local metadata only; an upgrade may download and build, hence the spread.
constexpr double kOutdatedTimeoutSeconds = 120.0;
constexpr double kUpgradeTimeoutSeconds = 900.0;

// A group only counts when every element is an object: an answer whose shape we do not
// recognise contributes nothing rather than half of itself.
QList<QJsonObject> objectArray(const QJsonValue &value)
{
    QList<QJsonObject> objects;
    if (!value.isArray())
        return objects;
    const QJsonArray array = value.toArray();
    for (const QJsonValue &element : array) {
        if (!element.isObject())
            return {};
        objects.append(element.toObject());
    }
    return objects;
}

// Formulae always give a list; casks gave one version string in older Homebrew releases.
QString installedText(const QJsonValue &value)
{
    if (value.isString())
        return value.toString();
    if (!value.isArray())
        return {};
    QStringList versions;
    const QJsonArray array = value.toArray();
    for (const QJsonValue &element : array) {
        if (!element.isString())
            return {};
        versions.append(element.toString());
    }
    return versions.join(u", "_s);
}

void appendGroup(QList<OutdatedApp> &out, const QJsonValue &group, const QString &idPrefix,
                 OutdatedApp::Source source)
{
    const QList<QJsonObject> elements = objectArray(group);
    for (const QJsonObject &element : elements) {
        const QJsonValue name = element.value(u"name"_s);
        if (!name.isString())
            continue;
        const QJsonValue latest = element.value(u"current_version"_s);
        OutdatedApp app;
        app.id = idPrefix + name.toString();
        app.name = name.toString();
        app.installed = installedText(element.value(u"installed_versions"_s));
        app.latest = latest.isString() ? latest.toString() : QString();
        app.source = source;
        out.append(std::move(app));
    }
}

} // namespace

QStringList Homebrew::defaultBrewCandidates()
{
    return QStringList{u"/opt/homebrew/bin/brew"_s, u"/usr/local/bin/brew"_s} +
           Platform::extraBrewCandidates();
}

std::optional<QString> Homebrew::brewPath(const QStringList &candidates)
{
    // Deliberately not PATH: a `brew` found there could be anything the user's shell put
    // first, and Shell gives every child a fixed search path anyway.
    for (const QString &candidate : candidates) {
        if (Shell::isExecutableFile(candidate))
            return candidate;
    }
    return std::nullopt;
}

QList<OutdatedApp> Homebrew::brewOutdated(const QStringList &candidates)
{
    const std::optional<QString> brew = brewPath(candidates);
    if (!brew)
        return {};
    const std::optional<QString> output =
        Shell::run(*brew, {u"outdated"_s, u"--json=v2"_s}, {}, kOutdatedTimeoutSeconds);
    if (!output)
        return {};
    return parseBrewOutdated(output->toUtf8());
}

QList<OutdatedApp> Homebrew::parseBrewOutdated(const QByteArray &json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return {};
    const QJsonObject answer = document.object();
    QList<OutdatedApp> apps;
    appendGroup(apps, answer.value(u"formulae"_s), u"brew:"_s, OutdatedApp::Source::brewFormula);
    appendGroup(apps, answer.value(u"casks"_s), u"cask:"_s, OutdatedApp::Source::brewCask);
    return apps;
}

// nullopt only when no brew is found, so that the caller can tell a missing tool from a run
// that printed nothing (which gives empty text).
std::optional<QString> Homebrew::runBrewUpgrade(const OutdatedApp &app,
                                                const QStringList &candidates)
{
    const std::optional<QString> brew = brewPath(candidates);
    if (!brew)
        return std::nullopt;
    const QStringList arguments = app.source == OutdatedApp::Source::brewCask
                                      ? QStringList{u"upgrade"_s, u"--cask"_s, app.name}
                                      : QStringList{u"upgrade"_s, app.name};
    // The outcome is not judged: whatever brew printed, errors included, is the result.
    return Shell::run(*brew, arguments, {}, kUpgradeTimeoutSeconds).value_or(QString());
}
