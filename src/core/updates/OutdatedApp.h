#pragma once

#include <QString>
#include <QStringView>
#include <functional>
#include <optional>

// One installed package or application for which a newer version was found.
struct OutdatedApp
{
    enum class Source { brewFormula, brewCask, appStore, sparkle };

    QString id;        // "brew:"/"cask:" + package for Homebrew, else the bundle identifier
    QString name;      // the row's title; for Homebrew also the upgrade's package argument
    QString installed; // as shown to the user
    QString latest;
    Source source = Source::brewFormula;
    std::optional<QString> appPath; // the bundle, for App Store and appcast findings

    friend bool operator==(const OutdatedApp &, const OutdatedApp &) = default;
};

QString rawValue(OutdatedApp::Source source);
std::optional<OutdatedApp::Source> outdatedSourceFromRaw(QStringView raw);

// How one App Store or appcast check reports: what it found, or nothing.
using Finding = std::function<void(std::optional<OutdatedApp>)>;
