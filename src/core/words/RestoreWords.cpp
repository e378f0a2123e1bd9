#include "core/words/RestoreWords.h"

#include "core/words/CleanupWords.h"

#include "core/text/L10n.h"
#include "core/text/PathText.h"

using namespace Qt::StringLiterals;

namespace Words {
namespace {

constexpr int kShownLines = 5;

QString refusal(Restorer::Refusal refusal)
{
    using R = Restorer::Refusal;
    switch (refusal) {
    case R::notInTrash:
        return L10n::pick(u"not an item in the Trash — refused"_s, u"不是废纸篓里的项目，拒绝"_s);
    case R::throughLink:
        return Words::refusal(SafetyGuard::Refusal::symbolicLink); // the guard's own words
    case R::recordMismatch:
        return L10n::pick(u"the Trash's record names another place — refused"_s,
                          u"废纸篓的记录与日志不符，拒绝"_s);
    case R::parentMissing:
        return L10n::pick(u"its folder no longer exists"_s, u"原来的文件夹已不存在"_s);
    case R::badOriginal:
        break;
    }
    return L10n::pick(u"not a place to restore to — refused"_s, u"不能恢复到该位置，拒绝"_s);
}

} // namespace

QString undo()
{
    return L10n::pick(u"Undo"_s, u"撤销"_s);
}

QString restoring()
{
    return L10n::pick(u"Restoring…"_s, u"正在恢复…"_s);
}

QString putBack()
{
    return L10n::pick(u"Put Back"_s, u"放回原处"_s);
}

QString reason(const Restorer::Outcome &outcome)
{
    using K = Restorer::Outcome::Kind;
    switch (outcome.kind) {
    case K::restored:
        return {};
    case K::gone:
        return L10n::pick(u"no longer in the Trash"_s, u"已不在废纸篓中"_s);
    case K::destinationExists:
        return L10n::pick(u"something with that name is there again; left in the Trash"_s,
                          u"原位置已有同名项目，仍留在废纸篓"_s);
    case K::refused:
        return refusal(outcome.refusal.value_or(Restorer::Refusal::notInTrash));
    case K::failed:
        break;
    }
    if (!outcome.systemText.isEmpty())
        return outcome.systemText;
    switch (outcome.failure) {
    case Restorer::Failure::permissionDenied:
        return L10n::pick(u"permission denied"_s, u"没有权限"_s);
    case Restorer::Failure::crossDevice:
        return L10n::pick(u"its folder is on another volume"_s, u"原文件夹在另一个卷上"_s);
    case Restorer::Failure::other:
        break;
    }
    if (outcome.errorCode != 0)
        return qt_error_string(outcome.errorCode);
    return L10n::pick(u"could not be put back"_s, u"无法放回"_s);
}

QStringList failureLines(const Restorer::Result &result)
{
    QStringList lines;
    for (const Restorer::Outcome &outcome : result.items) {
        if (outcome.kind != Restorer::Outcome::Kind::restored)
            lines.append(PathText::escaped(outcome.shown) + u": "_s + reason(outcome));
    }
    return lines;
}

QString restoreSummary(const Restorer::Result &result)
{
    const QString n = QString::number(result.count);
    QString text = L10n::pick(u"Restored "_s + n + u" items."_s, u"已恢复 "_s + n + u" 项。"_s);
    const QStringList failures = failureLines(result);
    for (const QString &line : failures.mid(0, kShownLines))
        text += u'\n' + line;
    if (failures.size() > kShownLines) {
        const QString more = QString::number(failures.size() - kShownLines);
        text += u'\n' + L10n::pick(u"and "_s + more + u" more"_s, u"另有 "_s + more + u" 项"_s);
    }
    int kept = 0;
    int unlogged = 0;
    int error = 0;
    for (const Restorer::Outcome &outcome : result.items) {
        kept += outcome.recordKept ? 1 : 0;
        if (outcome.logFailure) {
            ++unlogged;
            error = *outcome.logFailure;
        }
    }
    if (kept > 0) {
        const QString k = QString::number(kept);
        text += u'\n' + L10n::pick(u"The Trash still lists "_s + k + u" of them."_s,
                                   u"废纸篓里仍有其中 "_s + k + u" 项的记录。"_s);
    }
    if (unlogged > 0) {
        const QString why = qt_error_string(error);
        const QString u = QString::number(unlogged);
        text += u'\n' +
                L10n::pick(u"The removal log could not be written ("_s + why + u"): "_s + u +
                               u" restore(s) not logged."_s,
                           u"无法写入删除记录（"_s + why + u"）："_s + u + u" 项恢复未记录。"_s);
    }
    return text;
}

QString restorableLine(int count)
{
    const QString n = QString::number(count);
    return L10n::pick(n + u" moved by Quorvel · Restore…"_s,
                      u"Quorvel 移入 "_s + n + u" 项 · 恢复…"_s);
}

} // namespace Words
