#include "core/words/ScanWords.h"

#include "core/text/L10n.h"

#include <array>

namespace Words {
namespace {

struct Place
{
    const char16_t *folder;
    const char16_t *english;
    const char16_t *chinese;
};

constexpr std::array<Place, 9> kPlaces{{
    {u"Containers", u"Container", u"容器"},
    {u"Group Containers", u"Group container", u"共享容器"},
    {u"Preferences", u"Preferences", u"偏好设置"},
    {u"Caches", u"Cache", u"缓存"},
    {u"Saved Application State", u"Saved state", u"窗口状态"},
    {u"HTTPStorages", u"HTTP storage", u"网络存储"},
    {u"WebKit", u"WebKit data", u"WebKit 数据"},
    {u"Application Scripts", u"Scripts", u"脚本"},
    {u"Logs", u"Logs", u"日志"},
}};

} // namespace

QString libraryPlace(QStringView folder)
{
    for (const Place &place : kPlaces) {
        if (folder == QStringView(place.folder))
            return L10n::pick(QString::fromUtf16(place.english), QString::fromUtf16(place.chinese));
    }
    return folder.toString();
}

QString lastOpened()
{
    return L10n::pick(QStringLiteral("Last opened"), QStringLiteral("最后打开"));
}

} // namespace Words
