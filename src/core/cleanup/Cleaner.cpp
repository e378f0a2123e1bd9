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
    Result result;
    result.items.reserve(items.size());
    QList<Platform::TrashRequest> requests;
    QList<qsizetype> requested; // the item behind each request
    for (qsizetype i = 0; i < items.size(); ++i) {
        const CleanItem &item = items[i];
        Outcome outcome;
        outcome.path = item.path;
        outcome.title = item.title;
        if (const auto refused = SafetyGuard::refusal(item.path, item.category, where)) {
            outcome.kind = Outcome::Kind::refused;
            outcome.refusal = refused;
        } else {
            // The move acts on the very path the guard judged.
            const QString standard = PathText::standardized(item.path);
            requests.append({standard, SafetyGuard::anchor(standard, where)});
            requested.append(i);
        }
        result.items.append(std::move(outcome));
    }

    Platform::TrashBatch batch(where.userFolders());
    RemovalLog::Writer log(where);
    system.moveToTrash(requests, batch, [&](qsizetype request, const Platform::TrashMove &move) {
        const CleanItem &item = items[requested[request]];
        Outcome &outcome = result.items[requested[request]];
        if (!move.moved) {
            outcome.failure = failureOf(move);
            outcome.errorCode = move.errorCode;
            outcome.systemText = move.systemText;
            return;
        }
        outcome.kind = Outcome::Kind::moved;
        outcome.trashedPath = move.trashedPath;
        ++result.count;
        result.bytes += item.bytes;
        const QString destination =
            move.trashedPath.isEmpty() ? QStringLiteral("Trash") : move.trashedPath;
        outcome.logFailure = log.append({rawValue(item.category), Fmt::bytes(item.bytes),
                                         item.path + QStringLiteral(" → ") + destination});
    });
    return result;
}

} // namespace Cleaner
