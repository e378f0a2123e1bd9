#include "CleanPage.h"
#include "CommandLine.h"
#include "Commands.h"
#include "Output.h"

#include "core/models/CleanModel.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/words/CategoryWords.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace Commands {
namespace {

QString usage()
{
    const QString pages = CleanPage::names().join(u", "_s);
    return L10n::pick(
               u"usage: quorvel-cli scan PAGE [--json]\n"
               u"Lists what a clean-up page would offer, with its default selection "
               u"([x]). Nothing is moved.\nPAGE is one of: "_s,
               u"用法：quorvel-cli scan PAGE [--json]\n"
               u"列出清理页面会提供的项目及默认勾选（[x]），不移动任何文件。\nPAGE 可以是："_s) +
           pages + u'\n';
}

QString text(const CleanModel &model)
{
    QString out;
    for (CleanCategory category : model.categories()) {
        const QList<CleanItem> items = model.items(category);
        out += title(category) + u" — "_s + Fmt::bytes(CleanPage::totalBytes(items)) + u'\n';
        for (const CleanItem &item : items)
            out += CleanPage::itemLine(item, model.selected().contains(item.path));
        if (items.isEmpty())
            out += L10n::pick(u"  (nothing found)\n"_s, u"  （未发现）\n"_s);
        out += u'\n';
    }
    const QList<CleanItem> chosen = model.selectedItems();
    out += L10n::pick(u"Selected: "_s, u"已勾选："_s) +
           CleanPage::countAndSize(chosen.size(), CleanPage::totalBytes(chosen)) + u'\n';
    return out;
}

QString json(const QString &page, const CleanModel &model)
{
    QJsonArray items;
    for (const CleanItem &item : model.items())
        items.append(CleanPage::itemJson(item, model.selected().contains(item.path)));
    const QJsonObject root{{u"page"_s, page}, {u"items"_s, items}};
    return QString::fromUtf8(QJsonDocument(root).toJson(QJsonDocument::Indented));
}

} // namespace

int scan(const QStringList &arguments, const std::shared_ptr<const System> &system)
{
    const auto read = CommandLine::read("scan", arguments,
                                        {.switches = {u"--json"_s},
                                         .positional = CommandLine::Arity::one,
                                         .positionalName = u"PAGE"_s},
                                        usage);
    if (const int *status = std::get_if<int>(&read))
        return *status;
    const CommandLine::Parsed &args = std::get<CommandLine::Parsed>(read);
    const QString page = args.positional.first();
    const auto categories = CleanPage::categories(page);
    if (!categories) {
        return CommandLine::usageError(
            "scan", L10n::pick(u"unknown page "_s, u"未知页面 "_s) + page, usage());
    }

    CleanModel model(*categories, CleanModel::Services::real(system));
    CleanPage::scan(model);
    Output::out(args.switches.contains(u"--json"_s) ? json(page, model) : text(model));
    return Output::kOk;
}

} // namespace Commands
