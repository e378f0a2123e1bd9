#include "CleanPage.h"
#include "CommandLine.h"
#include "Commands.h"
#include "Confirm.h"
#include "ModelRunner.h"
#include "Output.h"

#include "core/models/CleanModel.h"
#include "core/text/Fmt.h"
#include "core/text/L10n.h"
#include "core/words/CleanupWords.h"

#include <QDir>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace Commands {
namespace {

QString usage()
{
    const QString pages = CleanPage::names().join(u", "_s);
    return L10n::pick(
               u"usage: quorvel-cli clean PAGE [--only PATH...] [--dry-run] [--yes] [--json]\n"
               u"Scans PAGE and moves its default selection, or exactly the listed paths, to "
               u"the Trash after asking.\n"
               u"  --only PATH...  move these found items instead of the default selection\n"
               u"  --dry-run       show what would move; move nothing\n"
               u"  --yes           do not ask (required without a terminal)\n"
               u"PAGE is one of: "_s,
               u"用法：quorvel-cli clean PAGE [--only PATH...] [--dry-run] [--yes] [--json]\n"
               u"扫描 PAGE，确认后把默认勾选的项目（或只把列出的路径）移到废纸篓。\n"
               u"  --only PATH...  只移动这些已找到的项目，而不是默认勾选\n"
               u"  --dry-run       只显示将移动的项目，不移动任何文件\n"
               u"  --yes           不再询问（没有终端时必须给出）\n"
               u"PAGE 可以是："_s) +
           pages + u'\n';
}

// The found item a path given on the command line names, compared as lists key items.
const CleanItem *findItem(const QList<CleanItem> &items, const QString &given)
{
    CleanItem probe;
    probe.path = QDir::isAbsolutePath(given) ? given : QDir::current().absoluteFilePath(given);
    for (const CleanItem &item : items) {
        if (item.id() == probe.id())
            return &item;
    }
    return nullptr;
}

// The found items' own paths for the given ones; nullopt, after naming every given path
// that is not a found item, when there is one.
std::optional<QSet<QString>> pathsOf(const QList<CleanItem> &items, const QStringList &given)
{
    QSet<QString> chosen;
    bool allFound = true;
    for (const QString &path : given) {
        if (const CleanItem *item = findItem(items, path)) {
            chosen.insert(item->path);
        } else {
            allFound = false;
            Output::err(u"quorvel-cli clean: "_s +
                        L10n::pick(u"not among the items found: "_s, u"不在扫描结果中："_s) + path +
                        u'\n');
        }
    }
    return allFound ? std::optional(chosen) : std::nullopt;
}

struct Outcome
{
    QList<CleanItem> moved;
    QList<std::pair<CleanItem, Cleaner::Outcome>> failed;
    QStringList unlogged; // moved, but the log line was not written
};

// What the removal did to each taken item, as the engine reports it.
Outcome outcome(const CleanModel &model, const QList<CleanItem> &taken)
{
    QHash<QString, const Cleaner::Outcome *> byPath;
    if (const auto &removal = model.lastRemoval()) {
        for (const Cleaner::Outcome &item : removal->items)
            byPath.insert(item.path, &item);
    }
    Outcome result;
    for (const CleanItem &item : taken) {
        const Cleaner::Outcome *done = byPath.value(item.path);
        if (done == nullptr || done->kind != Cleaner::Outcome::Kind::moved) {
            result.failed.append({item, done ? *done : Cleaner::Outcome{}});
            continue;
        }
        result.moved.append(item);
        if (done->logFailure)
            result.unlogged.append(item.path);
    }
    return result;
}

QString jsonReport(bool dryRun, const QList<CleanItem> &taken, const Outcome &done,
                   const std::optional<QString> &message)
{
    QJsonArray paths;
    for (const CleanItem &item : taken)
        paths.append(item.path);
    QJsonArray failures;
    for (const auto &[item, outcome] : done.failed) {
        failures.append(QJsonObject{{u"path"_s, item.path},
                                    {u"title"_s, item.title},
                                    {u"reason"_s, Words::reason(outcome)},
                                    {u"code"_s, Cleaner::code(outcome)}});
    }
    QJsonObject root{
        {u"dryRun"_s, dryRun},
        {u"taken"_s, paths},
        {u"count"_s, done.moved.size()},
        {u"bytes"_s, CleanPage::totalBytes(done.moved)},
        {u"failures"_s, failures},
        {u"message"_s, message ? QJsonValue(*message) : QJsonValue()},
    };
    if (!done.unlogged.isEmpty())
        root.insert(u"notLogged"_s, QJsonArray::fromStringList(done.unlogged));
    return QString::fromUtf8(QJsonDocument(root).toJson(QJsonDocument::Indented));
}

QString plan(const QList<CleanItem> &taken)
{
    QString text = L10n::pick(u"To move to the Trash:\n"_s, u"将移到废纸篓：\n"_s);
    for (const CleanItem &item : taken)
        text += CleanPage::itemLine(item, std::nullopt);
    return text + L10n::pick(u"Total: "_s, u"合计："_s) +
           CleanPage::countAndSize(taken.size(), CleanPage::totalBytes(taken)) + u'\n';
}

} // namespace

