#pragma once

#include <QWidget>

class ScreenCleanMode;

// (being written)
class ScreenCleanView final : public QWidget
{
    Q_OBJECT

public:
    explicit ScreenCleanView(ScreenCleanMode &mode, QWidget *parent = nullptr);
    void appeared();
};
