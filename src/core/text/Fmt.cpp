#include "core/text/Fmt.h"

#include "core/text/L10n.h"
#include "platform/ByteCountFormat.h"

#include <array>
#include <cmath>

namespace Fmt {
namespace {

struct Unit
{
    const char16_t *name;
    quint64 size;
    int digits; // fraction digits shown at most
};

constexpr std::array<Unit, 4> kUnits{{
    {u"KB", 1'000ULL, 0},
    {u"MB", 1'000'000ULL, 1},
    {u"GB", 1'000'000'000ULL, 2},
    {u"TB", 1'000'000'000'000ULL, 2},
}};

constexpr quint64 pow10(int n)
{
    quint64 v = 1;
    while (n-- > 0)
        v *= 10;
    return v;
}

QString grouped(quint64 whole)
{
    QString digits = QString::number(whole);
    for (qsizetype i = digits.size() - 3; i > 0; i -= 3)
        digits.insert(i, u',');
    return digits;
}

// "%.0f" / "%.1f" as printf renders them: the exact binary value rounded, exact ties to
// even (2.5 gives "2", 0.05 gives "0.1"). Qt's own formatting rounds ties away from zero,
// and printf itself follows LC_NUMERIC.
QString fixed(double value, int digits)
{
    const double magnitude = std::fabs(value);
    if (!std::isfinite(value) || magnitude >= 0x1p50)
        return QString::number(value, 'f', digits);
    const double factor = digits == 0 ? 1.0 : 10.0;
    const double scaled = magnitude * factor;
    const double error = std::fma(magnitude, factor, -scaled); // exact: true product - scaled
    const double floor = std::floor(scaled);
    const double fraction = scaled - floor;
    double units = floor;
    if (fraction > 0.5 ||
        (fraction == 0.5 && (error > 0 || (error == 0 && std::fmod(floor, 2) != 0))))
        units = floor + 1;
    QString text = QString::number(qint64(units));
    if (digits == 1) {
        text = text.rightJustified(2, u'0');
        text.insert(text.size() - 1, u'.');
    }
    return std::signbit(value) ? u'-' + text : text;
}

} // namespace

QString fileStyleBytes(qint64 count, bool zh)
{
    if (count == 0)
        return zh ? QStringLiteral("零 KB") : QStringLiteral("Zero KB");
    const bool negative = count < 0;
    // Unsigned so that the most negative count has a magnitude too.
    const quint64 magnitude = negative ? 0ULL - quint64(count) : quint64(count);

    size_t u = 0;
    while (u + 1 < kUnits.size() && magnitude >= kUnits[u + 1].size)
        ++u;
    quint64 scaled = 0; // the shown value times 10^digits
    for (;;) {
        const quint64 step = kUnits[u].size / pow10(kUnits[u].digits);
        const quint64 rest = magnitude % step;
        scaled = magnitude / step + (rest >= step - rest ? 1 : 0);
        // 999,999 bytes reads "1 MB", never "1,000 KB".
        if (u + 1 < kUnits.size() && scaled >= 1000 * pow10(kUnits[u].digits)) {
            ++u;
            continue;
        }
        break;
    }
    if (scaled == 0)
        scaled = 1; // something non-empty never reads as zero

    const quint64 denominator = pow10(kUnits[u].digits);
    QString text = grouped(scaled / denominator);
    if (const quint64 fraction = scaled % denominator; fraction != 0) {
        QString digits = QString::number(fraction).rightJustified(kUnits[u].digits, u'0');
        while (digits.endsWith(u'0'))
            digits.chop(1);
        text += u'.' + digits;
    }
    text += u' ' + QString::fromUtf16(kUnits[u].name);
    return negative ? u'-' + text : text;
}

QString bytes(qint64 count)
{
    if (auto system = Platform::systemByteCountText(count))
        return *system;
    return fileStyleBytes(count, L10n::isZh());
}

QString rate(double bytesPerSecond)
{
    if (bytesPerSecond < 1024.0)
        return fixed(bytesPerSecond, 0) + QStringLiteral(" B/s");
    if (bytesPerSecond < 1048576.0)
        return fixed(bytesPerSecond / 1024.0, 0) + QStringLiteral(" KB/s");
    return fixed(bytesPerSecond / 1048576.0, 1) + QStringLiteral(" MB/s");
}

} // namespace Fmt
