#include "platform/Trash.h"

#include <QByteArray>
#include <QFile>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <algorithm>
#include <dirent.h>
#include <fcntl.h>
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
namespace {

Platform::TrashEmptying scriptFailure(const QString &systemText)
{
    Platform::TrashEmptying result;
    result.emptied = false;
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
        NSString *text = [message isKindOfClass:[NSString class]] ? message : nil;
        return scriptFailure(text != nil ? QString::fromNSString(text) : QString());
    }
}

// The message part of osascript's "start:end: execution error: message (number)", or the
// whole text when it has another form.
QString messageOf(const QByteArray &standardError)
{
    QString text = QString::fromUtf8(standardError).trimmed();
    const QString marker = u"execution error: "_s;
    if (const qsizetype at = text.indexOf(marker); at >= 0)
        text = text.mid(at + marker.size());
    const qsizetype open = text.lastIndexOf(u" ("_s);
    bool numbered = false;
    if (open > 0 && text.endsWith(u')'))
        (void)text.mid(open + 2, text.size() - open - 3).toInt(&numbered);
    return numbered ? text.left(open) : text;
}

Platform::TrashEmptying runInOsascript(const QString &source)
{
    QProcess osascript;
    osascript.setStandardOutputFile(QProcess::nullDevice());
    osascript.start(u"/usr/bin/osascript"_s, {u"-e"_s, source});
    // No limit of our own: the Apple event timeout bounds the Finder's reply, and a large
    // Trash takes its time.
    if (!osascript.waitForFinished(-1))
        return scriptFailure({}); // osascript could not be started
    if (osascript.exitStatus() == QProcess::NormalExit && osascript.exitCode() == 0)
        return {};
    return scriptFailure(messageOf(osascript.readAllStandardError()));
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
    const QString source = u"tell application \"Finder\" to empty trash"_s;
    return [NSThread isMainThread] ? runInProcess(source) : runInOsascript(source);
}
