#include "core/updates/OutdatedApp.h"

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
