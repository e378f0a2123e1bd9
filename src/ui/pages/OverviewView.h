#pragma once

#include <QWidget>

class OverviewModel;
class SystemStats;

// (being written)
class OverviewView final : public QWidget
{
    Q_OBJECT

public:
    explicit OverviewView(OverviewModel &model, SystemStats &stats, QWidget *parent = nullptr);
    void appeared();
};
