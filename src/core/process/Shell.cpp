#include "core/process/Shell.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringDecoder>

#include <algorithm>
#include <cmath>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace Shell {
namespace {

// How long a child that ignores SIGTERM may linger before it gets SIGKILL. Not something a
// caller asks for: it is there so that no program, however stubborn, can hang a caller.
constexpr qint64 kKillGraceMs = 5000;

// The longest single wait; short slices let us act on the deadlines without an event loop.
constexpr qint64 kSliceMs = 100;

QProcessEnvironment childEnvironment(const QMap<QString, QString> &overrides)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"PATH"_s, QString::fromLatin1(kFixedPath));
    env.insert(u"HOMEBREW_NO_AUTO_UPDATE"_s, u"1"_s);
    env.insert(u"HOMEBREW_NO_ENV_HINTS"_s, u"1"_s);
    for (auto it = overrides.cbegin(); it != overrides.cend(); ++it)
        env.insert(it.key(), it.value());
    return env;
}

QDeadlineTimer deadlineAfter(double seconds)
{
    if (std::isinf(seconds) && seconds > 0)
        return QDeadlineTimer(QDeadlineTimer::Forever);
    // NaN and negative limits count as "already over"; absurdly large ones are capped so
    // the conversion to milliseconds cannot overflow.
    const double ms = seconds > 0 ? std::ceil(std::min(seconds, 1e12) * 1000.0) : 0.0;
    return QDeadlineTimer(static_cast<qint64>(ms));
}

std::optional<QString> decodeUtf8(const QByteArray &bytes)
{
    // Stateless, so that a sequence cut off at the very end counts as an error instead of
    // being held back for input that will never come.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

} // namespace

bool isExecutableFile(const QString &path)
{
    const QByteArray native = QFile::encodeName(path);
    struct stat info;
    if (native.isEmpty() || ::stat(native.constData(), &info) != 0 || !S_ISREG(info.st_mode))
        return false;
    return ::access(native.constData(), X_OK) == 0;
}

std::optional<QString> run(const QString &executable, const QStringList &arguments,
                           const QMap<QString, QString> &env, double timeoutSeconds)
{
    QDeadlineTimer deadline = deadlineAfter(timeoutSeconds);

    QProcess process;
    process.setProgram(executable);
    process.setArguments(arguments);
    process.setProcessEnvironment(childEnvironment(env));
    process.setProcessChannelMode(QProcess::SeparateChannels);
    // Straight to the null device, so no amount of it is ever held here.
    process.setStandardErrorFile(QProcess::nullDevice());
    process.setInputChannelMode(QProcess::ForwardedInputChannel);
    process.start(QIODevice::ReadOnly);
    // Whether exec succeeded is known as soon as the child either execs or fails, so this
    // never waits for long; a failure must not cost the caller the whole time limit.
    if (!process.waitForStarted(-1))
        return std::nullopt;

    QByteArray output;
    bool overflowed = false;
    bool terminated = false;
    bool killed = false;
    QDeadlineTimer killDeadline;
    while (process.state() != QProcess::NotRunning) {
        if (!terminated && (overflowed || deadline.hasExpired())) {
            process.terminate();
            terminated = true;
            killDeadline.setRemainingTime(kKillGraceMs);
        } else if (terminated && !killed && killDeadline.hasExpired()) {
            process.kill();
            killed = true;
        }

        qint64 wait = kSliceMs;
        if (!terminated)
            wait = std::min(wait, deadline.remainingTime());
        else if (!killed)
            wait = std::min(wait, killDeadline.remainingTime());
        // A remaining time of -1 means "forever", which the slice already bounds.
        if (wait < 0)
            wait = kSliceMs;
        // waitForFinished() would pull in everything the child writes during the wait, so we
        // wait for output instead and take it one pipe's worth at a time. Once stdout is
        // closed (at its end, or by us) waitForReadyRead() returns at once and the rest of
        // the slice is spent waiting for the exit.
        const QDeadlineTimer slice(wait);
        if (!process.waitForReadyRead(static_cast<int>(wait)))
            process.waitForFinished(static_cast<int>(slice.remainingTime()));

        if (overflowed)
            continue;
        output += process.readAllStandardOutput();
        if (output.size() > maxOutputBytes) {
            overflowed = true;
            output.clear();
            // From here on QProcess reads and drops whatever else arrives.
            process.closeReadChannel(QProcess::StandardOutput);
        }
    }
    if (overflowed)
        return std::nullopt;
    output += process.readAllStandardOutput();
    if (output.size() > maxOutputBytes)
        return std::nullopt;

    return decodeUtf8(output);
}

} // namespace Shell
