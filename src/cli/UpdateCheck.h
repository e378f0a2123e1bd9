#pragma once

#include "core/models/AppUpdater.h"

#include <QString>
#include <QStringList>

// What the update commands share: where Homebrew is looked for, and one scan run to its end.
namespace UpdateCheck {

// QUORVEL_BREW, when set, is the only candidate, so that tests and unusual installs need
// nothing under /opt or /usr/local. Set but not an executable means no Homebrew.
QStringList brewCandidates();
AppUpdater::Services services(const std::shared_ptr<const System> &system);

// Runs one scan to completion, with its progress on standard error when that is a terminal.
void scan(AppUpdater &updater);

// The environment section both usages end with.
QString environmentHelp();

} // namespace UpdateCheck
