#include "platform/Homebrew.h"

// The two prefixes tried first are the only ones Homebrew supports on macOS.
QStringList Platform::extraBrewCandidates()
{
    return {};
}
