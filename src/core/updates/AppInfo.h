#pragma once

#include <QString>
#include <optional>

// One installed application as its Info.plist describes it.
struct AppInfo
{
    QString path; // the bundle: folder + "/" + entry name
    QString name;
    QString bundleID;
    QString shortVersion;        // "" when missing or not text
    QString build;               // "" when missing or not text
    std::optional<QString> feed; // SUFeedURL verbatim
    bool mas = false;            // holds an App Store receipt

    friend bool operator==(const AppInfo &, const AppInfo &) = default;
};
