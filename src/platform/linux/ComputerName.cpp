#include "platform/ComputerName.h"

#include <QFile>
#include <QSysInfo>

using namespace Qt::StringLiterals;

namespace {

// One value of an environment-style file: unquoted, or in single quotes taken literally,
// or in double quotes where a backslash escapes the next character.
QString unquoted(QStringView value)
{
    value = value.trimmed();
    if (value.size() < 2 || (value.front() != u'"' && value.front() != u'\'') ||
        value.back() != value.front())
        return value.toString();
    const QChar quote = value.front();
    value = value.sliced(1, value.size() - 2);
    if (quote == u'\'')
        return value.toString();
    QString out;
    out.reserve(value.size());
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] == u'\\' && i + 1 < value.size())
            ++i;
        out += value[i];
    }
    return out;
}

QString prettyHostName(const QString &machineInfo)
{
    QFile file(machineInfo);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // The file is a handful of short lines; a huge one is not worth reading.
    const QString text = QString::fromUtf8(file.read(64 * 1024));
    QString name;
    for (QStringView line : QStringView(text).split(u'\n')) {
        line = line.trimmed();
        if (line.startsWith(u"PRETTY_HOSTNAME="))
            name = unquoted(line.sliced(16)); // the last assignment wins, as in a shell
    }
    return name.trimmed();
}

} // namespace

QString Platform::computerName(const QString &machineInfo)
{
    const QString pretty = prettyHostName(machineInfo);
    return pretty.isEmpty() ? QSysInfo::machineHostName() : pretty;
}
