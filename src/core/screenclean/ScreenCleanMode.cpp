#include "core/screenclean/ScreenCleanMode.h"

// (being written)
ScreenCleanMode::Services ScreenCleanMode::Services::real()
{
    return {Platform::InputLock::create(), [] { return 0.0; },
            [](double, std::function<void()>) { return std::function<void()>([] {}); }};
}

ScreenCleanMode &ScreenCleanMode::shared()
{
    static auto *mode = new ScreenCleanMode;
    return *mode;
}

ScreenCleanMode::ScreenCleanMode(Services services, QObject *parent)
    : QObject(parent), m_services(std::move(services))
{}

ScreenCleanMode::~ScreenCleanMode() = default;

void ScreenCleanMode::setOverlayHost(OverlayHost *host)
{
    m_host = host;
}

bool ScreenCleanMode::trusted() const
{
    return true;
}

void ScreenCleanMode::requestPermission() {}

void ScreenCleanMode::start() {}

void ScreenCleanMode::stop() {}

void ScreenCleanMode::openAccessibilitySettings() {}

QString ScreenCleanMode::exitHint() const
{
    return {};
}

void ScreenCleanMode::escPressed() {}
