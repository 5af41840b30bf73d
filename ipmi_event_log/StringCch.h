// Size-checked copy, concatenation and formatting into fixed character buffers of `cch`
// characters. Each leaves a zero in the buffer's last position; `cch` must be at least 1.
#pragma once

// strncpy(dst, src, cch): the rest of the buffer is zero-filled; a longer source is cut to
// cch - 1 characters.
char* StringCchCopy(char* dst, unsigned long cch, const char* src);
// Appends up to cch characters of src, as strncat(dst, src, cch) does, and cuts the whole text at
// cch - 1 characters. Where the text already there and the appended part do not fit, strncat would
// write past the buffer; this leaves the same text in the buffer and writes nothing past it.
char* StringCchCat(char* dst, unsigned long cch, const char* src);
// vsnprintf(dst, cch, format, ...); returns what vsnprintf returned (the untruncated length).
int StringCchPrintf(char* dst, unsigned long cch, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
// StringCchCat of at most n characters of src.
char* StringCchCatN(char* dst, unsigned long cch, const char* src, unsigned long n);
