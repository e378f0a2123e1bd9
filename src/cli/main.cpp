#include "Commands.h"
#include "Output.h"

#include <QCoreApplication>
#include <array>

namespace {

constexpr std::array<Commands::Command, 1> kCommands{{
    {"check", "ask the safety guard whether paths may be moved to the Trash", &Commands::check},
}};

QString help()
{
    QString text = QStringLiteral("usage: quorvel-cli COMMAND [OPTIONS]\n"
                                  "       quorvel-cli --help | --version\n\n"
                                  "Commands:\n");
    for (const auto &command : kCommands) {
        text += QStringLiteral("  ") + QString::fromLatin1(command.name).leftJustified(10) +
                QString::fromLatin1(command.summary) + u'\n';
    }
    text += QStringLiteral("\nEvery command takes --help and --json. Exit status: 0 success, "
                           "1 some items refused or skipped, 2 bad usage.\n");
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
    for (const auto &command : kCommands) {
        if (name == QLatin1String(command.name))
            return command.run(arguments);
    }
    Output::err(QStringLiteral("quorvel-cli: unknown command ") + name + QStringLiteral("\n\n") + help());
    return Output::kUsage;
}
