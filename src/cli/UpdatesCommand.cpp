#include "CommandLine.h"
#include "Commands.h"
#include "Output.h"
#include "UpdateCheck.h"

#include "core/models/AppUpdater.h"
#include "core/text/L10n.h"
#include "core/words/UpdatesWords.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace Commands {
namespace {

QString usage()
{
    return L10n::pick(u"usage: quorvel-cli updates [--json]\n"
                      u"Checks Homebrew, the App Store and apps with a built-in updater for "
                      u"newer versions.\nNothing is installed; see quorvel-cli upgrade.\n"_s,
                      u"用法：quorvel-cli updates [--json]\n"
                      u"检查 Homebrew、App Store 和自带更新器的应用有没有新版本。\n"
                      u"不安装任何东西；安装请用 quorvel-cli upgrade。\n"_s) +
           UpdateCheck::environmentHelp();
}

// The same lines as the snapshot's updates.txt, so the two can be compared.
QString text(const AppUpdater &updater)
{
    QString out = updater.status() + u'\n';
    for (const OutdatedApp &app : updater.items()) {
        out += sourceLabel(app.source) + u'\t' + app.name + u'\t' + app.installed + u" -> "_s +
               app.latest + u'\n';
    }
    return out;
}

QString json(const AppUpdater &updater)
{
    QJsonArray items;
    for (const OutdatedApp &app : updater.items()) {
        items.append(QJsonObject{
            {u"id"_s, app.id},
            {u"name"_s, app.name},
            {u"installed"_s, app.installed},
            {u"latest"_s, app.latest},
            {u"source"_s, rawValue(app.source)},
            {u"appURL"_s, app.appPath ? QJsonValue(*app.appPath) : QJsonValue()},
        });
    }
    const QJsonObject root{{u"status"_s, updater.status()}, {u"items"_s, items}};
    return QString::fromUtf8(QJsonDocument(root).toJson(QJsonDocument::Indented));
}

} // namespace

int updates(const QStringList &arguments, const std::shared_ptr<const System> &system)
{
    const auto read = CommandLine::read("updates", arguments, {.switches = {u"--json"_s}}, usage);
    if (const int *status = std::get_if<int>(&read))
        return *status;
    const CommandLine::Parsed &args = std::get<CommandLine::Parsed>(read);

    AppUpdater updater(UpdateCheck::services(system));
    UpdateCheck::scan(updater);
    Output::out(args.switches.contains(u"--json"_s) ? json(updater) : text(updater));
    return Output::kOk;
}

} // namespace Commands
