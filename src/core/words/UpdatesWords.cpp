#include "core/words/UpdatesWords.h"

#include "core/text/L10n.h"

using namespace Qt::StringLiterals;

QString sourceLabel(OutdatedApp::Source source)
{
    switch (source) {
    case OutdatedApp::Source::brewFormula:
        return u"Homebrew"_s;
    case OutdatedApp::Source::brewCask:
        return u"Homebrew Cask"_s;
    case OutdatedApp::Source::appStore:
        return u"App Store"_s;
    case OutdatedApp::Source::sparkle:
        return L10n::pick(u"In-app updater"_s, u"应用内更新"_s);
    }
    return {};
}

namespace Words {

QString checkingHomebrew(bool zh)
{
    return zh ? u"正在检查 Homebrew…"_s : u"Checking Homebrew…"_s;
}

QString checkingApps(bool zh)
{
    return zh ? u"正在检查 App Store 和应用自带更新…"_s
              : u"Checking App Store and in-app updaters…"_s;
}

QString upToDate(bool zh)
{
    return zh ? u"所有应用都是最新版。"_s : u"Everything is up to date."_s;
}

QString updatesAvailable(qsizetype count, bool zh)
{
    const QString n = QString::number(count);
    return zh ? u"有 "_s + n + u" 个更新"_s : n + u" update(s) available"_s;
}

QString upgrading(const QString &name, bool zh)
{
    return zh ? u"正在升级 "_s + name + u"…"_s : u"Upgrading "_s + name + u"…"_s;
}

QString upgraded(const QString &name, bool zh)
{
    return zh ? u"已升级："_s + name : u"Done: "_s + name;
}

} // namespace Words
