// A module that needs nothing: what loading one takes at least.

#include "startup/Probed.h"

int FirstValue(int nNumber) {
    return nNumber;
}

int FirstPicture(const unsigned char* /*pData*/, unsigned int /*nLength*/) {
    return 0;
}
