#include "CommandLine.h"
#include "Commands.h"
#include "ModelRunner.h"
#include "Output.h"
#include "TrashReport.h"

#include "core/models/OverviewModel.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace Commands {
namespace {

QString usage()
{
    return L10n::pick(
        u"usage: quorvel-cli overview [--json]\n"
        u"Shows how the disk is used and what the Trash holds.\n"_s,
        u"用法：quorvel-cli overview [--json]\n显示磁盘的使用情况和废纸篓的内容。\n"_s);
}

QString text(const OverviewModel &model)
{
    QString out = L10n::pick(u"Disk\n"_s, u"磁盘\n"_s);
    for (const DiskCategory &category : model.cats())
        out += u"  "_s + category.name.leftJustified(14) + Fmt::bytes(category.bytes) + u'\n';
    return out + L10n::pick(u"Trash — "_s, u"废纸篓 — "_s) + TrashReport::figures(model) + u'\n';
}

QString json(const OverviewModel &model)
{
    QJsonArray categories;
    for (const DiskCategory &category : model.cats()) {
        categories.append(QJsonObject{
            {u"id"_s, category.id}, {u"name"_s, category.name}, {u"bytes"_s, category.bytes}});
    }
    QJsonValue trash;
    if (const auto &size = model.trash())
        trash = QJsonObject{{u"bytes"_s, size->bytes}, {u"count"_s, size->count}};
    const QJsonObject root{{u"categories"_s, categories}, {u"trash"_s, trash}};
    return QString::fromUtf8(QJsonDocument(root).toJson(QJsonDocument::Indented));
}

} // namespace

int overview(const QStringList &arguments, const std::shared_ptr<const System> &system)
{
    const auto read = CommandLine::read("overview", arguments, {.switches = {u"--json"_s}}, usage);
    if (const int *status = std::get_if<int>(&read))
        return *status;
    const CommandLine::Parsed &args = std::get<CommandLine::Parsed>(read);

    OverviewModel model(OverviewModel::Services::real(system));
    ModelRunner::ProgressLine progress;
    model.refreshTrash();
    model.scan();
    ModelRunner::waitUntil(
        model, [&] { return !model.scanning() && TrashReport::measured(model); },
        [&] { progress.show(model.progress()); });
    progress.clear();
    Output::out(args.switches.contains(u"--json"_s) ? json(model) : text(model));
    return Output::kOk;
}

} // namespace Commands
