#include "CommandLine.h"
#include "Commands.h"
#include "Confirm.h"
#include "ModelRunner.h"
#include "Output.h"
#include "TrashReport.h"

#include "core/models/OverviewModel.h"
#include "core/text/L10n.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace Commands {
namespace {

QString usage()
{
    return L10n::pick(
        u"usage: quorvel-cli trash [--empty] [--yes] [--json]\n"
        u"Shows the size of the Trash; --empty deletes its contents for good "
        u"after asking (--yes: do not ask).\n"_s,
        u"用法：quorvel-cli trash [--empty] [--yes] [--json]\n"
        u"显示废纸篓的大小；--empty 在确认后永久删除其中的内容（--yes：不询问）。\n"_s);
}

// Stable names for scripts, whatever the language.
QString codeOf(const TrashEmptyResult &result)
{
    switch (result.code) {
    case TrashEmptyResult::Code::emptied:
        return u"emptied"_s;
    case TrashEmptyResult::Code::partial:
        return u"partial"_s;
    case TrashEmptyResult::Code::stillEmptying:
        return u"stillEmptying"_s;
    case TrashEmptyResult::Code::failed:
        break;
    }
    return u"failed"_s;
}

QString jsonReport(const OverviewModel &model, const std::optional<QString> &message,
                   const std::optional<QString> &code = std::nullopt)
{
    const auto &size = model.trash();
    QJsonObject root{
        {u"bytes"_s, size ? QJsonValue(size->bytes) : QJsonValue()},
        {u"count"_s, size ? QJsonValue(size->count) : QJsonValue()},
        {u"message"_s, message ? QJsonValue(*message) : QJsonValue()},
    };
    if (code)
        root.insert(u"code"_s, *code);
    if (const auto &result = model.trashResult(); result && result->kept > 0)
        root.insert(u"kept"_s, result->kept);
    return QString::fromUtf8(QJsonDocument(root).toJson(QJsonDocument::Indented));
}

QString figuresLine(const OverviewModel &model)
{
    return L10n::pick(u"Trash — "_s, u"废纸篓 — "_s) + TrashReport::figures(model) + u'\n';
}

// Empties what `confirmed` counted through the model and returns once its outcome and the
// fresh figures after it are both in.
QString empty(OverviewModel &model, const std::optional<Platform::TrashContents> &confirmed)
{
    model.emptyTrash(confirmed);
    const std::optional<QString> inProgress = model.trashMsg();
    bool answered = false;
    bool refreshed = false;
    ModelRunner::waitUntil(
        model, [&] { return refreshed; },
        [&] {
            // The outcome comes first, then the model measures the Trash again by itself.
            if (answered)
                refreshed = true;
            else
                answered = model.trashMsg() != inProgress;
        });
    return model.trashMsg().value_or(QString());
}

} // namespace

int trash(const QStringList &arguments, const std::shared_ptr<const System> &system)
{
    const auto read = CommandLine::read(
        "trash", arguments, {.switches = {u"--json"_s, u"--empty"_s, u"--yes"_s}}, usage);
    if (const int *status = std::get_if<int>(&read))
        return *status;
    const CommandLine::Parsed &args = std::get<CommandLine::Parsed>(read);
    const bool json = args.switches.contains(u"--json"_s);
    const bool emptying = args.switches.contains(u"--empty"_s);
    const bool yes = args.switches.contains(u"--yes"_s);
    if (emptying && !Confirm::possible(yes)) {
        Output::err(u"quorvel-cli trash: "_s + Confirm::refusal() + u'\n');
        return Output::kUsage;
    }

    OverviewModel model(OverviewModel::Services::real(system));
    TrashReport::refresh(model);
    if (!json)
        Output::out(figuresLine(model));
    if (!emptying) {
        if (json)
            Output::out(jsonReport(model, std::nullopt));
        return Output::kOk;
    }
    if (model.trash() && model.trash()->count == 0) {
        const QString already =
            L10n::pick(u"The Trash is already empty."_s, u"废纸篓已经是空的。"_s);
        Output::out(json ? jsonReport(model, already, u"alreadyEmpty"_s) : already + u'\n');
        return Output::kOk;
    }
    // What the question names is what may go: anything arriving while it waits stays.
    const std::optional<Platform::TrashContents> counted =
        model.trash() ? std::optional(model.trash()->contents) : std::nullopt;

    const QString question =
        model.trash() ? L10n::pick(u"Delete the "_s, u"要永久删除废纸篓中的 "_s) +
                            TrashReport::figures(model) +
                            L10n::pick(u" in the Trash for good? This cannot be undone."_s,
                                       u" 吗？此操作无法撤销。"_s)
                      : L10n::pick(u"Empty the Trash for good? This cannot be undone."_s,
                                   u"要永久清空废纸篓吗？此操作无法撤销。"_s);
    switch (Confirm::ask(question, yes)) {
    case Confirm::Answer::yes:
        break;
    case Confirm::Answer::noTerminal:
        Output::err(u"quorvel-cli trash: "_s + Confirm::refusal() + u'\n');
        return Output::kUsage;
    case Confirm::Answer::no: {
        const QString kept = L10n::pick(u"The Trash was not emptied."_s, u"废纸篓未清空。"_s);
        Output::out(json ? jsonReport(model, kept) : kept + u'\n');
        return Output::kSomeRefused;
    }
    }

    const QString message = empty(model, counted);
    const bool emptied =
        model.trashResult() && model.trashResult()->code == TrashEmptyResult::Code::emptied;
    const QString code = model.trashResult() ? codeOf(*model.trashResult()) : u"failed"_s;
    Output::out(json ? jsonReport(model, message, code) : message + u'\n' + figuresLine(model));
    return emptied ? Output::kOk : Output::kSomeRefused;
}

} // namespace Commands
