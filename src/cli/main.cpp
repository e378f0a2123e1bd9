#include "Commands.h"

#include "Output.h"
#include "core/system/RealSystem.h"

#include "core/text/L10n.h"

#include <QCoreApplication>
#include <array>

using namespace Qt::StringLiterals;

namespace Commands {
int health(const QStringList &arguments,
           const std::shared_ptr<const System> &system); // HealthCommand.cpp
} // namespace Commands

namespace {

constexpr std::array<Commands::Command, 9> kCommands{{
    {"scan", u"list what a clean-up page would offer", u"列出清理页面会提供的项目",
     &Commands::scan},
    {"clean", u"move a clean-up page's selection to the Trash", u"把清理页面勾选的项目移到废纸篓",
     &Commands::clean},
    {"restore", u"put items that clean moved to the Trash back where they were",
     u"把 clean 移到废纸篓的项目放回原处", &Commands::restore},
    {"overview", u"show disk usage and the Trash", u"显示磁盘使用情况和废纸篓",
     &Commands::overview},
    {"trash", u"show or empty the Trash", u"显示或清空废纸篓", &Commands::trash},
    {"health", u"show the health panel: grade, CPU, memory, disk, battery, network",
     u"显示健康面板：评级、CPU、内存、磁盘、电池、网络", &Commands::health},
    {"check", u"ask the safety guard whether paths may be moved to the Trash",
     u"询问安全检查能否把路径移到废纸篓", &Commands::check},
    {"updates", u"list newer versions of installed packages and apps",
     u"列出已安装软件包和应用的新版本", &Commands::updates},
    {"upgrade", u"upgrade one Homebrew package that updates lists",
     u"升级 updates 列出的一个 Homebrew 软件包", &Commands::upgrade},
}};

QString help()
{
    QString text = L10n::pick(u"usage: quorvel-cli COMMAND [OPTIONS]\n"
                              u"       quorvel-cli --help | --version\n\nCommands:\n"_s,
                              u"用法：quorvel-cli COMMAND [OPTIONS]\n"
                              u"      quorvel-cli --help | --version\n\n命令：\n"_s);
    for (const auto &command : kCommands) {
        text += u"  "_s + QString::fromLatin1(command.name).leftJustified(10) +
                L10n::pick(QString::fromUtf16(command.summaryEn),
                           QString::fromUtf16(command.summaryZh)) +
                u'\n';
    }
    text += L10n::pick(u"\nEvery command takes --help and --json. Exit status: 0 success, "
                       u"1 some items refused or skipped, 2 bad usage.\n"_s,
                       u"\n每个命令都接受 --help 和 --json。退出状态：0 成功，"
                       u"1 有项目被拒绝或跳过，2 用法错误。\n"_s);
    return text;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("quorvel-cli"));
    QCoreApplication::setApplicationVersion(QStringLiteral(QUORVEL_VERSION));

    QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.isEmpty() || arguments.first() == u"--help" || arguments.first() == u"-h" ||
        arguments.first() == u"help") {
        Output::out(help());
        return Output::kOk;
    }
    if (arguments.first() == u"--version") {
        Output::out(QStringLiteral("quorvel-cli ") + QStringLiteral(QUORVEL_VERSION) + u'\n');
        return Output::kOk;
    }
    const QString name = arguments.takeFirst();
    // The one read of the user's folders for this process.
    const std::shared_ptr<const System> system =
        std::make_shared<RealSystem>(Locations::fromEnvironment());
    for (const auto &command : kCommands) {
        if (name == QLatin1String(command.name))
            return command.run(arguments, system);
    }
    Output::err(u"quorvel-cli: "_s + L10n::pick(u"unknown command "_s, u"未知命令 "_s) + name +
                u"\n\n"_s + help());
    return Output::kUsage;
}
