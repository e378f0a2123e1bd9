#pragma once

#include "core/types/CleanCategory.h"
#include "core/types/ToolPage.h"

#include <QString>

// Headings and explanations of the clean-up categories and the window's pages, in the
// current language, read at every call.
QString title(CleanCategory category);
QString note(CleanCategory category);
QString title(ToolPage page);
