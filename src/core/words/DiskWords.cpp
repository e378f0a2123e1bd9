#include "core/words/DiskWords.h"

#include "core/text/L10n.h"

using namespace Qt::StringLiterals;

namespace Words {

QString diskCategory(const QString &id)
{
    if (id == u"documents")
        return L10n::pick(u"Documents"_s, u"文稿"_s);
    if (id == u"applications")
        return L10n::pick(u"Applications"_s, u"应用程序"_s);
    if (id == u"desktop")
        return L10n::pick(u"Desktop"_s, u"桌面"_s);
    if (id == u"downloads")
        return L10n::pick(u"Downloads"_s, u"下载"_s);
    if (id == u"other")
        return L10n::pick(u"Other"_s, u"其他"_s);
    return L10n::pick(u"Free"_s, u"可用"_s);
}

} // namespace Words
