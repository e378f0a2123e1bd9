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

std::optional<QString> unescaped(QStringView text)
{
    const auto hex = [](QChar c) {
        return c >= u'0' && c <= u'9'   ? c.unicode() - u'0'
               : c >= u'A' && c <= u'F' ? c.unicode() - u'A' + 10
                                        : -1;
    };
    QString out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] != u'\\') {
            out += text[i];
            continue;
        }
        const QChar next = i + 1 < text.size() ? text[i + 1] : QChar();
        i += 1;
        if (next == u'n') {
            out += u'\n';
        } else if (next == u't') {
            out += u'\t';
        } else if (next == u'\\') {
            out += u'\\';
        } else if (next == u'x' && i + 2 < text.size() && hex(text[i + 1]) >= 0 &&
                   hex(text[i + 2]) >= 0) {
            out += QChar(char16_t(hex(text[i + 1]) * 16 + hex(text[i + 2])));
            i += 2;
        } else {
            return std::nullopt;
        }
    }
    return out;
}

} // namespace PathText
