#include "core/screenclean/ScreenCleanMode.h"

#include <QCoreApplication>
#include <cstdio>

// Holds screen-cleaning mode for tst_screenclean, which watches it on stdout: "locked" or
// "failed: <message>" (exit 3) once started, "esc <n>" whenever the count changes, and exit 0
// when the mode ends.
int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    ScreenCleanMode &mode = ScreenCleanMode::shared();
    const auto say = [](const QString &line) {
        std::fputs(qPrintable(line + u'\n'), stdout);
        std::fflush(stdout);
    };
    mode.start();
    if (!mode.active()) {
        say(QStringLiteral("failed: ") + mode.lastError().value_or(QString()));
        return 3;
    }
    say(QStringLiteral("locked"));
    int shown = mode.escCount();
    QObject::connect(&mode, &ScreenCleanMode::changed, &app, [&] {
        if (mode.escCount() != shown)
            say(QStringLiteral("esc ") + QString::number(shown = mode.escCount()));
        if (!mode.active())
            QCoreApplication::exit(0);
    });
    return QCoreApplication::exec();
}
