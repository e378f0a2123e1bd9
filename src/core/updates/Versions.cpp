#include "core/updates/Versions.h"

#include <QTextBoundaryFinder>
#include <algorithm>
#include <limits>
#include <unicode/uchar.h>

namespace {

// Numeric_Type rather than QChar::isNumber: the latter is the general category N*, which
// leaves out numerals such as the CJK "一" that version strings occasionally carry.
bool isNumericCluster(QStringView cluster)
{
    const char32_t first =
        (cluster.size() > 1 && cluster[0].isHighSurrogate() && cluster[1].isLowSurrogate())
            ? QChar::surrogateToUcs4(cluster[0], cluster[1])
            : cluster[0].unicode();
    return u_getIntPropertyValue(UChar32(first), UCHAR_NUMERIC_TYPE) != U_NT_NONE;
}

// Only plain ASCII decimals carry a value; any other numeral still occupies its position,
// so that "1.²" does not collapse onto "1".
qint64 pieceValue(QStringView piece)
{
    constexpr qint64 max = std::numeric_limits<qint64>::max();
    qint64 value = 0;
    for (const QChar c : piece) {
        const char16_t unit = c.unicode();
        if (unit < u'0' || unit > u'9')
            return 0;
        const int digit = unit - u'0';
        if (value > (max - digit) / 10)
            return 0;
        value = value * 10 + digit;
    }
    return value;
}

} // namespace

QList<qint64> Versions::versionParts(const QString &version)
{
    QList<qint64> parts;
    QTextBoundaryFinder clusters(QTextBoundaryFinder::Grapheme, version);
    qsizetype pieceStart = -1; // start of the current run of numeric clusters
    qsizetype start = 0;
    while (start < version.size()) {
        qsizetype end = clusters.toNextBoundary();
        if (end <= start) // never in practice; keeps the walk finite on odd input
            end = version.size();
        const bool numeric = isNumericCluster(QStringView(version).sliced(start, end - start));
        if (numeric && pieceStart < 0)
            pieceStart = start;
        if (!numeric && pieceStart >= 0) {
            parts.append(pieceValue(QStringView(version).sliced(pieceStart, start - pieceStart)));
            pieceStart = -1;
        }
        start = end;
    }
    if (pieceStart >= 0)
        parts.append(pieceValue(QStringView(version).sliced(pieceStart)));
    return parts;
}

bool Versions::versionLess(const QString &a, const QString &b)
{
    const QList<qint64> left = versionParts(a);
    const QList<qint64> right = versionParts(b);
    const qsizetype n = std::max(left.size(), right.size());
    for (qsizetype i = 0; i < n; ++i) {
        const qint64 x = i < left.size() ? left[i] : 0;
        const qint64 y = i < right.size() ? right[i] : 0;
        if (x != y)
            return x < y;
    }
    return false;
}
