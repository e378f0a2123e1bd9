#include "ui/kit/Spinner.h"

#include "ui/Theme.h"

#include <QPainter>
#include <QTimerEvent>

namespace {
constexpr int kStepMs = 80;
constexpr int kStepDegrees = 30;
} // namespace

Spinner::Spinner(QWidget *parent) : QWidget(parent)
{
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void Spinner::setRunning(bool running)
{
    if (running == isRunning())
        return;
    if (running) {
        m_timer = startTimer(kStepMs);
    } else {
        killTimer(m_timer);
        m_timer = 0;
    }
    update();
}

bool Spinner::isRunning() const
{
    return m_timer != 0;
}

QSize Spinner::sizeHint() const
{
    return {16, 16};
}

void Spinner::paintEvent(QPaintEvent *)
{
    if (!isRunning())
        return; // a stopped spinner leaves its place empty, so rows do not jump
    const int side = qMin(width(), height());
    const qreal pen = qMax(1.5, side / 8.0);
    const QRectF box((width() - side) / 2.0 + pen / 2, (height() - side) / 2.0 + pen / 2,
                     side - pen, side - pen);
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(Theme::quaternaryFill(), pen));
    painter.drawEllipse(box);
    painter.setPen(QPen(Theme::secondaryText(), pen, Qt::SolidLine, Qt::RoundCap));
    // drawArc counts in 1/16 degree, anticlockwise; negate so it turns clockwise.
    painter.drawArc(box, -m_angle * 16, 100 * 16);
}

void Spinner::timerEvent(QTimerEvent *event)
{
    if (event->timerId() != m_timer)
        return QWidget::timerEvent(event);
    m_angle = (m_angle + kStepDegrees) % 360;
    update();
}
