#include "TrashReport.h"

#include "CleanPage.h"
#include "ModelRunner.h"

#include "core/models/OverviewModel.h"
#include "core/text/L10n.h"

using namespace Qt::StringLiterals;

namespace TrashReport {

void refresh(OverviewModel &model)
{
    model.refreshTrash();
    ModelRunner::waitUntil(model, [&] { return measured(model); });
}

bool measured(const OverviewModel &model)
{
    return model.trash().has_value() || model.trashUnreadable();
}

QString figures(const OverviewModel &model)
{
    if (!model.trash())
        return L10n::pick(u"unreadable"_s, u"无法读取"_s);
    return CleanPage::countAndSize(model.trash()->count, model.trash()->bytes);
}

} // namespace TrashReport
