#pragma once

#include <QStringList>

// Where Homebrew may live beyond the two macOS prefixes every system tries first.
namespace Platform {

// Further paths of the `brew` executable, in the order to try them; may be empty.
QStringList extraBrewCandidates();

} // namespace Platform
