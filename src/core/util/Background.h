#pragma once

#include <functional>

// Where long work runs. Walks, scans and removals share one pool; external programs
// (Homebrew, Spotlight tools), which can run for minutes, get their own, so they never
// hold up a walk. Neither pool is ever waited for: quitting does not join them.
namespace Background {

void run(std::function<void()> job);
void runProcess(std::function<void()> job);

} // namespace Background
