#pragma once

#include <QWidget>

class QLabel;
class ScreenCleanMode;

// What every black window shows while the mode is on: a dim symbol, the mode's name, the
// locked line and the exit hint with the live Esc count. It takes no input of any kind.
class ScreenCleanOverlay final : public QWidget
{
    Q_OBJECT

public:
    explicit ScreenCleanOverlay(ScreenCleanMode &mode, QWidget *parent = nullptr);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    ScreenCleanMode &m_mode;
    QLabel *m_hint;
};
