#include "CommandLine.h"
#include "Commands.h"
#include "Confirm.h"
#include "Output.h"

#include "core/cleanup/Restorer.h"
#include "core/disk/DiskScanner.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/text/PathText.h"
#include "core/words/RestoreWords.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace Commands {
namespace {

QString usage()
{
    return L10n::pick(u"usage: quorvel-cli restore --list [--json]\n"
                      u"       quorvel-cli restore PATH... [--yes] [--json]\n"
                      u"       quorvel-cli restore --since TIME [--yes] [--json]\n"
                      u"Puts items that Quorvel moved to the Trash back where they were, after "
                      u"asking; never over anything that is there now.\n"
                      u"  --list        the items that can go back, newest first\n"
                      u"  PATH...       original paths, as --list shows them\n"
                      u"  --since TIME  everything moved at or after TIME (2026-11-16T20:48:37Z)\n"
                      u"  --yes         do not ask (required without a terminal)\n"_s,
                      u"用法：quorvel-cli restore --list [--json]\n"
                      u"      quorvel-cli restore PATH... [--yes] [--json]\n"
                      u"      quorvel-cli restore --since TIME [--yes] [--json]\n"
                      u"确认后把 Quorvel 移到废纸篓的项目放回原处；绝不覆盖现有的任何内容。\n"
                      u"  --list        可以放回的项目，最新的在前\n"
                      u"  PATH...       原路径，与 --list 显示的一致\n"
                      u"  --since TIME  在 TIME（如 2026-11-16T20:48:37Z）及之后移走的全部项目\n"
                      u"  --yes         不再询问（没有终端时必须给出）\n"_s);
}

QString timeText(const QDateTime &time)
{
    return time.toString(Qt::ISODate);
}

QString listing(const QList<Restorer::Move> &moves, bool json)
{
    QJsonArray array;
    QString text;
    for (const Restorer::Move &move : moves) {
        const qint64 bytes = DiskScanner::directorySize(move.trashedPath);
        if (json) {
            array.append(QJsonObject{{u"original"_s, move.original},
                                     {u"trashedPath"_s, move.trashedPath},
                                     {u"time"_s, timeText(move.time)},
                                     {u"bytes"_s, bytes},
                                     {u"category"_s, rawValue(move.category)}});
        } else {
            text +=
                QStringList{PathText::escaped(move.original), PathText::escaped(move.trashedPath),
                            timeText(move.time), Fmt::bytes(bytes), rawValue(move.category)}
                    .join(u'\t') +
                u'\n';
        }
    }
    return json ? QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Indented)) : text;
}

// The newest restorable move for each given original path; nullopt, after naming every
// path that is not among them, when there is one.
std::optional<QList<Restorer::Move>> chosen(const QList<Restorer::Move> &moves,
                                            const QStringList &given)
{
    QList<Restorer::Move> result;
    bool allFound = true;
    for (const QString &path : given) {
        const QString standard = PathText::standardized(path);
        const auto found = std::find_if(moves.begin(), moves.end(), [&](const Restorer::Move &m) {
            return m.original == standard;
        });
        if (found == moves.end()) {
            allFound = false;
            Output::err(
                u"quorvel-cli restore: "_s +
                L10n::pick(u"not among the items that can go back: "_s, u"不在可放回的项目中："_s) +
                PathText::escaped(path) + u'\n');
        } else {
            result.append(*found);
        }
    }
    return allFound ? std::optional(result) : std::nullopt;
}

QString jsonReport(const Restorer::Result &result)
{
    QJsonArray items;
    for (const Restorer::Outcome &outcome : result.items) {
        QJsonObject item{{u"original"_s, outcome.original},
                         {u"trashedPath"_s, outcome.trashedPath},
                         {u"code"_s, Restorer::code(outcome)}};
        if (outcome.kind != Restorer::Outcome::Kind::restored)
            item.insert(u"reason"_s, Words::reason(outcome));
        if (outcome.recordKept)
            item.insert(u"recordKept"_s, true);
        if (outcome.logFailure)
            item.insert(u"notLogged"_s, true);
        items.append(item);
    }
    return QString::fromUtf8(
        QJsonDocument(QJsonObject{{u"count"_s, result.count},
                                  {u"items"_s, items},
                                  {u"message"_s, Words::restoreSummary(result)}})
            .toJson(QJsonDocument::Indented));
}

} // namespace

int restore(const QStringList &arguments, const std::shared_ptr<const System> &system)
{
    const auto read = CommandLine::read("restore", arguments,
                                        {.switches = {u"--json"_s, u"--list"_s, u"--yes"_s},
                                         .valueOptions = {u"--since"_s},
                                         .positional = CommandLine::Arity::any,
                                         .positionalName = u"PATH"_s},
                                        usage);
    if (const int *status = std::get_if<int>(&read))
        return *status;
    const CommandLine::Parsed &args = std::get<CommandLine::Parsed>(read);
    const bool json = args.switches.contains(u"--json"_s);
    const bool list = args.switches.contains(u"--list"_s);
    const std::optional<QString> sinceText = args.value(u"--since"_s);
    if (int(list) + int(sinceText.has_value()) + int(!args.positional.isEmpty()) != 1) {
        return CommandLine::usageError("restore",
                                       L10n::pick(u"give exactly one of --list, --since or paths"_s,
                                                  u"--list、--since 和路径只能给出其中一种"_s),
                                       usage());
    }
    const QDateTime since =
        sinceText ? QDateTime::fromString(*sinceText, Qt::ISODate) : QDateTime();
    if (sinceText && !since.isValid()) {
        return CommandLine::usageError(
            "restore",
            L10n::pick(u"not an ISO 8601 time: "_s, u"不是 ISO 8601 时间："_s) + *sinceText,
            usage());
    }
    if (!list && !Confirm::possible(args.switches.contains(u"--yes"_s))) {
        Output::err(u"quorvel-cli restore: "_s + Confirm::refusal() + u'\n');
        return Output::kUsage;
    }

    const QList<Restorer::Move> moves = Restorer::restorable(*system);
    if (list) {
        Output::out(listing(moves, json));
        return Output::kOk;
    }
    QList<Restorer::Move> taken;
    if (sinceText) {
        std::copy_if(moves.begin(), moves.end(), std::back_inserter(taken),
                     [&](const Restorer::Move &m) { return m.time >= since; });
    } else if (const auto found = chosen(moves, args.positional)) {
        taken = *found;
    } else {
        return Output::kUsage;
    }
    if (taken.isEmpty()) {
        Output::out(json ? jsonReport({})
                         : L10n::pick(u"Nothing to restore.\n"_s, u"没有可放回的项目。\n"_s));
        return Output::kOk;
    }

    const QString n = QString::number(taken.size());
    const QString question = L10n::pick(u"Put "_s + n + u" item(s) back where they were?"_s,
                                        u"要把 "_s + n + u" 项放回原处吗？"_s);
    switch (Confirm::ask(question, args.switches.contains(u"--yes"_s))) {
    case Confirm::Answer::yes:
        break;
    case Confirm::Answer::noTerminal:
        Output::err(u"quorvel-cli restore: "_s + Confirm::refusal() + u'\n');
        return Output::kUsage;
    case Confirm::Answer::no:
        Output::out(L10n::pick(u"Nothing was restored.\n"_s, u"未放回任何项目。\n"_s));
        return Output::kSomeRefused;
    }
    const Restorer::Result result = Restorer::restore(taken, *system);
    Output::out(json ? jsonReport(result) : Words::restoreSummary(result) + u'\n');
    return result.count == taken.size() ? Output::kOk : Output::kSomeRefused;
}

} // namespace Commands
