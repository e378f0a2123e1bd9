#include "platform/DateText.h"

#include <QByteArray>
#include <QString>
#include <unicode/udat.h>
#include <unicode/ustring.h>

namespace Platform {
namespace {

// The locale the C library would use for dates: LC_ALL, then LC_TIME, then LANG, without
// the encoding part. "C" and "POSIX" (and nothing) mean en_US_POSIX, as in ICU.
QByteArray dateLocale()
{
    for (const char *name : {"LC_ALL", "LC_TIME", "LANG"}) {
        QByteArray value = qgetenv(name);
        if (value.isEmpty())
            continue;
        if (const qsizetype cut = value.indexOf('.'); cut >= 0)
            value.truncate(cut);
        if (const qsizetype cut = value.indexOf('@'); cut >= 0)
            value.truncate(cut);
        if (value == "C" || value == "POSIX")
            return "en_US_POSIX";
        return value;
    }
    return "en_US_POSIX";
}

} // namespace

QString mediumDate(const QDateTime &when)
{
    if (!when.isValid())
        return {};
    UErrorCode status = U_ZERO_ERROR;
    const QByteArray locale = dateLocale();
    UDateFormat *format =
        udat_open(UDAT_NONE, UDAT_MEDIUM, locale.constData(), nullptr, -1, nullptr, -1, &status);
    if (U_FAILURE(status) || !format)
        return when.toLocalTime().date().toString(Qt::ISODate);
    UChar buffer[128];
    const UDate millis = UDate(when.toMSecsSinceEpoch());
    const int32_t length = udat_format(format, millis, buffer, 128, nullptr, &status);
    udat_close(format);
    if (U_FAILURE(status) || length <= 0)
        return when.toLocalTime().date().toString(Qt::ISODate);
    return QString::fromUtf16(reinterpret_cast<const char16_t *>(buffer), length);
}

} // namespace Platform
