#pragma once

#include "core/cleanup/SafetyGuard.h"
#include "core/outcomes/Removal.h"
#include "core/types/CleanItem.h"
#include "platform/Trash.h"

#include <QList>
#include <QString>
#include <functional>
#include <optional>

// The only place a clean-up changes the user's files: guard, move to the Trash, log.
namespace Cleaner {

// The path handed over and the folder below which it must hold no link.
using TrashMover = std::function<Platform::TrashMove(const QString &path, const QString &anchor)>;

// Items one at a time; one failure never stops the others.
Result remove(const QList<CleanItem> &items, const Locations &where);
// The same with another mover, for tests.
Result remove(const QList<CleanItem> &items, const Locations &where, const TrashMover &mover);

} // namespace Cleaner
