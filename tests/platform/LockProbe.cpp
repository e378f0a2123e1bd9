#include "core/screenclean/ScreenCleanMode.h"

#include <QCoreApplication>
#include <cstdio>

using namespace Qt::StringLiterals;

// Holds screen-cleaning mode for tst_inputlock, which watches it on stdout:
// "locked" or "failed: <message>" (exit 3) once started, "esc <n>" whenever the count
// changes, and exit 0 when the mode ends.
namespace {

void say(const QString &line)
{
    std::fputs(qPrintable(line + u'\n'), stdout);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    ScreenCleanMode &mode = ScreenCleanMode::shared();
    mode.start();
    if (!mode.active()) {
        say(u"failed: "_s + mode.lastError().value_or(QString()));
        return 3;
    }
    say(u"locked"_s);
    int shown = mode.escCount();
    QObject::connect(&mode, &ScreenCleanMode::changed, &app, [&] {
        if (mode.escCount() != shown) {
            shown = mode.escCount();
            say(u"esc "_s + QString::number(shown));
        }
        if (!mode.active())
            QCoreApplication::exit(0);
    });
    return QCoreApplication::exec();
}
