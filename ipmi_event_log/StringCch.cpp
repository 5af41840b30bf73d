#include "StringCch.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

char* StringCchCopy(char* dst, unsigned long cch, const char* src) {
    std::strncpy(dst, src, cch);
    dst[cch - 1] = '\0';
    return dst;
}

char* StringCchCat(char* dst, unsigned long cch, const char* src) {
    return StringCchCatN(dst, cch, src, cch);
}

int StringCchPrintf(char* dst, unsigned long cch, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(dst, cch, format, arguments);
    va_end(arguments);
    dst[cch - 1] = '\0';
    return length;
}

char* StringCchCatN(char* dst, unsigned long cch, const char* src, unsigned long n) {
    const std::size_t length = strnlen(dst, cch);
    if (length < cch) {
        const std::size_t room = cch - 1 - length;  // characters that fit before the last position
        std::strncat(dst, src, std::min<std::size_t>({cch, n, room}));
    }
    dst[cch - 1] = '\0';
    return dst;
}
