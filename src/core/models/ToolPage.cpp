#include "core/models/ToolPage.h"

#include "core/text/L10n.h"

using namespace Qt::StringLiterals;

namespace {

struct PageText
{
    const char *raw;
    const char16_t *en;
    const char16_t *zh;
    const char *symbol;
};

constexpr std::array<PageText, 7> kPages{{
    {"overview", u"Overview", u"总览", "gauge.with.dots.needle.33percent"},
    {"cleanup", u"Clean Up", u"清理", "trash"},
    {"leftovers", u"App Leftovers", u"卸载残留", "shippingbox"},
    {"largeFiles", u"Large Files", u"大文件", "doc.zipper"},
    {"unusedApps", u"Unused Apps", u"不用的应用", "app.dashed"},
    {"screen", u"Screen Cleaning", u"清屏模式", "sparkles.rectangle.stack"},
    {"updates", u"App Updater", u"应用更新", "arrow.down.circle"},
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

QString title(ToolPage page)
{
    return L10n::pick(QString::fromUtf16(textOf(page).en), QString::fromUtf16(textOf(page).zh));
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
