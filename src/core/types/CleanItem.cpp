#include "core/types/CleanItem.h"

#include "core/text/PathText.h"

QString CleanItem::id() const
{
    return PathText::withoutTrailingSlashes(path).toString();
}
