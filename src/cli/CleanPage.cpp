#include "CleanPage.h"

#include "ModelRunner.h"

#include "core/models/CleanModel.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/text/PathText.h"
#include "core/types/ToolPage.h"

using namespace Qt::StringLiterals;

namespace CleanPage {

QStringList names()
{
    QStringList result;
    for (ToolPage page : kAllToolPages) {
        if (categories(rawValue(page)))
            result.append(rawValue(page));
    }
    return result;
}

std::optional<QList<CleanCategory>> categories(const QString &page)
{
    const std::optional<ToolPage> parsed = toolPageFromRaw(page);
    return parsed ? cleanCategories(*parsed) : std::nullopt;
}

void scan(CleanModel &model)
{
    ModelRunner::ProgressLine progress;
    model.scan();
    ModelRunner::waitUntil(
        model, [&] { return !model.scanning(); }, [&] { progress.show(model.progress()); });
}

QString itemLine(const CleanItem &item, std::optional<bool> tick)
{
    QString line = u"  "_s;
    if (tick)
        line += *tick ? u"[x] "_s : u"[ ] "_s;
    // Names are escaped: a line feed in a file name must not start a line of its own.
    line += Fmt::bytes(item.bytes).rightJustified(9) + u"  "_s + PathText::escaped(item.title);
    if (!item.subtitle.isEmpty())
        line += u" — "_s + PathText::escaped(item.subtitle);
    return line + u'\n';
}

QJsonObject itemJson(const CleanItem &item, bool selected)
{
    return {
        {u"path"_s, item.path},
        {u"title"_s, item.title},
        {u"subtitle"_s, item.subtitle},
        {u"bytes"_s, item.bytes},
        {u"category"_s, rawValue(item.category)},
        {u"method"_s, item.method == CleanMethod::trash ? u"trash"_s : u"delete"_s},
        {u"selected"_s, selected},
    };
}

qint64 totalBytes(const QList<CleanItem> &items)
{
    qint64 total = 0;
    for (const CleanItem &item : items)
        total += item.bytes;
    return total;
}

QString countAndSize(qsizetype count, qint64 bytes)
{
    const QString n = QString::number(count);
    return L10n::pick(n + u" item(s), "_s + Fmt::bytes(bytes), n + u" 项，"_s + Fmt::bytes(bytes));
}

} // namespace CleanPage
