#include "App.h"
#include "SingleInstance.h"

#include "Snapshot.h"
#include "core/system/RealSystem.h"
#include "ui/QtTexts.h"

#include <QApplication>
#include <QSocketNotifier>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

int g_signalPipe[2] = {-1, -1};

extern "C" void onQuitSignal(int)
{
    const int saved = errno;
    const char byte = 1;
    [[maybe_unused]] const ssize_t n = ::write(g_signalPipe[1], &byte, 1);
    errno = saved;
}

// SIGINT and SIGTERM end the app the way Quit does. The handler may only write to a pipe;
// the event loop reads it and quits.
void quitOnSignals(QObject *owner)
{
    if (::pipe(g_signalPipe) != 0)
        return;
    for (int fd : g_signalPipe) {
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    }
    auto *notifier = new QSocketNotifier(g_signalPipe[0], QSocketNotifier::Read, owner);
    QObject::connect(notifier, &QSocketNotifier::activated, owner, [] {
        char drain[64];
        while (::read(g_signalPipe[0], drain, sizeof drain) > 0) {
        }
        App::quit();
    });
    struct sigaction action = {};
    action.sa_handler = onQuitSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

QStringList urlArguments(const QStringList &arguments)
{
    QStringList urls;
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        if (arguments.at(i).startsWith(u"quorvel:"_s, Qt::CaseInsensitive))
            urls.append(arguments.at(i));
    }
    return urls;
}

} // namespace

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    // A tray app: closing the tools window or the panel must not end it.
    QApplication::setQuitOnLastWindowClosed(false);
    QGuiApplication::setDesktopFileName(u"quorvel"_s);
    QtTexts::follow(); // before any dialog: its standard buttons speak the chosen language

    const QStringList arguments = QCoreApplication::arguments();
    const QStringList urls = urlArguments(arguments);

    // The one read of the user's folders for this process; everything below gets it passed.
    const auto system = std::make_shared<const RealSystem>(Locations::fromEnvironment());
    App app(system);
    SingleInstance instance([&app](const QString &request) { app.route(request); },
                            Platform::cacheFolder(system->where().userFolders()));
    // Snapshot runs stay out of the way of (and unreachable from) a running instance.
    if (!Snapshot::requestedFolder(arguments) && !instance.claim()) {
        bool handedOver = true;
        for (const QString &request : urls.isEmpty() ? QStringList{App::kReopen.toString()} : urls)
            handedOver = instance.forward(request) && handedOver;
        return handedOver ? EXIT_SUCCESS : EXIT_FAILURE;
    }

    quitOnSignals(&app);
    app.start(arguments, urls);
    const int status = QApplication::exec();

    // Leaving main the ordinary way would wait for the background pools (a walk or a
    // Homebrew run can take minutes) and run static destructors under their feet.
    instance.release();
    std::fflush(stdout);
    std::fflush(stderr);
    std::_Exit(status);
}
