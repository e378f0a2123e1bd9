#include "core/words/ScreenWords.h"

#include "core/text/L10n.h"

using namespace Qt::StringLiterals;

namespace Words {

QString accessibilityNeeded()
{
    return L10n::pick(
        u"Allow Quorvel in System Settings → Privacy & Security → Accessibility, then try again."_s,
        u"请在「系统设置 → 隐私与安全性 → 辅助功能」里允许 Quorvel，然后再试。"_s);
}

QString lockFailed()
{
    return L10n::pick(u"Could not install the keyboard lock. Check the Accessibility permission."_s,
                      u"无法锁定键盘，请检查辅助功能权限。"_s);
}

QString exitHint(int escPresses)
{
    return L10n::pick(u"Press Esc 3 times quickly to exit"_s, u"连按 3 次 Esc 退出"_s) + u"  ("_s +
           QString::number(escPresses) + u"/3)"_s;
}

} // namespace Words
