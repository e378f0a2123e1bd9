#include "core/cleanup/LeftoverRules.h"

#include <QStringList>
#include <array>

using namespace Qt::StringLiterals;

namespace Cleaner {
namespace {

// Vendors whose helpers and updaters outlive their applications, and system parts that
// carry no application's identifier; compared on the lower-cased name.
constexpr std::array<const char *, 8> kAlwaysOwned{
    "org.swift.",     "org.cups.",    "is.workflow.",        "io.macfuse",
    "com.amazon.dcv", "org.mozilla.", "com.google.keystone", "com.microsoft.autoupdate",
};

// Ten upper-case letters or digits and a dot: a developer team identifier.
bool startsWithTeamID(const QString &name)
{
    if (name.size() < 11 || name.at(10) != u'.')
        return false;
    for (qsizetype i = 0; i < 10; ++i) {
        const char16_t c = name.at(i).unicode();
        if (!((c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9')))
            return false;
    }
    return true;
}

// Group containers and shared preferences carry the owner's id behind these.
QString withoutGroupPrefixes(QString name)
{
    for (;;) {
        const QString before = name;
        if (startsWithTeamID(name))
            name.remove(0, 11);
        for (const QString &prefix : {u"systemgroup."_s, u"groups."_s, u"group."_s}) {
            if (name.startsWith(prefix))
                name.remove(0, prefix.size());
        }
        if (name == before)
            return name;
    }
}

} // namespace

KnownApps KnownApps::from(const QSet<QString> &bundleIDs)
{
    KnownApps known;
    for (const QString &id : bundleIDs) {
        const QString lower = id.toLower();
        known.ids.insert(lower);
        known.vendors.insert(vendorPrefix(lower));
    }
    return known;
}

QString vendorPrefix(const QString &id)
{
    const QString lower = id.toLower();
    const QStringList parts = lower.split(u'.', Qt::SkipEmptyParts);
    if (parts.size() < 2)
        return lower;
    return parts.at(0) + u'.' + parts.at(1);
}

bool owned(const QString &entryName, const KnownApps &known)
{
    const QString name = withoutGroupPrefixes(entryName);
    const QString lower = name.toLower();
    for (const char *prefix : kAlwaysOwned) {
        if (lower.startsWith(QLatin1String(prefix)))
            return true;
    }
    if (name.startsWith(u"com.apple."_s) || name.startsWith(u"apple."_s))
        return true;
    if (name.split(u'.', Qt::SkipEmptyParts).size() < 3)
        return true;
    if (known.ids.contains(lower))
        return true;
    // A companion or extension: some installed id followed by a dot. Looking up every
    // prefix that ends before a dot is the same test without a pass over all ids.
    for (qsizetype dot = lower.indexOf(u'.'); dot >= 0; dot = lower.indexOf(u'.', dot + 1)) {
        if (known.ids.contains(lower.left(dot)))
            return true;
    }
    return known.vendors.contains(vendorPrefix(name));
}

} // namespace Cleaner
