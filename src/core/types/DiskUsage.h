#pragma once

#include <QString>
#include <QtGlobal>

// Capacity of a volume; (0, 0) means unknown.
struct DiskUsage
{
    qint64 total = 0;
    qint64 free = 0; // available for important use: purgeable space counts as free

    // The volume holding `path`; (0, 0) when it cannot be read.
    static DiskUsage of(const QString &path);
};
