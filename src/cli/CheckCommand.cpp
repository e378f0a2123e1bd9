#include "Commands.h"
#include "Output.h"

#include "core/cleanup/SafetyGuard.h"
#include "core/text/PathText.h"
#include "core/types/CleanCategory.h"
#include "core/words/CleanupWords.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace Commands {
namespace {

QString usage()
{
    QStringList raws;
    for (CleanCategory c : kAllCleanCategories)
        raws.append(rawValue(c));
    return QStringLiteral("usage: quorvel-cli check --category CATEGORY [--json] PATH...\n"
                          "Asks the safety guard whether each PATH may be moved to the Trash.\n"
                          "CATEGORY is one of: ") +
           raws.join(QStringLiteral(", ")) + u'\n';
}

int usageError(const QString &problem)
{
    Output::err(QStringLiteral("quorvel-cli check: ") + problem + u'\n' + usage());
    return Output::kUsage;
}

} // namespace

int check(const QStringList &arguments, const Locations &where)
{
    std::optional<QString> categoryText;
    bool json = false;
    QStringList paths;
    bool optionsEnded = false;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &arg = arguments.at(i);
        if (optionsEnded || !arg.startsWith(u'-') || arg == u"-") {
            paths.append(arg);
        } else if (arg == u"--") {
            optionsEnded = true;
        } else if (arg == u"--help" || arg == u"-h") {
            Output::out(usage());
            return Output::kOk;
        } else if (arg == u"--json") {
            json = true;
        } else if (arg == u"--category") {
            if (i + 1 >= arguments.size())
                return usageError(QStringLiteral("--category needs a value"));
            categoryText = arguments.at(++i);
        } else if (arg.startsWith(u"--category=")) {
            categoryText = arg.mid(qsizetype(sizeof("--category=") - 1));
        } else {
            return usageError(QStringLiteral("unknown option ") + arg);
        }
    }
    if (!categoryText)
        return usageError(QStringLiteral("--category is required"));
    const auto category = cleanCategoryFromRaw(*categoryText);
    if (!category)
        return usageError(QStringLiteral("unknown category ") + *categoryText);
    if (paths.isEmpty())
        return usageError(QStringLiteral("no path given"));

    bool anyRefused = false;
    QJsonArray answers;
    QString text;
    for (const QString &path : std::as_const(paths)) {
        const auto refused = SafetyGuard::refusal(path, *category, where);
        anyRefused = anyRefused || refused.has_value();
        const std::optional<QString> refusal =
            refused ? std::optional(Words::refusal(*refused)) : std::nullopt;
        if (json) {
            answers.append(QJsonObject{
                {QStringLiteral("path"), path},
                {QStringLiteral("allowed"), !refusal},
                {QStringLiteral("reason"), refusal ? QJsonValue(*refusal) : QJsonValue()},
                {QStringLiteral("code"),
                 refused ? QJsonValue(SafetyGuard::rawValue(*refused)) : QJsonValue()},
            });
        } else {
            text +=
                PathText::escaped(path) +
                (refusal ? QStringLiteral("\trefused\t") + *refusal : QStringLiteral("\tallowed")) +
                u'\n';
        }
    }
    Output::out(json ? QString::fromUtf8(QJsonDocument(answers).toJson(QJsonDocument::Indented))
                     : text);
    return anyRefused ? Output::kSomeRefused : Output::kOk;
}

} // namespace Commands
