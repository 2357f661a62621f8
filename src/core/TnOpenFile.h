// Opens the files of streams.

#ifndef TNROBOTKERNEL_SRC_CORE_TNOPENFILE_H_
#define TNROBOTKERNEL_SRC_CORE_TNOPENFILE_H_

#include <cerrno>
#include <fstream>

namespace tnrobot {

/// Opens a buffer's file as the buffer itself does, but for a signal that comes meanwhile: on a file system
/// of another machine it interrupts the opening, which is no failure.
/// @return whether it is open; errno says why not.
inline bool OpenFile(std::filebuf& buffer, const char* lpszName, std::ios::openmode eMode) {
    bool bOpened = false;
    do {
        errno = 0;  // a buffer also fails without the system
        bOpened = buffer.open(lpszName, eMode | std::ios::binary) != nullptr;
    } while (!bOpened && errno == EINTR);
    return bOpened;
}

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CORE_TNOPENFILE_H_
