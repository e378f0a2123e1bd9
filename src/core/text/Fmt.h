#pragma once

#include <QString>

namespace Fmt {

// Every size shown to people: decimal, file style, KB to TB. Uses the system's own
// formatter where there is one, otherwise fileStyleBytes.
QString bytes(qint64 count);

// The decimal file-style rendering: whole KB, up to one fraction digit for MB, two for GB
// and TB, trailing zeros dropped, halves rounded away from zero, 1..999 bytes as "1 KB".
QString fileStyleBytes(qint64 count, bool zh);

// Bytes per second in steps of 1024, never following the C locale.
QString rate(double bytesPerSecond);

} // namespace Fmt
