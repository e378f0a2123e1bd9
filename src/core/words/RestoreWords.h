#pragma once

#include "core/outcomes/Restore.h"

#include <QString>
#include <QStringList>

// The words of putting items back from the Trash, in the current language.
namespace Words {

QString undo();
QString restoring();
QString putBack();

// Why an item was not put back.
QString reason(const Restorer::Outcome &outcome);

// One "path: reason" line per item not put back, in order; paths escaped.
QStringList failureLines(const Restorer::Result &result);

// "Restored N items.", then at most five lines of what stayed and why, then how many more;
// a line when the Trash kept records or the log missed lines.
QString restoreSummary(const Restorer::Result &result);

// The Overview's line for the items Quorvel moved that can go back.
QString restorableLine(int count);

} // namespace Words
