#include "core/cleanup/Cleaner.h"

#include "core/cleanup/RemovalLog.h"
#include "core/text/Fmt.h"
#include "core/text/PathText.h"

#include <cerrno>

namespace Cleaner {
namespace {

Failure failureOf(const Platform::TrashMove &move)
{
    if (move.errorCode == EXDEV)
        return Failure::crossDevice;
    switch (move.failure) {
    case Platform::TrashFailure::missing:
        return Failure::missing;
    case Platform::TrashFailure::permissionDenied:
        return Failure::permissionDenied;
    case Platform::TrashFailure::noTrash:
        return Failure::noTrash;
    case Platform::TrashFailure::nameTooLong:
        return Failure::nameTooLong;
    case Platform::TrashFailure::none:
    case Platform::TrashFailure::other:
        break;
    }
    return Failure::other;
}

} // namespace

Result remove(const QList<CleanItem> &items, const System &system)
{
    const Locations &where = system.where();
    Platform::TrashBatch batch(where.userFolders());
    RemovalLog::Writer log(where);
    Result result;
    for (const CleanItem &item : items) {
        Outcome outcome;
        outcome.path = item.path;
        outcome.title = item.title;
        // The move acts on the very path the guard judged.
        const QString standard = PathText::standardized(item.path);
        if (const auto refused = SafetyGuard::refusal(item.path, item.category, where)) {
            outcome.kind = Outcome::Kind::refused;
            outcome.refusal = refused;
        } else if (const Platform::TrashMove move =
                       system.moveToTrash(standard, SafetyGuard::anchor(standard, where), batch);
                   !move.moved) {
            outcome.failure = failureOf(move);
            outcome.errorCode = move.errorCode;
            outcome.systemText = move.systemText;
        } else {
            outcome.kind = Outcome::Kind::moved;
            outcome.trashedPath = move.trashedPath;
            ++result.count;
            result.bytes += item.bytes;
            const QString destination =
                move.trashedPath.isEmpty() ? QStringLiteral("Trash") : move.trashedPath;
            outcome.logFailure = log.append({rawValue(item.category), Fmt::bytes(item.bytes),
                                             item.path + QStringLiteral(" → ") + destination});
        }
        result.items.append(std::move(outcome));
    }
    return result;
}

} // namespace Cleaner
