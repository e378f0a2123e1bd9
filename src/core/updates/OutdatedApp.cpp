#include "core/updates/OutdatedApp.h"

#include "core/text/L10n.h"

using namespace Qt::StringLiterals;

#include <array>
#include <utility>

namespace {

// The names double as stored and logged values, so they must stay the case names.
const std::array<std::pair<OutdatedApp::Source, QStringView>, 4> kSourceNames{{
    {OutdatedApp::Source::brewFormula, u"brewFormula"},
    {OutdatedApp::Source::brewCask, u"brewCask"},
    {OutdatedApp::Source::appStore, u"appStore"},
    {OutdatedApp::Source::sparkle, u"sparkle"},
}};

} // namespace

QString rawValue(OutdatedApp::Source source)
{
    for (const auto &[value, name] : kSourceNames) {
        if (value == source)
            return name.toString();
    }
    return {};
}

std::optional<OutdatedApp::Source> outdatedSourceFromRaw(QStringView raw)
{
    for (const auto &[value, name] : kSourceNames) {
        if (name == raw)
            return value;
    }
    return std::nullopt;
}

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
