#pragma once

#include <QWidget>

class ScreenCleanMode;

// (being written)
class ScreenCleanOverlay final : public QWidget
{
    Q_OBJECT

public:
    explicit ScreenCleanOverlay(ScreenCleanMode &mode, QWidget *parent = nullptr);
};
