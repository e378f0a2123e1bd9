#include "ui/Theme.h"

#include <QFile>
#include <QFontDatabase>
#include <QFontInfo>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QHash>
#include <QPainter>
#include <QPalette>
#include <QSvgRenderer>

using namespace Qt::StringLiterals;

namespace Theme {
namespace {

// Apple's light-mode system colours; close enough on a desktop that has no such notion.
constexpr QRgb kGood = 0xFF34C759;
constexpr QRgb kFair = 0xFFFF9500;
constexpr QRgb kPoor = 0xFFFF3B30;

QColor primaryText()
{
    return QGuiApplication::palette().color(QPalette::WindowText);
}

QColor withAlpha(QColor colour, double alpha)
{
    colour.setAlphaF(float(alpha));
    return colour;
}

// A tint of "no colour" means the text colour, resolved at the call so it follows the palette.
QColor resolvedTint(const QColor &tint)
{
    return tint.isValid() ? tint : primaryText();
}

QString resourcePath(const QString &name)
{
    return u":/icons/"_s + name + u".svg"_s;
}

QPixmap renderTinted(const QString &name, int size, const QColor &tint, qreal dpr)
{
    QSvgRenderer renderer(resourcePath(name));
    if (!renderer.isValid())
        return {};
    const int device = qMax(1, qRound(size * dpr));
    QImage image(device, device, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter, QRectF(0, 0, device, device));
    // The artwork is black; only its coverage matters, the colour comes from here.
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(image.rect(), tint);
    painter.end();
    QPixmap pixmap = QPixmap::fromImage(std::move(image));
    pixmap.setDevicePixelRatio(dpr);
    return pixmap;
}

} // namespace

QColor accent()
{
    static const QColor colour = QColor::fromRgbF(0.55f, 0.35f, 0.95f);
    return colour;
}

QColor good()
{
    return QColor::fromRgba(kGood);
}

QColor fair()
{
    return QColor::fromRgba(kFair);
}

QColor poor()
{
    return QColor::fromRgba(kPoor);
}

QColor secondaryText()
{
    return withAlpha(primaryText(), 0.5);
}

QColor quaternaryFill()
{
    return withAlpha(primaryText(), 0.1);
}

QFont font(Font role)
{
    // macOS sizes for a 13-point body, scaled to whatever the application font is.
    double points = 13;
    bool bold = false;
    switch (role) {
    case Font::title:
        points = 22;
        break;
    case Font::title2:
        points = 17;
        break;
    case Font::title3:
        points = 15;
        break;
    case Font::headline:
        bold = true;
        break;
    case Font::body:
        break;
    case Font::callout:
        points = 12;
        break;
    case Font::caption:
        points = 10;
        break;
    case Font::caption2:
        points = 9;
        break;
    }
    QFont f = QGuiApplication::font();
    const double scale = points / 13.0;
    if (f.pointSizeF() > 0)
        f.setPointSizeF(f.pointSizeF() * scale);
    else
        f.setPixelSize(qMax(1, qRound(f.pixelSize() * scale)));
    if (bold)
        f.setBold(true);
    return f;
}

bool hasTabularDigits(const QFont &font)
{
    const QFontMetricsF metrics(font);
    const qreal zero = metrics.horizontalAdvance(u'0');
    for (char16_t digit = u'1'; digit <= u'9'; ++digit) {
        if (!qFuzzyCompare(metrics.horizontalAdvance(QChar(digit)), zero))
            return false;
    }
    return zero > 0;
}

namespace {

QString figureFamily(const QFont &base)
{
    if (hasTabularDigits(base))
        return {};
    for (const QString &family : {u"Helvetica Neue"_s, u"DejaVu Sans"_s, u"Noto Sans"_s}) {
        QFont candidate = base;
        candidate.setFamilies({family});
        if (QFontInfo(candidate).family() == family && hasTabularDigits(candidate))
            return family;
    }
    return QFontDatabase::systemFont(QFontDatabase::FixedFont).family();
}

} // namespace

QFont figures(Font role)
{
    QFont f = font(role);
    // Main thread only, like every font. The choice follows the interface font's family.
    static QHash<QString, QString> chosen;
    const QString key = f.families().join(u',') + u'|' + f.family();
    auto found = chosen.constFind(key);
    if (found == chosen.cend())
        found = chosen.insert(key, figureFamily(f));
    if (!found->isEmpty())
        f.setFamilies({*found});
    return f;
}

QPixmap symbol(const QString &symbolName, int size, const QColor &tint)
{
    if (size <= 0 || !QFile::exists(resourcePath(symbolName)))
        return {};
    const QColor colour = resolvedTint(tint);
    const qreal dpr = qApp ? qApp->devicePixelRatio() : 1.0;
    // Main thread only, like every pixmap; the panel asks for the same few every 2 s.
    static QHash<QString, QPixmap> cache;
    const QString key = symbolName + u'|' + QString::number(size) + u'|' +
                        QString::number(colour.rgba(), 16) + u'|' + QString::number(dpr);
    if (const auto it = cache.constFind(key); it != cache.cend())
        return *it;
    QPixmap pixmap = renderTinted(symbolName, size, colour, dpr);
    if (!pixmap.isNull())
        cache.insert(key, pixmap);
    return pixmap;
}

QIcon icon(const QString &symbolName, const QColor &tint)
{
    if (!QFile::exists(resourcePath(symbolName)))
        return {};
    QIcon result;
    for (const int size : {16, 20, 24, 32, 48, 64})
        result.addPixmap(symbol(symbolName, size, tint));
    return result;
}

} // namespace Theme
