#include "UpdateCheck.h"

#include "ModelRunner.h"

#include "core/text/L10n.h"
#include "core/updates/Homebrew.h"

using namespace Qt::StringLiterals;

namespace UpdateCheck {
namespace {

// As the updates page's bottom bar shows it.
QString progressText(const AppUpdater &updater)
{
    QString text = updater.status();
    if (updater.scanning() && updater.checkedCount() > 0)
        text += u" ("_s + QString::number(updater.checkedCount()) + u')';
    return text;
}

} // namespace

QStringList brewCandidates()
{
    if (qEnvironmentVariableIsSet("QUORVEL_BREW"))
        return {qEnvironmentVariable("QUORVEL_BREW")};
    return Homebrew::defaultBrewCandidates();
}

AppUpdater::Services services(const std::shared_ptr<const System> &system)
{
    AppUpdater::Services services = AppUpdater::Services::real(system);
    const QStringList candidates = brewCandidates();
    services.brewOutdated = [candidates] { return Homebrew::brewOutdated(candidates); };
    services.brewPath = [candidates] { return Homebrew::brewPath(candidates); };
    services.upgrade = [candidates](const OutdatedApp &app) {
        return Homebrew::runBrewUpgrade(app, candidates);
    };
    return services;
}

void scan(AppUpdater &updater)
{
    ModelRunner::ProgressLine progress;
    updater.scan();
    // scan() announces its first step before anyone is listening.
    progress.show(progressText(updater));
    ModelRunner::waitUntil(
        updater, [&] { return !updater.scanning(); },
        [&] { progress.show(progressText(updater)); });
}

QString environmentHelp()
{
    return L10n::pick(
        u"Environment:\n"
        u"  QUORVEL_BREW=PATH          run this brew instead of looking in the usual places;\n"
        u"                             no Homebrew when PATH is not an executable file\n"
        u"  QUORVEL_APP_STORE_URL=URL  ask this address instead of the App Store's lookup "
        u"service\n"_s,
        u"环境变量：\n"
        u"  QUORVEL_BREW=PATH          使用这个 brew，不再到常见位置查找；\n"
        u"                             PATH 不是可执行文件时视为没有 Homebrew\n"
        u"  QUORVEL_APP_STORE_URL=URL  用这个地址代替 App Store 的查询服务\n"_s);
}

} // namespace UpdateCheck
