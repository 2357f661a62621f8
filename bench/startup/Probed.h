// What the modules have that the probe loads: the first things that a program does with a library.

#ifndef TNROBOTKERNEL_BENCH_STARTUP_PROBED_H_
#define TNROBOTKERNEL_BENCH_STARTUP_PROBED_H_

extern "C" {

/// Makes a value that holds a number. @return the number that it holds.
int FirstValue(int nNumber);

/// Decodes a JPEG. @return its width.
int FirstPicture(const unsigned char* pData, unsigned int nLength);
}

#endif  // TNROBOTKERNEL_BENCH_STARTUP_PROBED_H_
