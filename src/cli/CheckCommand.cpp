#include "CommandLine.h"
#include "Commands.h"
#include "Output.h"

#include "core/cleanup/SafetyGuard.h"
#include "core/text/L10n.h"
#include "core/text/PathText.h"
#include "core/types/CleanCategory.h"
#include "core/words/CleanupWords.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace Commands {
namespace {

QString usage()
{
    QStringList raws;
    for (CleanCategory c : kAllCleanCategories)
        raws.append(rawValue(c));
    return L10n::pick(u"usage: quorvel-cli check --category CATEGORY [--json] PATH...\n"
                      u"Asks the safety guard whether each PATH may be moved to the Trash.\n"
                      u"CATEGORY is one of: "_s,
                      u"用法：quorvel-cli check --category CATEGORY [--json] PATH...\n"
                      u"询问安全检查能否把每个 PATH 移到废纸篓。\n"
                      u"CATEGORY 可以是："_s) +
           raws.join(u", "_s) + u'\n';
}

} // namespace

int check(const QStringList &arguments, const std::shared_ptr<const System> &system)
{
    const auto read = CommandLine::read("check", arguments,
                                        {.switches = {u"--json"_s},
                                         .valueOptions = {u"--category"_s},
                                         .positional = CommandLine::Arity::any},
                                        usage);
    if (const int *status = std::get_if<int>(&read))
        return *status;
    const CommandLine::Parsed &args = std::get<CommandLine::Parsed>(read);
    const std::optional<QString> categoryText = args.value(u"--category"_s);
    if (!categoryText) {
        return CommandLine::usageError(
            "check", L10n::pick(u"--category is required"_s, u"必须给出 --category"_s), usage());
    }
    const auto category = cleanCategoryFromRaw(*categoryText);
    if (!category) {
        return CommandLine::usageError(
            "check", L10n::pick(u"unknown category "_s, u"未知类别 "_s) + *categoryText, usage());
    }
    const QStringList &paths = args.positional;
    if (paths.isEmpty()) {
        return CommandLine::usageError("check", L10n::pick(u"no path given"_s, u"没有给出路径"_s),
                                       usage());
    }
    const bool json = args.switches.contains(u"--json"_s);

    bool anyRefused = false;
    QJsonArray answers;
    QString text;
    for (const QString &path : paths) {
        const auto refused = SafetyGuard::refusal(path, *category, system->where());
        anyRefused = anyRefused || refused.has_value();
        const std::optional<QString> refusal =
            refused ? std::optional(Words::refusal(*refused)) : std::nullopt;
        if (json) {
            answers.append(QJsonObject{
                {u"path"_s, path},
                {u"allowed"_s, !refusal},
                {u"reason"_s, refusal ? QJsonValue(*refusal) : QJsonValue()},
                {u"code"_s, refused ? QJsonValue(SafetyGuard::rawValue(*refused)) : QJsonValue()},
            });
        } else {
            text += PathText::escaped(path) +
                    (refusal ? u"\trefused\t"_s + *refusal : u"\tallowed"_s) + u'\n';
        }
    }
    Output::out(json ? QString::fromUtf8(QJsonDocument(answers).toJson(QJsonDocument::Indented))
                     : text);
    return anyRefused ? Output::kSomeRefused : Output::kOk;
}

} // namespace Commands
