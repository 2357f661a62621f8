// The formatter is vsprintf; the size that callers state bounds nothing.

#include "core/TnFormat.h"

#include <cstdarg>
#include <cstdio>

int _tnsprintf(char* lpszBuffer, unsigned int /*nSize*/, const char* lpszFormat, ...) {
    va_list args;
    va_start(args, lpszFormat);
    const int nWritten = std::vsprintf(lpszBuffer, lpszFormat, args);
    va_end(args);
    return nWritten;
}
