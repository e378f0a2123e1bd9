#pragma once

#include <QString>

// Results go to standard output, progress and complaints to standard error, as UTF-8
// whatever the C locale says.
namespace Output {

void out(const QString &text);
void err(const QString &text);

// Exit statuses shared by every subcommand.
inline constexpr int kOk = 0;
inline constexpr int kSomeRefused = 1;
inline constexpr int kUsage = 2;

} // namespace Output
