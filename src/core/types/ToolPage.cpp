#include "core/types/ToolPage.h"

using namespace Qt::StringLiterals;

namespace {

struct PageText
{
    const char *raw;
    const char *symbol;
};

constexpr std::array<PageText, 7> kPages{{
    {"overview", "gauge.with.dots.needle.33percent"},
    {"cleanup", "trash"},
    {"leftovers", "shippingbox"},
    {"largeFiles", "doc.zipper"},
    {"unusedApps", "app.dashed"},
    {"screen", "sparkles.rectangle.stack"},
    {"updates", "arrow.down.circle"},
}};

const PageText &textOf(ToolPage page)
{
    return kPages[size_t(page)];
}

} // namespace

QString rawValue(ToolPage page)
{
    return QString::fromLatin1(textOf(page).raw);
}

std::optional<ToolPage> toolPageFromRaw(QStringView raw)
{
    for (ToolPage page : kAllToolPages) {
        if (raw == QLatin1String(textOf(page).raw))
            return page;
    }
    return std::nullopt;
}

QString symbolName(ToolPage page)
{
    return QString::fromLatin1(textOf(page).symbol);
}

std::optional<QList<CleanCategory>> cleanCategories(ToolPage page)
{
    switch (page) {
    case ToolPage::cleanup:
        return QList<CleanCategory>{CleanCategory::userCache, CleanCategory::logs,
                                    CleanCategory::ai, CleanCategory::developer};
    case ToolPage::leftovers:
        return QList<CleanCategory>{CleanCategory::leftovers};
    case ToolPage::largeFiles:
        return QList<CleanCategory>{CleanCategory::largeFiles};
    case ToolPage::unusedApps:
        return QList<CleanCategory>{CleanCategory::unusedApps};
    case ToolPage::overview:
    case ToolPage::screen:
    case ToolPage::updates:
        break;
    }
    return std::nullopt;
}
