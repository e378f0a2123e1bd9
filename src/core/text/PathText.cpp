#include "core/text/PathText.h"

#include <QDir>
#include <QList>
#include <algorithm>

namespace PathText {
QStringView withoutTrailingSlashes(QStringView path)
{
    while (path.size() > 1 && path.endsWith(u'/'))
        path.chop(1);
    return path;
}

QString standardized(const QString &path)
{
    const QString absolute = path.startsWith(u'/') ? path : QDir::currentPath() + u'/' + path;
    QList<QStringView> parts;
    for (QStringView segment : QStringView(absolute).split(u'/')) {
        if (segment.isEmpty() || segment == u".")
            continue;
        if (segment == u"..") {
            if (!parts.isEmpty())
                parts.removeLast();
            continue;
        }
        parts.append(segment);
    }
    if (parts.isEmpty())
        return QStringLiteral("/");
    QString result;
    for (QStringView part : parts) {
        result += u'/';
        result += part;
    }
    return result;
}

QString lastComponent(const QString &path)
{
    const QStringView view = withoutTrailingSlashes(path);
    if (view == u"/")
        return {};
    return view.mid(view.lastIndexOf(u'/') + 1).toString();
}

QString extension(const QString &path)
{
    const QString name = lastComponent(path);
    const qsizetype dot = name.lastIndexOf(u'.');
    return dot < 0 ? QString() : name.mid(dot + 1);
}

QString parentFolder(const QString &path)
{
    QStringView view = withoutTrailingSlashes(path);
    const qsizetype slash = view.lastIndexOf(u'/');
    if (slash < 0)
        return QStringLiteral(".");
    view.truncate(slash);
    while (view.size() > 1 && view.endsWith(u'/'))
        view.chop(1);
    return view.isEmpty() ? QStringLiteral("/") : view.toString();
}

QString escaped(const QString &text)
{
    constexpr char kHex[] = "0123456789ABCDEF";
    const auto special = [](QChar c) {
        return c.unicode() < 0x20 || c.unicode() == 0x7F || c == u'\\';
    };
    if (std::none_of(text.begin(), text.end(), special))
        return text;
    QString out;
    out.reserve(text.size() + 8);
    for (const QChar c : text) {
        if (!special(c))
            out += c;
        else if (c == u'\n')
            out += QStringLiteral("\\n");
        else if (c == u'\t')
            out += QStringLiteral("\\t");
        else if (c == u'\\')
            out += QStringLiteral("\\\\");
        else
            out += QStringLiteral("\\x") + QLatin1Char(kHex[c.unicode() >> 4]) +
                   QLatin1Char(kHex[c.unicode() & 0xF]);
    }
    return out;
}

} // namespace PathText
