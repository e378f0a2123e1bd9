#include "core/cleanup/Restorer.h"

#include "core/cleanup/RemovalLog.h"
#include "core/cleanup/SafetyGuard.h"
#include "core/text/PathText.h"

#include <QHash>
#include <QSet>

using namespace Qt::StringLiterals;

namespace Restorer {
namespace {

// Enough for years of clean-ups; a planted giant log costs no more than this.
constexpr qint64 kMaxLogBytes = 64LL * 1024 * 1024;

// The separator of the move field, at its last occurrence followed by "/": a file name
// cannot hold "/", so only the Trash's own folders could fool it.
constexpr QStringView kForward = u" → /";
constexpr QStringView kBackward = u" ← ";

Outcome refused(Outcome outcome, Refusal why)
{
    outcome.kind = Outcome::Kind::refused;
    outcome.refusal = why;
    return outcome;
}

Outcome judged(Outcome outcome, const Platform::TrashRestore &done)
{
    using F = Platform::RestoreFailure;
    outcome.errorCode = done.errorCode;
    outcome.systemText = done.systemText;
    switch (done.failure) {
    case F::none:
        outcome.kind = done.restored ? Outcome::Kind::restored : Outcome::Kind::failed;
        outcome.recordKept = done.recordKept;
        return outcome;
    case F::gone:
        outcome.kind = Outcome::Kind::gone;
        return outcome;
    case F::destinationExists:
        outcome.kind = Outcome::Kind::destinationExists;
        return outcome;
    case F::notInTrash:
        return refused(outcome, Refusal::notInTrash);
    case F::throughLink:
        return refused(outcome, Refusal::throughLink);
    case F::recordMismatch:
        return refused(outcome, Refusal::recordMismatch);
    case F::parentMissing:
        return refused(outcome, Refusal::parentMissing);
    case F::permissionDenied:
        outcome.failure = Failure::permissionDenied;
        break;
    case F::crossDevice:
        outcome.failure = Failure::crossDevice;
        break;
    case F::other:
        break;
    }
    outcome.kind = Outcome::Kind::failed;
    return outcome;
}

// The folder no original may be in or be: the Trash itself.
QString trashOf(const System &system)
{
    return PathText::parentFolder(system.trashItemsFolder());
}

// Plain absolute paths only, and never into the Trash itself.
bool acceptableOriginal(const QString &original, const QString &trash)
{
    return original.startsWith(u'/') && PathText::standardized(original) == original &&
           original != u"/" && original != trash && !original.startsWith(trash + u'/');
}

} // namespace

std::optional<Move> parseLine(QStringView line)
{
    const QList<QStringView> fields = line.split(u'\t');
    if (fields.size() != 4)
        return std::nullopt;
    const QDateTime time = QDateTime::fromString(fields[0].toString(), Qt::ISODate);
    const std::optional<CleanCategory> category = cleanCategoryFromRaw(fields[1]);
    const std::optional<QString> move = PathText::unescaped(fields[3]);
    if (!time.isValid() || !category || !move)
        return std::nullopt;
    const qsizetype arrow = move->lastIndexOf(kForward);
    if (arrow <= 0)
        return std::nullopt;
    return Move{time.toUTC(), *category, move->left(arrow), move->mid(arrow + kForward.size() - 1)};
}

QList<Move> logged(const Locations &where)
{
    QList<Move> moves;
    const std::optional<QByteArray> text = RemovalLog::tail(where, kMaxLogBytes);
    if (!text)
        return moves;
    for (const QByteArray &line : text->split('\n')) {
        if (std::optional<Move> move = parseLine(QString::fromUtf8(line)))
            moves.append(std::move(*move));
    }
    // Appended in time order; stable, so moves of one second keep the later one first.
    std::reverse(moves.begin(), moves.end());
    std::stable_sort(moves.begin(), moves.end(),
                     [](const Move &a, const Move &b) { return a.time > b.time; });
    return moves;
}

QList<Move> restorable(const System &system)
{
    const Locations &where = system.where();
    QList<Move> result;
    QSet<QString> seen;
    const QString trash = trashOf(system);
    for (const Move &move : logged(where)) {
        if (seen.contains(move.trashedPath))
            continue;
        if (!acceptableOriginal(move.original, trash))
            continue;
        const QString anchor = SafetyGuard::anchor(move.original, where);
        using F = Platform::RestoreFailure;
        const F check =
            system.checkRestore(move.trashedPath, move.original, anchor, anchor == where.home());
        // Listed while the Trash provably holds it: what stands in the way at the original
        // place is the restore's outcome to report, not a reason to hide the move.
        if (check != F::none && check != F::destinationExists && check != F::parentMissing &&
            check != F::permissionDenied && check != F::crossDevice)
            continue;
        seen.insert(move.trashedPath);
        result.append(move);
    }
    return result;
}

QList<Move> movesOf(const Cleaner::Result &result, const QList<CleanItem> &items,
                    const QDateTime &when)
{
    QHash<QString, CleanCategory> categories;
    for (const CleanItem &item : items)
        categories.insert(item.path, item.category);
    QList<Move> moves;
    for (const Cleaner::Outcome &outcome : result.items) {
        if (outcome.kind == Cleaner::Outcome::Kind::moved && !outcome.trashedPath.isEmpty())
            moves.prepend(
                {when, categories.value(outcome.path), outcome.path, outcome.trashedPath});
    }
    return moves;
}

Result restore(const QList<Move> &moves, const System &system)
{
    const Locations &where = system.where();
    Result result;
    const QString trash = trashOf(system);
    result.items.reserve(moves.size());
    QList<Platform::RestoreRequest> requests;
    QList<qsizetype> requested; // the move behind each request
    for (qsizetype i = 0; i < moves.size(); ++i) {
        const Move &move = moves[i];
        Outcome outcome;
        outcome.original = move.original;
        outcome.trashedPath = move.trashedPath;
        outcome.shown = where.tilde(move.original);
        if (!acceptableOriginal(move.original, trash)) {
            result.items.append(refused(outcome, Refusal::badOriginal));
            continue;
        }
        // Folders may be made again only inside the home folder.
        const QString anchor = SafetyGuard::anchor(move.original, where);
        requests.append({move.trashedPath, move.original, anchor, anchor == where.home()});
        requested.append(i);
        result.items.append(std::move(outcome));
    }

    RemovalLog::Writer log(where);
    system.restoreFromTrash(requests, [&](qsizetype request, const Platform::TrashRestore &done) {
        const Move &move = moves[requested[request]];
        Outcome &outcome = result.items[requested[request]];
        outcome = judged(std::move(outcome), done);
        if (outcome.kind != Outcome::Kind::restored)
            return;
        ++result.count;
        outcome.logFailure = log.append({u"restored"_s, rawValue(move.category),
                                         move.original + kBackward.toString() + move.trashedPath});
    });
    return result;
}

} // namespace Restorer
