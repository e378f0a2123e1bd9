#pragma once

// This application's own bundle identifier; the unused-apps scan never offers it.
inline constexpr const char *kQuorvelBundleIdentifier = "app.quorvel.Quorvel";
