#include "CommandLine.h"
#include "Commands.h"
#include "ModelRunner.h"
#include "Output.h"
#include "UpdateCheck.h"

#include "core/models/AppUpdater.h"
#include "core/text/L10n.h"
#include "core/updates/Homebrew.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace Commands {
namespace {

QString usage()
{
    return L10n::pick(u"usage: quorvel-cli upgrade ID [--json]\n"
                      u"Checks for updates, then upgrades the Homebrew package with this id and "
                      u"prints\nHomebrew's output. ID is brew:NAME or cask:NAME, as "
                      u"quorvel-cli updates --json lists it.\n"
                      u"App Store and in-app updates are installed by the App Store or the app "
                      u"itself.\n"_s,
                      u"用法：quorvel-cli upgrade ID [--json]\n"
                      u"检查更新，然后升级这个 id 的 Homebrew 软件包，并输出 Homebrew 的输出。\n"
                      u"ID 为 brew:NAME 或 cask:NAME，即 quorvel-cli updates --json 列出的 id。\n"
                      u"App Store 和应用内更新请在 App Store 或应用自身中安装。\n"_s) +
           UpdateCheck::environmentHelp();
}

bool isHomebrew(const OutdatedApp &app)
{
    return app.source == OutdatedApp::Source::brewFormula ||
           app.source == OutdatedApp::Source::brewCask;
}

int fail(const QString &message)
{
    Output::err(u"quorvel-cli upgrade: "_s + message + u'\n');
    return Output::kUsage;
}

QString noHomebrew()
{
    return L10n::pick(u"Homebrew was not found"_s, u"未找到 Homebrew"_s);
}

QString json(const OutdatedApp &app, const AppUpdater &updater)
{
    const QJsonObject root{
        {u"id"_s, app.id},
        {u"name"_s, app.name},
        {u"source"_s, rawValue(app.source)},
        {u"status"_s, updater.status()},
        {u"output"_s, updater.log()},
    };
    return QString::fromUtf8(QJsonDocument(root).toJson(QJsonDocument::Indented));
}

} // namespace

int upgrade(const QStringList &arguments, const std::shared_ptr<const System> &system)
{
    const auto read = CommandLine::read("upgrade", arguments,
                                        {.switches = {u"--json"_s},
                                         .positional = CommandLine::Arity::one,
                                         .positionalName = u"ID"_s},
                                        usage);
    if (const int *status = std::get_if<int>(&read))
        return *status;
    const CommandLine::Parsed &args = std::get<CommandLine::Parsed>(read);
    const QString id = args.positional.first();
    // Checked before the scan: without brew, no id can succeed and the scan would be wasted.
    if (!Homebrew::brewPath(UpdateCheck::brewCandidates()))
        return fail(noHomebrew());

    AppUpdater updater(UpdateCheck::services(system));
    UpdateCheck::scan(updater);
    const QList<OutdatedApp> &items = updater.items();
    const auto found = std::find_if(items.cbegin(), items.cend(), [&](const OutdatedApp &app) {
        return app.id == id && isHomebrew(app);
    });
    if (found == items.cend()) {
        const bool elsewhere = std::any_of(items.cbegin(), items.cend(),
                                           [&](const OutdatedApp &app) { return app.id == id; });
        return fail(elsewhere ? L10n::pick(id + u" is not a Homebrew package; it updates through "
                                                u"the App Store or the app itself"_s,
                                           id + u" 不是 Homebrew 软件包，请通过 App Store "
                                                u"或应用自身更新"_s)
                              : L10n::pick(u"no update found with id "_s + id,
                                           u"没有 id 为 "_s + id + u" 的更新"_s));
    }
    // A copy: the upgrade removes the row from the list it points into.
    const OutdatedApp app = *found;
    const QString done = L10n::pick(u"Done: "_s + app.name, u"已升级："_s + app.name);
    {
        ModelRunner::ProgressLine progress;
        const QString before = updater.status();
        updater.brewUpgrade(app);
        // brew went away since the check; waiting would never end.
        if (updater.status() == before)
            return fail(noHomebrew());
        progress.show(updater.status());
        ModelRunner::waitUntil(
            updater, [&] { return updater.status() == done; },
            [&] { progress.show(updater.status()); });
    }

    if (args.switches.contains(u"--json"_s)) {
        Output::out(json(app, updater));
    } else {
        QString output = updater.log();
        if (!output.isEmpty() && !output.endsWith(u'\n'))
            output += u'\n';
        Output::out(output + updater.status() + u'\n');
    }
    return Output::kOk;
}

} // namespace Commands
