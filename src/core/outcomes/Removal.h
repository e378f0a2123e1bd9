#pragma once

#include "core/outcomes/Refusal.h"

#include <QList>
#include <QString>
#include <optional>

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

// "moved", "missing", "protectedLocation", …: stable, the same in every language.
QString code(const Outcome &outcome);

} // namespace Cleaner
