#include "CommandLine.h"
#include "Commands.h"
#include "Output.h"

#include "core/health/SystemStats.h"
#include "core/text/L10n.h"
#include "core/words/HealthTiles.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSocketNotifier>
#include <QTimer>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace Commands {
namespace {

// The first figures need two samples: the CPU load and the rates are differences.
constexpr int kFirstFrameMs = 1000;
constexpr int kWatchIntervalMs = 2000;

QString usage()
{
    return L10n::pick(u"usage: quorvel-cli health [--json] [--watch]\n"
                      u"Shows the health panel: the grade, CPU, memory, disk, battery and "
                      u"network.\n--watch redraws every 2 seconds until interrupted.\n"_s,
                      u"用法：quorvel-cli health [--json] [--watch]\n"
                      u"显示健康面板：评级、CPU、内存、磁盘、电池和网络。\n"
                      u"--watch 每 2 秒刷新一次，直到被中断。\n"_s);
}

// Columns line up in a terminal only if a Chinese character counts as two.
qsizetype displayWidth(const QString &text)
{
    qsizetype width = 0;
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        const bool wide = (u >= 0x1100 && u <= 0x115F) || (u >= 0x2E80 && u <= 0xA4CF) ||
                          (u >= 0xAC00 && u <= 0xD7A3) || (u >= 0xF900 && u <= 0xFAFF) ||
                          (u >= 0xFE30 && u <= 0xFE4F) || (u >= 0xFF00 && u <= 0xFF60) ||
                          (u >= 0xFFE0 && u <= 0xFFE6);
        width += wide ? 2 : 1;
    }
    return width;
}

QString padded(const QString &text, qsizetype width)
{
    return text + QString(qMax<qsizetype>(1, width - displayWidth(text)), u' ');
}

QString bar(double ratio)
{
    constexpr int kCells = 10;
    const int filled = qRound(qBound(0.0, ratio, 1.0) * kCells);
    return u'[' + QString(filled, u'#') + QString(kCells - filled, u'-') + u']';
}

// The panel as lines: a warning tile is marked with "!" where the panel turns it orange.
QString text(const HealthTiles::Snapshot &s)
{
    QString out = HealthTiles::headingLabel() + (L10n::isZh() ? QString() : u" "_s) +
                  HealthTiles::gradeWord(HealthTiles::grade(s)) + u"\n\n"_s;
    for (const StatCard &card : HealthTiles::tiles(s)) {
        out += (card.warn ? u"! "_s : u"  "_s) + padded(card.title, 14) + padded(card.value, 10) +
               bar(card.ratio) + u"  "_s + card.sub + u'\n';
    }
    const NetworkLine net = HealthTiles::network(s);
    return out + u'\n' + net.label + u"   ↑ "_s + net.up + u"   ↓ "_s + net.down + u'\n';
}

QString json(const HealthTiles::Snapshot &s, QJsonDocument::JsonFormat format)
{
    const QJsonObject root{
        {u"grade"_s, caseName(HealthTiles::grade(s))},
        {u"cpuLoad"_s, s.cpuLoad},
        {u"memoryUsed"_s, s.memoryUsed},
        {u"memoryTotal"_s, s.memoryTotal},
        {u"memoryPressure"_s, caseName(s.memoryPressure)},
        {u"disk"_s, QJsonObject{{u"total"_s, s.disk.total}, {u"free"_s, s.disk.free}}},
        {u"battery"_s, QJsonObject{{u"present"_s, s.batteryPresent},
                                   {u"percent"_s, s.batteryPercent},
                                   {u"charging"_s, s.batteryCharging},
                                   {u"onAC"_s, s.batteryOnAC}}},
        {u"netUp"_s, s.netUp},
        {u"netDown"_s, s.netDown},
        {u"primaryInterface"_s, s.primaryInterface},
    };
    return QString::fromUtf8(QJsonDocument(root).toJson(format));
}

// Ctrl-C or a termination request ends --watch through the event loop, so the command
// returns normally. The handler only writes to a pipe.
int g_signalPipe[2] = {-1, -1};

void onSignal(int)
{
    const char byte = 1;
    if (::write(g_signalPipe[1], &byte, 1) < 0) {
        // Nothing to do: a full pipe already holds a wake-up.
    }
}

bool catchInterrupts()
{
    if (::pipe(g_signalPipe) != 0)
        return false;
    for (int fd : g_signalPipe)
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    ::fcntl(g_signalPipe[1], F_SETFL, O_NONBLOCK);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    return ::sigaction(SIGINT, &action, nullptr) == 0 &&
           ::sigaction(SIGTERM, &action, nullptr) == 0;
}

} // namespace

int health(const QStringList &arguments, const std::shared_ptr<const System> &)
{
    const auto read =
        CommandLine::read("health", arguments, {.switches = {u"--json"_s, u"--watch"_s}}, usage);
    if (const int *status = std::get_if<int>(&read))
        return *status;
    const CommandLine::Parsed &args = std::get<CommandLine::Parsed>(read);
    const bool asJson = args.switches.contains(u"--json"_s);
    const bool watch = args.switches.contains(u"--watch"_s);
    const bool clearScreen = watch && !asJson && isatty(STDOUT_FILENO) == 1;

    SystemStats stats(StatsSources::system());
    QEventLoop loop;
    bool firstFrame = true;
    const auto frame = [&] {
        stats.samplePass();
        const HealthTiles::Snapshot snapshot = HealthTiles::fromStats(stats);
        QString out;
        if (clearScreen)
            out = u"\x1b[H\x1b[2J"_s;
        else if (watch && !asJson && !firstFrame)
            out = u"\n"_s;
        // One document per line while watching, so a script can read frame by frame.
        if (asJson && watch)
            out += json(snapshot, QJsonDocument::Compact) + u'\n';
        else
            out += asJson ? json(snapshot, QJsonDocument::Indented) : text(snapshot);
        Output::out(out);
        firstFrame = false;
    };

    std::optional<QSocketNotifier> interrupts;
    if (watch && catchInterrupts()) {
        interrupts.emplace(g_signalPipe[0], QSocketNotifier::Read);
        QObject::connect(&*interrupts, &QSocketNotifier::activated, &loop, &QEventLoop::quit);
    }
    QTimer repeat;
    repeat.setInterval(kWatchIntervalMs);
    QObject::connect(&repeat, &QTimer::timeout, &loop, frame);

    stats.samplePass();
    QTimer::singleShot(kFirstFrameMs, &loop, [&] {
        frame();
        if (watch)
            repeat.start();
        else
            loop.quit();
    });
    loop.exec();
    return Output::kOk;
}

} // namespace Commands
