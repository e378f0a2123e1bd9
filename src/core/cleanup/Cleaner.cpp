#include "core/cleanup/Cleaner.h"

#include "core/cleanup/RemovalLog.h"
#include "core/cleanup/SafetyGuard.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"

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
        if (const auto refused = SafetyGuard::refusal(item.path, item.category)) {
            result.failures.append(item.title + QStringLiteral(": ") + *refused);
            continue;
        }
        const Platform::TrashMove move = mover(item.path);
        if (!move.moved) {
            result.failures.append(item.title + QStringLiteral(": ") + failureText(move));
            continue;
        }
        ++result.count;
        result.bytes += item.bytes;
        const QString destination =
            move.trashedPath.isEmpty() ? QStringLiteral("Trash") : move.trashedPath;
        RemovalLog::append(rawValue(item.category) + u'\t' + Fmt::bytes(item.bytes) + u'\t' +
                           item.path + QStringLiteral(" → ") + destination);
    }
    return result;
}

Result remove(const QList<CleanItem> &items)
{
    return remove(items, &Platform::moveToTrash);
}

} // namespace Cleaner
