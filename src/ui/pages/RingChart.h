#pragma once

#include "core/disk/DiskScanner.h"

#include <QColor>
#include <QList>
#include <QWidget>

// The disk ring: one sector per category, in order, sized by its bytes, with a hole of
// 0.7 of the radius and a 1-pt gap between sectors. Children laid over it show in the hole.
class RingChart final : public QWidget
{
    Q_OBJECT

public:
    static constexpr int kSize = 170;
    static constexpr double kInnerRatio = 0.7;

    // Angles in degrees, clockwise from twelve o'clock; the span is the sector's full
    // share, the gap is taken out of it only when painting.
    struct Sector
    {
        QString id;
        qint64 value = 0; // the bytes, at least 1 so that no sector vanishes
        double startAngle = 0;
        double spanAngle = 0;
        QColor colour;
    };

    explicit RingChart(QWidget *parent = nullptr);

    void setCategories(const QList<DiskCategory> &categories);
    const QList<Sector> &sectors() const { return m_sectors; }

    // The colour of a category id, shared with the legend; plain gray for ids it does
    // not know.
    static QColor colour(const QString &id);
    static QList<Sector> layout(const QList<DiskCategory> &categories);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QList<Sector> m_sectors;
};
