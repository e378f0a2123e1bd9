#pragma once

#include <QSet>
#include <QString>

// How the leftovers scan decides that a Library entry's name still belongs to something
// on the machine. Deliberately conservative: anything in doubt is owned, so never offered.
namespace Cleaner {

// The applications known on the machine, in the form the rules compare.
struct KnownApps
{
    QSet<QString> ids;     // lower-cased bundle identifiers
    QSet<QString> vendors; // vendorPrefix of every id

    static KnownApps from(const QSet<QString> &bundleIDs);
};

// The first two dot-separated parts, lower-cased ("com.example.Editor" gives
// "com.example"); the whole lower-cased id when it has fewer than two.
QString vendorPrefix(const QString &id);

// Whether `name` (an entry's name with any ".plist"/".savedState" ending removed) belongs
// to a known application, its companions, its vendor, the system, or is too short to
// be a bundle identifier.
bool owned(const QString &name, const KnownApps &known);

} // namespace Cleaner