int clean(const QStringList &arguments, const std::shared_ptr<const System> &system)
{
    const auto read = CommandLine::read("clean", arguments,
                                        {.switches = {u"--json"_s, u"--dry-run"_s, u"--yes"_s},
                                         .listOption = u"--only"_s,
                                         .positional = CommandLine::Arity::one,
                                         .positionalName = u"PAGE"_s},
                                        usage);
    if (const int *status = std::get_if<int>(&read))
        return *status;
    const CommandLine::Parsed &args = std::get<CommandLine::Parsed>(read);
    const auto categories = CleanPage::categories(args.positional.first());
    if (!categories) {
        return CommandLine::usageError(
            "clean", L10n::pick(u"unknown page "_s, u"未知页面 "_s) + args.positional.first(),
            usage());
    }
    const bool json = args.switches.contains(u"--json"_s);
    const bool dryRun = args.switches.contains(u"--dry-run"_s);
    const bool yes = args.switches.contains(u"--yes"_s);
    // Refused before the scan: a script learns at once, and nothing is measured for nothing.
    if (!dryRun && !Confirm::possible(yes)) {
        Output::err(u"quorvel-cli clean: "_s + Confirm::refusal() + u'\n');
        return Output::kUsage;
    }

    CleanModel model(*categories, CleanModel::Services::real(system));
    CleanPage::scan(model);
    if (!args.listValues.isEmpty()) {
        const std::optional<QSet<QString>> chosen = pathsOf(model.items(), args.listValues);
        if (!chosen)
            return Output::kUsage;
        model.setSelected(*chosen);
    }

    const QList<CleanItem> taken = model.selectedItems();
    if (!json) {
        Output::out(taken.isEmpty() ? L10n::pick(u"Nothing to move.\n"_s, u"没有要移动的项目。\n"_s)
                                    : plan(taken));
    }
    if (taken.isEmpty() || dryRun) {
        // A dry run reports what would move as if it had.
        if (json)
            Output::out(jsonReport(dryRun, taken, {taken, {}, {}}, std::nullopt));
        else if (dryRun && !taken.isEmpty())
            Output::out(
                L10n::pick(u"Dry run: nothing was moved.\n"_s, u"演练：未移动任何项目。\n"_s));
        return Output::kOk;
    }

    const QString question = L10n::pick(u"Move "_s, u"要把 "_s) +
                             CleanPage::countAndSize(taken.size(), CleanPage::totalBytes(taken)) +
                             L10n::pick(u" to the Trash?"_s, u" 移到废纸篓吗？"_s);
    switch (Confirm::ask(question, yes)) {
    case Confirm::Answer::yes:
        break;
    case Confirm::Answer::noTerminal:
        Output::err(u"quorvel-cli clean: "_s + Confirm::refusal() + u'\n');
        return Output::kUsage;
    case Confirm::Answer::no:
        if (json)
            Output::out(jsonReport(false, taken, {}, std::nullopt));
        else
            Output::out(L10n::pick(u"Nothing was moved.\n"_s, u"未移动任何项目。\n"_s));
        return Output::kSomeRefused;
    }

    {
        ModelRunner::ProgressLine progress;
        model.clean();
        ModelRunner::waitUntil(
            model, [&] { return !model.scanning(); }, [&] { progress.show(model.progress()); });
    }
    const Outcome done = outcome(model, taken);
    if (json)
        Output::out(jsonReport(false, taken, done, model.message()));
    else
        Output::out(model.message().value_or(QString()) + u'\n');
    return done.failed.isEmpty() ? Output::kOk : Output::kSomeRefused;
}

} // namespace Commands
