#include "platform/InputLock.h"

// (being written)
namespace Platform {

namespace {
class NoLock final : public InputLock
{
public:
    bool trusted() override { return true; }
    void requestTrust() override {}
    bool install(std::function<void()>) override { return false; }
    void release() override {}
    void hidePointer() override {}
    void showPointer() override {}
};
} // namespace

std::unique_ptr<InputLock> InputLock::create()
{
    return std::make_unique<NoLock>();
}

void openAccessibilitySettings() {}

void placeOverlayWindow(quintptr) {}

} // namespace Platform
