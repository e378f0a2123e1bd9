#include "ui/pages/OverviewView.h"

OverviewView::OverviewView(OverviewModel &, SystemStats &, QWidget *parent) : QWidget(parent) {}

void OverviewView::appeared() {}
