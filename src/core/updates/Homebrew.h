#pragma once

#include "core/updates/OutdatedApp.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

// Homebrew's outdated packages and their upgrade. Everything but the parser blocks on
// the brew executable: worker threads only.
namespace Homebrew {

QStringList defaultBrewCandidates();
// The first candidate that is an executable file, or nullopt.
std::optional<QString> brewPath(const QStringList &candidates = defaultBrewCandidates());
// The outdated formulae, then casks.
QList<OutdatedApp> brewOutdated(const QStringList &candidates = defaultBrewCandidates());
// Reads `brew outdated --json=v2` output.
QList<OutdatedApp> parseBrewOutdated(const QByteArray &json);
// What brew printed; nullopt only when there is no brew.
std::optional<QString> runBrewUpgrade(const OutdatedApp &app,
                                      const QStringList &candidates = defaultBrewCandidates());

} // namespace Homebrew
