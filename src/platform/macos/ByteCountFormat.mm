#include "platform/ByteCountFormat.h"

#include <mutex>

#import <Foundation/Foundation.h>

namespace {

NSByteCountFormatter *makeFormatter()
{
    NSByteCountFormatter *formatter = [[NSByteCountFormatter alloc] init];
    formatter.countStyle = NSByteCountFormatterCountStyleFile;
    formatter.allowedUnits = NSByteCountFormatterUseKB | NSByteCountFormatterUseMB |
                             NSByteCountFormatterUseGB | NSByteCountFormatterUseTB;
    return formatter;
}

} // namespace

std::optional<QString> Platform::systemByteCountText(qint64 bytes)
{
    @autoreleasepool {
        static NSByteCountFormatter *const formatter = makeFormatter();
        // Apple documents NSFormatter as not thread-safe and says nothing else for
        // NSByteCountFormatter, so concurrent callers take turns.
        static std::mutex formatterMutex;

        NSString *text = nil;
        {
            const std::lock_guard<std::mutex> lock(formatterMutex);
            text = [formatter stringFromByteCount:bytes];
        }
        if (text == nil)
            return std::nullopt;
        return QString::fromNSString(text);
    }
}
