#pragma once

#include "core/screenclean/ScreenCleanMode.h"

// (being written)
class OverlayWindows final : public ScreenCleanMode::OverlayHost
{
public:
    void showWindows(ScreenCleanMode &mode) override;
    void closeWindows() override;
};
