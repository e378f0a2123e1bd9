#include "platform/Homebrew.h"

using namespace Qt::StringLiterals;

// Homebrew on Linux installs into its own account's home; the per-user prefix
// (~/.linuxbrew) is unsupported upstream and not tried.
QStringList Platform::extraBrewCandidates()
{
    return {u"/home/linuxbrew/.linuxbrew/bin/brew"_s};
}
