#include "platform/DateText.h"

#import <Foundation/Foundation.h>

namespace {

// Locale and time zone are taken once, at the first date asked for; a change in System
// Settings shows after a relaunch.
NSDateFormatter *makeFormatter()
{
    NSDateFormatter *formatter = [[NSDateFormatter alloc] init];
    // Apple documents the formatter as thread-safe from macOS 10.9 for 64-bit apps with the
    // 10.4 behaviour; set it rather than rely on the process-wide default.
    formatter.formatterBehavior = NSDateFormatterBehavior10_4;
    formatter.locale = [NSLocale currentLocale];
    formatter.timeZone = [NSTimeZone localTimeZone];
    formatter.dateStyle = NSDateFormatterMediumStyle;
    formatter.timeStyle = NSDateFormatterNoStyle;
    return formatter;
}

} // namespace

QString Platform::mediumDate(const QDateTime &when)
{
    if (!when.isValid())
        return {};

    @autoreleasepool {
        // Building a formatter costs far more than using one, and a large-file walk asks
        // for a date per result. It is configured once here and never changed after, so
        // worker threads share it without a lock.
        static NSDateFormatter *const formatter = makeFormatter();

        NSDate *date = when.toNSDate();
        if (date == nil)
            return {};
        NSString *text = [formatter stringFromDate:date];
        if (text == nil)
            return {};
        return QString::fromNSString(text);
    }
}
