#include "core/types/CleanItem.h"

QString CleanItem::id() const
{
    QString p = path;
    while (p.size() > 1 && p.endsWith(u'/'))
        p.chop(1);
    return p;
}
