#include "platform/LaunchAtLogin.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// The XDG autostart entry. Session managers skip an entry that is hidden or that GNOME's
// own switch turned off, so those count as off too; whoever flips the switch elsewhere
// (the desktop's startup-applications tool) is reflected here.
namespace Platform::LaunchAtLogin {

namespace {

QString configHome(const UserFolders &user)
{
    // XDG ignores relative values.
    if (user.configHome.startsWith(u'/'))
        return QDir::cleanPath(user.configHome);
    return QDir::cleanPath(user.home + u"/.config"_s);
}

QString autostartFolder(const UserFolders &user)
{
    return configHome(user) + u"/autostart"_s;
}

QString entryPath(const UserFolders &user)
{
    return autostartFolder(user) + u"/quorvel.desktop"_s;
}

QString failure(const QString &what, const QString &path, int code)
{
    return what + u' ' + path + u": "_s + QString::fromLocal8Bit(std::strerror(code));
}

// Each missing level is created private to the user, as XDG asks of these folders.
std::optional<QString> makeFolder(const QString &path)
{
    QStringList missing;
    for (QString at = path; !QFileInfo::exists(at) && at != u"/"_s; at = QFileInfo(at).path())
        missing.prepend(at);
    for (const QString &folder : std::as_const(missing)) {
        const int result = ::mkdir(QFile::encodeName(folder).constData(), 0700);
        const int code = errno;
        if (result != 0 && code != EEXIST)
            return failure(u"Cannot create"_s, folder, code);
    }
    return std::nullopt;
}

// A GLib key file boolean.
bool isTrue(QStringView value)
{
    return value == u"true" || value == u"1";
}

bool isFalse(QStringView value)
{
    return value == u"false" || value == u"0";
}

// One argument of Exec: quoted when it holds a reserved character, with the quoting
// escapes first and the string escapes of every value on top (so a backslash becomes
// four), and "%" doubled so that it is not read as a field code.
QString execArgument(const QString &argument)
{
    static const QString reserved = u" \t\n\"'\\><~|&;$*?#()`"_s;
    bool quote = argument.isEmpty();
    for (QChar c : argument)
        quote = quote || reserved.contains(c);
    QString quoted;
    if (quote) {
        quoted += u'"';
        for (QChar c : argument) {
            if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
                quoted += u'\\';
            quoted += c;
        }
        quoted += u'"';
    } else {
        quoted = argument;
    }
    QString value;
    for (QChar c : std::as_const(quoted)) {
        if (c == u'\\')
            value += u"\\\\"_s;
        else if (c == u'\n')
            value += u"\\n"_s;
        else if (c == u'\t')
            value += u"\\t"_s;
        else if (c == u'\r')
            value += u"\\r"_s;
        else if (c == u'%')
            value += u"%%"_s;
        else
            value += c;
    }
    return value;
}

QByteArray entryText(const QString &program)
{
    // NoDisplay stays false so that the desktop's startup-applications tool lists it.
    const QString text = u"[Desktop Entry]\n"
                         u"Type=Application\n"
                         u"Name=Quorvel\n"
                         u"Comment=Health panel and maintenance tools\n"
                         u"Exec="_s +
                         execArgument(program) +
                         u"\n"
                         u"Icon=quorvel\n"
                         u"Terminal=false\n"
                         u"NoDisplay=false\n"
                         u"X-GNOME-Autostart-enabled=true\n"_s;
    return text.toUtf8();
}

std::optional<QString> install(const UserFolders &user)
{
    const QString program = QCoreApplication::applicationFilePath();
    if (!program.startsWith(u'/'))
        return u"The program's own path is unknown."_s;
    if (std::optional<QString> error = makeFolder(autostartFolder(user)))
        return error;
    QSaveFile file(entryPath(user));
    if (!file.open(QIODevice::WriteOnly))
        return u"Cannot write "_s + entryPath(user) + u": "_s + file.errorString();
    file.write(entryText(program));
    if (!file.commit())
        return u"Cannot write "_s + entryPath(user) + u": "_s + file.errorString();
    return std::nullopt;
}

std::optional<QString> uninstall(const UserFolders &user)
{
    const QString path = entryPath(user);
    const int result = ::unlink(QFile::encodeName(path).constData());
    const int code = errno;
    if (result != 0 && code != ENOENT)
        return failure(u"Cannot remove"_s, path, code);
    return std::nullopt;
}

} // namespace

QString execValue(const QString &program)
{
    return execArgument(program);
}

bool enabled(const UserFolders &user)
{
    QFile file(entryPath(user));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QString text = QString::fromUtf8(file.readAll());
    bool inEntry = false;
    bool hasEntry = false;
    bool hidden = false;
    bool switchedOff = false;
    for (QStringView line : QStringView(text).split(u'\n')) {
        line = line.trimmed();
        if (line.isEmpty() || line.startsWith(u'#'))
            continue;
        if (line.startsWith(u'[')) {
            inEntry = line == u"[Desktop Entry]";
            hasEntry = hasEntry || inEntry;
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (!inEntry || equals < 0)
            continue;
        const QStringView key = line.left(equals).trimmed();
        const QStringView value = line.mid(equals + 1).trimmed();
        // A later line overrides an earlier one, as key file readers do.
        if (key == u"Hidden")
            hidden = isTrue(value);
        else if (key == u"X-GNOME-Autostart-enabled")
            switchedOff = isFalse(value);
    }
    // Without its main group the file is no entry: nothing starts from it.
    return hasEntry && !hidden && !switchedOff;
}

std::optional<QString> set(const UserFolders &user, bool on)
{
    return on ? install(user) : uninstall(user);
}

} // namespace Platform::LaunchAtLogin
