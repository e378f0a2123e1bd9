#pragma once

#include <cstddef>

namespace Utf8 {

// Strict UTF-8: no overlong forms, no surrogates, nothing past U+10FFFF.
bool isValid(const char *bytes, size_t length);

} // namespace Utf8
