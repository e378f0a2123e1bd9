#pragma once

#include "core/types/CleanCategory.h"

#include <QList>
#include <QString>
#include <QStringView>
#include <array>
#include <optional>

// The seven pages of the tools window, in sidebar order.
enum class ToolPage { overview, cleanup, leftovers, largeFiles, unusedApps, screen, updates };

inline constexpr std::array<ToolPage, 7> kAllToolPages{
    ToolPage::overview,   ToolPage::cleanup, ToolPage::leftovers, ToolPage::largeFiles,
    ToolPage::unusedApps, ToolPage::screen,  ToolPage::updates,
};

QString rawValue(ToolPage page);
std::optional<ToolPage> toolPageFromRaw(QStringView raw);
// The symbol name of the page's sidebar icon.
QString symbolName(ToolPage page);
// The categories of a clean-up page's model, in section order; nullopt for the other pages.
std::optional<QList<CleanCategory>> cleanCategories(ToolPage page);
