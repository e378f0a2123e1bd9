#pragma once

#include "core/cleanup/SafetyGuard.h"
#include "core/outcomes/Removal.h"
#include "core/system/System.h"
#include "core/types/CleanItem.h"

#include <QList>
#include <QString>
#include <optional>

// The only place a clean-up changes the user's files: guard, move to the Trash, log.
namespace Cleaner {

// Every item is judged by the guard first; those admitted then move in their order, each
// logged right after its move. One failure never stops the others.
Result remove(const QList<CleanItem> &items, const System &system);

} // namespace Cleaner
