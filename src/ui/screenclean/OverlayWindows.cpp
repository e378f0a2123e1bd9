#include "ui/screenclean/OverlayWindows.h"

void OverlayWindows::showWindows(ScreenCleanMode &) {}

void OverlayWindows::closeWindows() {}
