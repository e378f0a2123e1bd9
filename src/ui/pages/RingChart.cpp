#include "ui/pages/RingChart.h"

#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QtMath>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr double kGap = 1.0;

// Apple's light-mode system colours, which the ring has always used.
constexpr QRgb kBlue = 0xFF007AFF;
constexpr QRgb kPink = 0xFFFF2D55;
constexpr QRgb kTeal = 0xFF30B0C7;
constexpr QRgb kPurple = 0xFFAF52DE;
constexpr QRgb kOrange = 0xFFFF9500;
constexpr QRgb kGray = 0xFF8E8E93;

QPointF onCircle(const QPointF &centre, double radius, double clockwiseFromTop)
{
    const double radians = qDegreesToRadians(clockwiseFromTop);
    return centre + QPointF(radius * std::sin(radians), -radius * std::cos(radians));
}

QPainterPath sectorPath(const QPointF &centre, double outer, double inner,
                        const RingChart::Sector &sector)
{
    // QPainterPath counts counter-clockwise from three o'clock.
    const double start = 90 - sector.startAngle;
    const QRectF outerBox(centre.x() - outer, centre.y() - outer, 2 * outer, 2 * outer);
    const QRectF innerBox(centre.x() - inner, centre.y() - inner, 2 * inner, 2 * inner);
    QPainterPath path(onCircle(centre, outer, sector.startAngle));
    path.arcTo(outerBox, start, -sector.spanAngle);
    path.arcTo(innerBox, start - sector.spanAngle, sector.spanAngle);
    path.closeSubpath();
    return path;
}

} // namespace

RingChart::RingChart(QWidget *parent) : QWidget(parent)
{
    setFixedSize(kSize, kSize);
}

QColor RingChart::colour(const QString &id)
{
    if (id == u"documents")
        return QColor::fromRgba(kBlue);
    if (id == u"applications")
        return QColor::fromRgba(kPink);
    if (id == u"desktop")
        return QColor::fromRgba(kTeal);
    if (id == u"downloads")
        return QColor::fromRgba(kPurple);
    if (id == u"other")
        return QColor::fromRgba(kOrange);
    QColor gray = QColor::fromRgba(kGray);
    if (id == u"free")
        gray.setAlphaF(0.25f);
    return gray;
}

QList<RingChart::Sector> RingChart::layout(const QList<DiskCategory> &categories)
{
    QList<Sector> sectors;
    double total = 0;
    for (const DiskCategory &category : categories) {
        const qint64 value = std::max<qint64>(category.bytes, 1);
        sectors.append({category.id, value, 0, 0, colour(category.id)});
        total += double(value);
    }
    double start = 0;
    for (Sector &sector : sectors) {
        sector.startAngle = start;
        sector.spanAngle = 360.0 * double(sector.value) / total;
        start += sector.spanAngle;
    }
    return sectors;
}

void RingChart::setCategories(const QList<DiskCategory> &categories)
{
    m_sectors = layout(categories);
    update();
}

void RingChart::paintEvent(QPaintEvent *)
{
    if (m_sectors.isEmpty())
        return;
    // Drawn on a layer of its own so that the gaps can be cut out whatever lies behind.
    const qreal dpr = devicePixelRatioF();
    QImage layer(size() * dpr, QImage::Format_ARGB32_Premultiplied);
    layer.setDevicePixelRatio(dpr);
    layer.fill(Qt::transparent);
    QPainter painter(&layer);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    const QPointF centre = QRectF(rect()).center();
    const double outer = std::min(width(), height()) / 2.0;
    const double inner = outer * kInnerRatio;
    for (const Sector &sector : std::as_const(m_sectors)) {
        painter.setBrush(sector.colour);
        painter.drawPath(sectorPath(centre, outer, inner, sector));
    }
    if (m_sectors.size() > 1) {
        // A straight cut keeps the gap equally wide from the hole to the rim.
        painter.setCompositionMode(QPainter::CompositionMode_Clear);
        painter.setPen(QPen(Qt::black, kGap, Qt::SolidLine, Qt::FlatCap));
        for (const Sector &sector : std::as_const(m_sectors))
            painter.drawLine(centre, onCircle(centre, outer + 1, sector.startAngle));
    }
    painter.end();
    QPainter(this).drawImage(QPointF(0, 0), layer);
}
