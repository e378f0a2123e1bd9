#include "core/cleanup/Cleaner.h"

#include "core/cleanup/RemovalLog.h"
#include "core/cleanup/SafetyGuard.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/text/PathText.h"

namespace Cleaner {

QString failureText(const Platform::TrashMove &move)
{
    if (!move.systemText.isEmpty())
        return move.systemText;
    switch (move.failure) {
    case Platform::TrashFailure::missing:
        return L10n::pick(QStringLiteral("the item no longer exists"),
                          QStringLiteral("项目已不存在"));
    case Platform::TrashFailure::permissionDenied:
        return L10n::pick(QStringLiteral("permission denied"), QStringLiteral("没有权限"));
    case Platform::TrashFailure::noTrash:
        return L10n::pick(QStringLiteral("no Trash on that volume"),
                          QStringLiteral("该卷上没有废纸篓"));
    case Platform::TrashFailure::nameTooLong:
        return L10n::pick(QStringLiteral("name too long"), QStringLiteral("名称过长"));
    case Platform::TrashFailure::none:
    case Platform::TrashFailure::other:
        break;
    }
    if (move.errorCode != 0)
        return qt_error_string(move.errorCode);
    return L10n::pick(QStringLiteral("could not be moved to the Trash"),
                      QStringLiteral("无法移到废纸篓"));
}

Result remove(const QList<CleanItem> &items, const TrashMover &mover)
{
    Result result;
    for (const CleanItem &item : items) {
        Outcome outcome{item.path, Outcome::Kind::failed, {}, {}, {}};
        // The move acts on the very path the guard judged.
        const QString standard = PathText::standardized(item.path);
        if (const auto refused = SafetyGuard::refusal(item.path, item.category)) {
            outcome.kind = Outcome::Kind::refused;
            outcome.reason = *refused;
        } else if (const Platform::TrashMove move = mover(standard, SafetyGuard::anchor(standard));
                   !move.moved) {
            outcome.reason = failureText(move);
        } else {
            outcome.kind = Outcome::Kind::moved;
            outcome.trashedPath = move.trashedPath;
            ++result.count;
            result.bytes += item.bytes;
            const QString destination =
                move.trashedPath.isEmpty() ? QStringLiteral("Trash") : move.trashedPath;
            outcome.logFailure =
                RemovalLog::append({rawValue(item.category), Fmt::bytes(item.bytes),
                                    item.path + QStringLiteral(" → ") + destination});
        }
        if (outcome.kind != Outcome::Kind::moved)
            result.failures.append(PathText::escaped(item.title) + QStringLiteral(": ") +
                                   outcome.reason);
        result.items.append(std::move(outcome));
    }
    return result;
}

Result remove(const QList<CleanItem> &items)
{
    return remove(items, [](const QString &path, const QString &anchor) {
        return Platform::moveToTrash(path, anchor);
    });
}

std::optional<QString> unloggedText(const Result &result)
{
    int unlogged = 0;
    int error = 0;
    for (const Outcome &outcome : result.items) {
        if (outcome.logFailure) {
            ++unlogged;
            error = *outcome.logFailure;
        }
    }
    if (unlogged == 0)
        return std::nullopt;
    const QString n = QString::number(unlogged);
    const QString why = qt_error_string(error);
    return L10n::pick(QStringLiteral("The removal log could not be written (") + why +
                          QStringLiteral("): ") + n + QStringLiteral(" move(s) not logged."),
                      QStringLiteral("无法写入删除记录（") + why + QStringLiteral("）：") + n +
                          QStringLiteral(" 项移动未记录。"));
}

} // namespace Cleaner
