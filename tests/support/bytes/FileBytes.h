// Whole files as bytes.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_BYTES_FILEBYTES_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_BYTES_FILEBYTES_H_

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "support/bytes/Bytes.h"

namespace tntest {

inline void WriteBytes(const std::string& path, const Bytes& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

/// @return the content; empty when there is no such file.
inline Bytes ReadBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    if (!file) {
        return {};
    }
    Bytes bytes(static_cast<std::size_t>(file.tellg()));
    file.seekg(0);
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_BYTES_FILEBYTES_H_
