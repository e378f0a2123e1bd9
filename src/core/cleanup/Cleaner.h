#pragma once

#include "core/cleanup/CleanItem.h"
#include "core/cleanup/SafetyGuard.h"
#include "platform/Trash.h"

#include <QList>
#include <QString>
#include <functional>
#include <optional>

// The only place a clean-up changes the user's files: guard, move to the Trash, log.
namespace Cleaner {

// Why a move the guard allowed did not happen.
enum class Failure { missing, permissionDenied, noTrash, crossDevice, nameTooLong, other };

// What happened to one item, keyed by its path. Words renders it; nothing here is text
// for people.
struct Outcome
{
    enum class Kind { moved, refused, failed };
    QString path;
    QString title;
    Kind kind = Kind::failed;
    QString trashedPath;           // moved: where it went, empty when the system did not say
    std::optional<int> logFailure; // moved but not logged: the errno that stopped the line
    std::optional<SafetyGuard::Refusal> refusal; // refused: the rule
    Failure failure = Failure::other;            // failed: the cause
    int errorCode = 0;                           // failed: the errno behind it, when known
    QString systemText; // failed: the system's own description, when it gave one
};

struct Result
{
    int count = 0;        // items moved
    qint64 bytes = 0;     // their sizes as measured at scan time
    QList<Outcome> items; // one per input item, in input order
};

// The path handed over and the folder below which it must hold no link.
using TrashMover = std::function<Platform::TrashMove(const QString &path, const QString &anchor)>;

// Items one at a time; one failure never stops the others.
Result remove(const QList<CleanItem> &items);
// The same with another mover, for tests.
Result remove(const QList<CleanItem> &items, const TrashMover &mover);

// "moved", "missing", "protectedLocation", …: stable, the same in every language.
QString code(const Outcome &outcome);

} // namespace Cleaner
