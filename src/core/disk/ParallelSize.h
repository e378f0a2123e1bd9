#pragma once

#include <functional>

// Allocated size of every regular file below an open folder, summed by several threads.
// Takes ownership of `rootFd`. The sum is the same as a sequential walk's.
namespace ParallelSize {

long long sum(int rootFd, int threads);

} // namespace ParallelSize
