#pragma once

#include <QList>
#include <QString>

// The order in which version strings are compared. Pure; any thread.
namespace Versions {

// True when `a` comes strictly before `b`.
bool versionLess(const QString &a, const QString &b);
// The numeric pieces the order compares (a piece that is not plain ASCII digits, or
// overflows, counts as 0).
QList<qint64> versionParts(const QString &version);

} // namespace Versions
