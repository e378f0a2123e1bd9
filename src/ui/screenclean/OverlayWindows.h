#pragma once

#include "core/screenclean/ScreenCleanMode.h"

#include <QList>
#include <QPointer>

class ScreenCleanOverlay;

// The mode's black windows: one frameless, input-transparent overlay above everything on
// each screen attached when the mode starts. Screens attached later stay uncovered.
class OverlayWindows final : public ScreenCleanMode::OverlayHost
{
public:
    OverlayWindows() = default;
    OverlayWindows(const OverlayWindows &) = delete;
    OverlayWindows &operator=(const OverlayWindows &) = delete;
    ~OverlayWindows() override;

    void showWindows(ScreenCleanMode &mode) override;
    void closeWindows() override;

    // The windows of the last showWindows, in the order of the screens.
    QList<ScreenCleanOverlay *> windows() const;

private:
    QList<QPointer<ScreenCleanOverlay>> m_windows;
};
