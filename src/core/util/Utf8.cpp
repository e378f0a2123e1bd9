#include "core/util/Utf8.h"

namespace Utf8 {

bool isValid(const char *bytes, size_t length)
{
    const auto *s = reinterpret_cast<const unsigned char *>(bytes);
    size_t i = 0;
    while (i < length) {
        const unsigned char c = s[i];
        if (c < 0x80) {
            ++i;
            continue;
        }
        size_t extra = 0;
        unsigned int cp = 0;
        unsigned int min = 0;
        if ((c & 0xE0) == 0xC0) {
            extra = 1, cp = c & 0x1F, min = 0x80;
        } else if ((c & 0xF0) == 0xE0) {
            extra = 2, cp = c & 0x0F, min = 0x800;
        } else if ((c & 0xF8) == 0xF0) {
            extra = 3, cp = c & 0x07, min = 0x10000;
        } else {
            return false;
        }
        if (length - i <= extra)
            return false;
        for (size_t k = 1; k <= extra; ++k) {
            if ((s[i + k] & 0xC0) != 0x80)
                return false;
            cp = (cp << 6) | (s[i + k] & 0x3F);
        }
        if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
            return false;
        i += extra + 1;
    }
    return true;
}

} // namespace Utf8
