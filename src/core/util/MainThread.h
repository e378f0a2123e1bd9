#pragma once

#include <functional>

// Fire-and-forget hand-off to the main (GUI) thread: progress reports and results of
// background work. Runs at once when there is no application object (plain tools).
namespace MainThread {

void post(std::function<void()> job);

} // namespace MainThread
