#pragma once

#include "core/outcomes/Refusal.h"
#include "core/outcomes/Removal.h"
#include "core/outcomes/TrashEmptying.h"

#include <QString>
#include <QStringList>
#include <optional>

// The words of clean-ups and the Trash, in the current language. The engine reports
// values; this is the one place they become sentences.
namespace Words {

QString refusal(SafetyGuard::Refusal refusal);

// Why an item was not moved: the guard's rule or the failure's cause.
QString reason(const Cleaner::Outcome &outcome);

// One "title: reason" line per item not moved, in input order; titles escaped.
QStringList failureLines(const Cleaner::Result &result);

// Moved count and size, then at most five skipped lines, then a line when some moves could
// not be logged.
QString removalSummary(const Cleaner::Result &result);

// The line a removal's message adds when some moves could not be logged.
std::optional<QString> unloggedLine(const Cleaner::Result &result);

QString removing();

// What emptying the Trash did.
QString trashMessage(const TrashEmptyResult &result);
QString emptying();

} // namespace Words
