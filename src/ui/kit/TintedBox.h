#pragma once

#include <QWidget>

// A faint rounded fill behind grouped content (the panel's network line, a notice box).
class TintedBox final : public QWidget
{
    Q_OBJECT

public:
    using QWidget::QWidget;

protected:
    void paintEvent(QPaintEvent *) override;
};
