#pragma once

#include <QList>
#include <QString>
#include <optional>

namespace Restorer {

// Why a logged move was not even tried.
enum class Refusal {
    notInTrash,     // the path in the Trash is not an entry of a Trash
    throughLink,    // a link on the way to the entry or to the original's folder
    recordMismatch, // the Trash's own record is missing or names another place
    parentMissing,  // the original's folder is gone and lies outside the home folder
    badOriginal,    // the original is no plain absolute path, or lies inside the Trash
};

// Why a tried move back did not happen.
enum class Failure { permissionDenied, crossDevice, other };

// What happened to one item. Words renders it; nothing here is text for people.
struct Outcome
{
    enum class Kind { restored, gone, destinationExists, refused, failed };
    QString original;
    QString trashedPath;
    QString shown; // the original as people see it ("~/…")
    Kind kind = Kind::failed;
    std::optional<Refusal> refusal; // refused: the rule
    Failure failure = Failure::other;
    int errorCode = 0;
    QString systemText;
    bool recordKept = false;       // restored, but the Trash's record of it stays
    std::optional<int> logFailure; // restored but not logged: the errno that stopped the line
};

struct Result
{
    int count = 0;        // items put back
    QList<Outcome> items; // one per move asked for, in that order
};

// "restored", "gone", "destinationExists", "notInTrash", …: stable in every language.
QString code(const Outcome &outcome);

} // namespace Restorer
