#pragma once

#include <QWidget>

// A small indeterminate progress indicator; idle costs nothing (no timer while stopped).
class Spinner final : public QWidget
{
    Q_OBJECT

public:
    explicit Spinner(QWidget *parent = nullptr);
    void setRunning(bool running);
    bool isRunning() const;
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *) override;
    void timerEvent(QTimerEvent *) override;

private:
    int m_timer = 0;
    int m_angle = 0;
};
