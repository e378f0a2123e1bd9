#include "ui/kit/TintedBox.h"

#include "ui/Theme.h"

#include <QPainter>

void TintedBox::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(Theme::quaternaryFill());
    painter.drawRoundedRect(QRectF(rect()), 8, 8);
}
