#include "core/words/CleanupWords.h"

#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/text/PathText.h"

using namespace Qt::StringLiterals;

namespace Words {

QString refusal(SafetyGuard::Refusal refusal)
{
    using R = SafetyGuard::Refusal;
    switch (refusal) {
    case R::outsideHome:
        return L10n::pick(u"outside your home folder — refused"_s, u"不在个人文件夹内，拒绝"_s);
    case R::insideLibrary:
        return L10n::pick(u"inside Library — refused"_s, u"资源库内的文件，拒绝"_s);
    case R::protectedLocation:
        return L10n::pick(u"protected location — refused"_s, u"受保护位置，拒绝"_s);
    case R::protectedExtension:
        return L10n::pick(u"protected file type — refused"_s, u"受保护的文件类型，拒绝"_s);
    case R::notCleanable:
        return L10n::pick(u"not in a cleanable area — refused"_s, u"不在允许清理的范围内，拒绝"_s);
    case R::notAnApplication:
        return L10n::pick(u"not an app in Applications — refused"_s,
                          u"不是「应用程序」里的应用，拒绝"_s);
    case R::appleApplication:
        return L10n::pick(u"Apple app — refused"_s, u"Apple 自带应用，拒绝"_s);
    case R::symbolicLink:
        break;
    }
    return L10n::pick(u"path goes through a symbolic link — refused"_s,
                      u"路径经过符号链接 — 已拒绝"_s);
}

QString reason(const Cleaner::Outcome &outcome)
{
    if (outcome.refusal)
        return refusal(*outcome.refusal);
    if (!outcome.systemText.isEmpty())
        return outcome.systemText;
    switch (outcome.failure) {
    case Cleaner::Failure::missing:
        return L10n::pick(u"the item no longer exists"_s, u"项目已不存在"_s);
    case Cleaner::Failure::permissionDenied:
        return L10n::pick(u"permission denied"_s, u"没有权限"_s);
    case Cleaner::Failure::noTrash:
    case Cleaner::Failure::crossDevice:
        return L10n::pick(u"no Trash on that volume"_s, u"该卷上没有废纸篓"_s);
    case Cleaner::Failure::nameTooLong:
        return L10n::pick(u"name too long"_s, u"名称过长"_s);
    case Cleaner::Failure::other:
        break;
    }
    if (outcome.errorCode != 0)
        return qt_error_string(outcome.errorCode);
    return L10n::pick(u"could not be moved to the Trash"_s, u"无法移到废纸篓"_s);
}

QStringList failureLines(const Cleaner::Result &result)
{
    QStringList lines;
    for (const Cleaner::Outcome &outcome : result.items) {
        if (outcome.kind != Cleaner::Outcome::Kind::moved)
            lines.append(PathText::escaped(outcome.title) + u": "_s + reason(outcome));
    }
    return lines;
}

std::optional<QString> unloggedLine(const Cleaner::Result &result)
{
    int unlogged = 0;
    int error = 0;
    for (const Cleaner::Outcome &outcome : result.items) {
        if (outcome.logFailure) {
            ++unlogged;
            error = *outcome.logFailure;
        }
    }
    if (unlogged == 0)
        return std::nullopt;
    const QString n = QString::number(unlogged);
    const QString why = qt_error_string(error);
    return L10n::pick(u"The removal log could not be written ("_s + why + u"): "_s + n +
                          u" move(s) not logged."_s,
                      u"无法写入删除记录（"_s + why + u"）："_s + n + u" 项移动未记录。"_s);
}

QString removalSummary(const Cleaner::Result &result)
{
    const QString n = QString::number(result.count);
    const QString size = Fmt::bytes(result.bytes);
    QString text = L10n::pick(u"Moved "_s + n + u" item(s) ("_s + size + u") to the Trash."_s,
                              u"已把 "_s + n + u" 项（"_s + size + u"）移到废纸篓。"_s);
    const QStringList failures = failureLines(result);
    if (!failures.isEmpty()) {
        text += u'\n' + L10n::pick(u"Skipped:"_s, u"已跳过："_s) + u'\n' +
                failures.mid(0, 5).join(u'\n');
    }
    if (const std::optional<QString> unlogged = unloggedLine(result))
        text += u'\n' + *unlogged;
    return text;
}

QString removing()
{
    return L10n::pick(u"Removing…"_s, u"正在删除…"_s);
}

QString emptying()
{
    return L10n::pick(u"Emptying…"_s, u"正在清空…"_s);
}

QString trashMessage(const TrashEmptyResult &result)
{
    QString text;
    switch (result.code) {
    case TrashEmptyResult::Code::emptied:
        text = L10n::pick(u"Trash emptied."_s, u"已清空。"_s);
        break;
    case TrashEmptyResult::Code::partial: {
        const QString n = QString::number(result.left);
        text =
            L10n::pick(u"The Trash could not be emptied completely: "_s + n + u" item(s) remain."_s,
                       u"废纸篓未能完全清空：还剩 "_s + n + u" 项。"_s);
        break;
    }
    case TrashEmptyResult::Code::stillEmptying:
        text = L10n::pick(u"The Finder is still emptying the Trash."_s, u"访达仍在清空废纸篓。"_s);
        break;
    case TrashEmptyResult::Code::failed:
        text = result.systemText.isEmpty() ? u"AppleScript error"_s : result.systemText;
        break;
    }
    if (result.kept > 0) {
        const QString k = QString::number(result.kept);
        text += L10n::pick(u" "_s + k + u" item(s) added after you confirmed were kept."_s,
                           u"确认之后放入的 "_s + k + u" 项已保留。"_s);
    }
    return text;
}

} // namespace Words
