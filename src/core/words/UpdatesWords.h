#pragma once

#include "core/updates/OutdatedApp.h"

#include <QString>

// How the updates page and the reports name a source, in the current language.
QString sourceLabel(OutdatedApp::Source source);

// The updater's status line; `zh` fixed per check so one check speaks one language.
namespace Words {

QString checkingHomebrew(bool zh);
QString checkingApps(bool zh);
QString upToDate(bool zh);
QString updatesAvailable(qsizetype count, bool zh);
QString upgrading(const QString &name, bool zh);
QString upgraded(const QString &name, bool zh);

} // namespace Words
