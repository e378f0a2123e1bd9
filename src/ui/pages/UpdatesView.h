#pragma once

#include <QWidget>

class AppUpdater;

// (being written)
class UpdatesView final : public QWidget
{
    Q_OBJECT

public:
    explicit UpdatesView(AppUpdater &updater, QWidget *parent = nullptr);
    void appeared();
};
