#pragma once

#include "core/outcomes/Removal.h"
#include "core/outcomes/Restore.h"
#include "core/system/System.h"
#include "core/types/CleanItem.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <optional>

// Undoing clean-ups: each item one of our moves put in the Trash goes back where it was,
// never over anything. The removal log is the user's to edit, so its lines are only claims:
// the platform proves each one against the Trash before anything moves.
namespace Restorer {

// One move to the Trash: from a removal just made, or one line of the removal log.
struct Move
{
    QDateTime time; // UTC
    CleanCategory category = CleanCategory::userCache;
    QString original;
    QString trashedPath;
};

// A move line of the log ("time, category, size, original → path in the Trash"); nullopt
// for restore lines, moves that name no path in the Trash and anything malformed.
std::optional<Move> parseLine(QStringView line);

// Every move line of the log, newest first.
QList<Move> logged(const Locations &where);

// The logged moves whose item can go back now, newest first; a Trash entry named by several
// lines counts once, for its newest.
QList<Move> restorable(const System &system);

// What a removal of `items` just moved, newest first.
QList<Move> movesOf(const Cleaner::Result &result, const QList<CleanItem> &items,
                    const QDateTime &when);

// In the order given; one failure never stops the others. Each item put back is logged as
// "time, restored, category, original ← path in the Trash".
Result restore(const QList<Move> &moves, const System &system);

} // namespace Restorer
