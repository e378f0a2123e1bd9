#pragma once

#include <QByteArray>
#include <QString>

// Everything the server answers and the truth the check is held to derive from these
// functions alone, so the serving process curl talks to needs no shared state.
namespace UpdatesBench {

constexpr int kStoreApps = 100;
constexpr int kFeedApps = 100;
constexpr int kSilentFeeds = 3;
// Store apps that also carry a feed: the App Store has to win, so these are never asked.
constexpr int kDecoyEvery = 10;

enum class Outcome { outdated, current, ahead };

Outcome outcome(int i);

struct Release
{
    QString installed;
    QString latest;
};

Release release(int i);

// Disagrees with the short versions and with the feeds' build: a checker reading the wrong
// field errs.
extern const QString kInstalledBuild;

QString storeName(int i);
QString storeId(int i);
QString feedName(int i);
QString feedId(int i);
QString feedPath(int i);
QString decoyPath(int i);
QString silentName(int i);
QString silentId(int i);
QString silentPath(int i);

struct Answer
{
    bool silent = false;
    int latencyMs = 0;
    int status = 200;
    QByteArray type;
    QByteArray body;
};

Answer answerFor(const QByteArray &target);

} // namespace UpdatesBench
