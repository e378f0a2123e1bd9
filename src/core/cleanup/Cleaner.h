#pragma once

#include "core/cleanup/CleanItem.h"
#include "platform/Trash.h"

#include <QList>
#include <QStringList>
#include <functional>
#include <optional>

// The only place a clean-up changes the user's files: guard, move to the Trash, log.
namespace Cleaner {

// What happened to one item, keyed by its path.
struct Outcome
{
    enum class Kind { moved, refused, failed };
    QString path;
    Kind kind = Kind::failed;
    QString trashedPath;           // moved: where it went, empty when the system did not say
    std::optional<int> logFailure; // moved but not logged: the errno that stopped the line
    QString reason;                // refused or failed: the words shown next to the title
};

struct Result
{
    int count = 0;        // items moved
    qint64 bytes = 0;     // their sizes as measured at scan time
    QStringList failures; // "title: reason", in input order
    QList<Outcome> items; // one per input item, in input order
};

// The path handed over and the folder below which it must hold no link.
using TrashMover = std::function<Platform::TrashMove(const QString &path, const QString &anchor)>;

// Items one at a time; one failure never stops the others.
Result remove(const QList<CleanItem> &items);
// The same with another mover, for tests.
Result remove(const QList<CleanItem> &items, const TrashMover &mover);

// A short reason in the current language for a failed move.
QString failureText(const Platform::TrashMove &move);

// Moves that could not be logged: the one line a removal's message adds for them, or
// nothing when every move was logged.
std::optional<QString> unloggedText(const Result &result);

} // namespace Cleaner
