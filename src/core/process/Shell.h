#pragma once

#include <QMap>
#include <QString>
#include <QStringList>
#include <optional>

// Runs one program to completion and returns its standard output. Synchronous: call it
// from worker threads only.
namespace Shell {

// The child's environment is ours with PATH, HOMEBREW_NO_AUTO_UPDATE=1 and
// HOMEBREW_NO_ENV_HINTS=1 fixed, then `env` laid over it. Standard input is inherited;
// standard error goes to the null device. After `timeoutSeconds` the child gets SIGTERM,
// and SIGKILL five seconds later if it is still alive; what it printed until then is
// returned. Standard output is capped at maxOutputBytes: past it the child is stopped the
// same way at once and the answer is nullopt, so memory stays bounded however fast it
// writes. The call ends when the child exits, even if something the child started still
// holds its output open. nullopt when the program cannot start, its output passes the cap
// or is not valid UTF-8; the exit status is never judged. Calls on different threads share
// nothing.
std::optional<QString> run(const QString &executable, const QStringList &arguments,
                           const QMap<QString, QString> &env = {}, double timeoutSeconds = 30.0);

// Far above what the tools we run print (Homebrew's JSON listing, Spotlight's answers).
inline constexpr qsizetype maxOutputBytes = 16 * 1024 * 1024;

// True when `path` is a regular file this process may execute: the test every tool
// lookup (Homebrew, Spotlight) makes before running anything.
bool isExecutableFile(const QString &path);

// The search path every child gets unless the caller overrides PATH.
inline constexpr const char *kFixedPath =
    "/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin";

} // namespace Shell
