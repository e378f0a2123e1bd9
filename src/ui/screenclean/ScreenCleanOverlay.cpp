#include "ui/screenclean/ScreenCleanOverlay.h"

ScreenCleanOverlay::ScreenCleanOverlay(ScreenCleanMode &, QWidget *parent) : QWidget(parent) {}
