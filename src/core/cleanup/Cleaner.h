#pragma once

#include "core/cleanup/CleanItem.h"
#include "platform/Trash.h"

#include <QList>
#include <QStringList>
#include <functional>

// The only place a clean-up changes the user's files: guard, move to the Trash, log.
namespace Cleaner {

struct Result
{
    int count = 0;        // items moved
    qint64 bytes = 0;     // their sizes as measured at scan time
    QStringList failures; // "title: reason", in input order
};

using TrashMover = std::function<Platform::TrashMove(const QString &path)>;

// Items one at a time; one failure never stops the others.
Result remove(const QList<CleanItem> &items);
// The same with another mover, for tests.
Result remove(const QList<CleanItem> &items, const TrashMover &mover);

// A short reason in the current language for a failed move.
QString failureText(const Platform::TrashMove &move);

} // namespace Cleaner
