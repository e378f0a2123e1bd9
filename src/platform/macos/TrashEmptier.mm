#include "platform/Trash.h"

#include <QByteArray>
#include <QFile>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <algorithm>
#include <dirent.h>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>

#import <Foundation/Foundation.h>

using namespace Qt::StringLiterals;

// Emptying is left to the Finder, which knows the Trash of every volume, locked items and the
// user's own settings. Apple lists NSAppleScript as a class to be used from the main thread
// only (Threading Programming Guide, "Thread Safety Summary"), yet callers run this on a
// worker, and handing the script to the main thread could deadlock a main thread that waits
// for that worker. So a worker runs the same script in osascript, a process of its own, and
// only a call already on the main thread uses NSAppleScript in-process. Either way the first
// run asks the user to let this app control the Finder; a refusal comes back as the script's
// error.
//
// The Finder keeps emptying after its reply is given up on: an Apple event time-out (-1712)
// only ends the wait. So a time-out is reported as still emptying, never as a failure. A
// worker waits long for a large Trash; the main thread waits only briefly, so that the
// window never freezes for the Finder.
namespace {

constexpr int kEventTimedOut = -1712; // errAETimeout
constexpr int kWorkerWaitSeconds = 3600;
constexpr int kMainThreadWaitSeconds = 3;

QString scriptSource(int waitSeconds)
{
    return u"with timeout of "_s + QString::number(waitSeconds) +
           u" seconds\ntell application \"Finder\" to empty trash\nend timeout"_s;
}

Platform::TrashEmptying scriptError(const QString &systemText, std::optional<int> number)
{
    Platform::TrashEmptying result;
    result.emptied = false;
    if (number == kEventTimedOut) {
        result.stillEmptying = true;
        return result;
    }
    result.scriptFailed = true;
    result.systemText = systemText;
    return result;
}

Platform::TrashEmptying runInProcess(const QString &source)
{
    @autoreleasepool {
        NSAppleScript *script = [[NSAppleScript alloc] initWithSource:source.toNSString()];
        // No script object means nothing was asked of the Finder; this fixed source never
        // gets here in practice, and nothing failed that the user could act on.
        if (script == nil)
            return {};
        NSDictionary<NSString *, id> *errorInfo = nil;
        [script executeAndReturnError:&errorInfo];
        if (errorInfo == nil)
            return {};
        id message = errorInfo[NSAppleScriptErrorMessage];
        id number = errorInfo[NSAppleScriptErrorNumber];
        NSString *text = [message isKindOfClass:[NSString class]] ? message : nil;
        std::optional<int> code;
        if ([number isKindOfClass:[NSNumber class]])
            code = [(NSNumber *)number intValue];
        return scriptError(text != nil ? QString::fromNSString(text) : QString(), code);
    }
}

// osascript's "start:end: execution error: message (number)": the message, and the number
// when there is one.
Platform::TrashEmptying errorOf(const QByteArray &standardError)
{
    QString text = QString::fromUtf8(standardError).trimmed();
    const QString marker = u"execution error: "_s;
    if (const qsizetype at = text.indexOf(marker); at >= 0)
        text = text.mid(at + marker.size());
    const qsizetype open = text.lastIndexOf(u" ("_s);
    bool numbered = false;
    int number = 0;
    if (open > 0 && text.endsWith(u')'))
        number = text.mid(open + 2, text.size() - open - 3).toInt(&numbered);
    if (!numbered)
        return scriptError(text, std::nullopt);
    return scriptError(text.left(open), number);
}

Platform::TrashEmptying runInOsascript(const QString &source)
{
    QProcess osascript;
    osascript.setStandardOutputFile(QProcess::nullDevice());
    osascript.start(u"/usr/bin/osascript"_s, {u"-e"_s, source});
    // No limit of our own: the script's time-out bounds the wait for the Finder.
    if (!osascript.waitForFinished(-1))
        return scriptError({}, std::nullopt); // osascript could not be started
    if (osascript.exitStatus() == QProcess::NormalExit && osascript.exitCode() == 0)
        return {};
    return errorOf(osascript.readAllStandardError());
}

// The Finder empties all or nothing. Anything that arrived after the user was asked would go
// with the rest, so then nothing is emptied at all and the count says why.
std::optional<Platform::TrashEmptying> arrivalsSince(const Platform::TrashContents &confirmed,
                                                     const Platform::UserFolders &user)
{
    const QByteArray trash = QFile::encodeName(Platform::homeTrashItemsPath(user));
    DIR *dir = ::opendir(trash.constData());
    if (dir == nullptr)
        return std::nullopt; // unreadable without Full Disk Access: the Finder decides
    Platform::TrashEmptying result;
    while (const dirent *d = ::readdir(dir)) {
        const char *name = d->d_name;
        if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0)))
            continue;
        struct stat st = {};
        if (::fstatat(::dirfd(dir), name, &st, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        const bool counted =
            std::any_of(confirmed.entries.begin(), confirmed.entries.end(), [&](const auto &entry) {
                return entry.device == quint64(st.st_dev) && entry.inode == quint64(st.st_ino);
            });
        ++(counted ? result.remaining : result.kept);
    }
    ::closedir(dir);
    if (result.kept == 0)
        return std::nullopt;
    result.emptied = false;
    return result;
}

} // namespace

Platform::TrashEmptying Platform::emptyTrash(const std::optional<TrashContents> &confirmed,
                                             const UserFolders &user)
{
    if (confirmed) {
        if (std::optional<TrashEmptying> refused = arrivalsSince(*confirmed, user))
            return *refused;
    }
    return [NSThread isMainThread] ? runInProcess(scriptSource(kMainThreadWaitSeconds))
                                   : runInOsascript(scriptSource(kWorkerWaitSeconds));
}
