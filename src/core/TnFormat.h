// The library's own formatter for numbers and paths in fixed text buffers.

#ifndef TNROBOTKERNEL_SRC_CORE_TNFORMAT_H_
#define TNROBOTKERNEL_SRC_CORE_TNFORMAT_H_

/// Formats like sprintf. The size is accepted and ignored: no bound is enforced, so every caller
/// gives a buffer that fits the longest text its format can yield.
/// @return characters written, terminating zero not counted; negative on a formatting error.
int _tnsprintf(char* lpszBuffer, unsigned int nSize, const char* lpszFormat, ...) __attribute__((format(printf, 3, 4)));

#endif  // TNROBOTKERNEL_SRC_CORE_TNFORMAT_H_
