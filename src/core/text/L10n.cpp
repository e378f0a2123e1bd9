#include "core/text/L10n.h"

#include <QLocale>
#include <atomic>

namespace L10n {
namespace {
// -1: not overridden; 0/1: forced by a test.
std::atomic<int> g_override{-1};
} // namespace

bool isZhFor(const QStringList &preferredLanguages)
{
    if (preferredLanguages.isEmpty())
        return false;
    return preferredLanguages.first().toLower().startsWith(u"zh");
}

bool isZh()
{
    const int forced = g_override.load(std::memory_order_relaxed);
    if (forced >= 0)
        return forced == 1;
    static const bool zh = isZhFor(QLocale::system().uiLanguages());
    return zh;
}

void overrideForTesting(bool zh)
{
    g_override.store(zh ? 1 : 0, std::memory_order_relaxed);
}

} // namespace L10n
