#pragma once

#include "core/types/CleanCategory.h"

#include <QHash>
#include <QString>

// One removable thing found by a scan. Identity is the path alone: two scans that find
// the same place give equal items whatever their titles, sizes or categories.
struct CleanItem
{
    QString path; // absolute; kept as the scanner wrote it (the removal log shows it so)
    QString title;
    QString subtitle;
    qint64 bytes = 0; // allocated size when found; never re-measured
    CleanCategory category = CleanCategory::userCache;
    CleanMethod method = CleanMethod::delete_;

    // The path without trailing "/", as lists and selections key items.
    QString id() const;

    friend bool operator==(const CleanItem &a, const CleanItem &b) { return a.id() == b.id(); }
};

inline size_t qHash(const CleanItem &item, size_t seed = 0) noexcept
{
    return qHash(item.id(), seed);
}
