// Loads a BMP picture from untrusted bytes, by way of a file: there is no other.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "PicturePools.h"

namespace {

// A file of this process's own, removed when it ends.
class BmpFile {
public:
    BmpFile()
        : m_strPath((std::filesystem::temp_directory_path() / ("fuzz_" + std::to_string(getpid()) + ".bmp")).string()) {
    }
    ~BmpFile() { unlink(m_strPath.c_str()); }
    BmpFile(const BmpFile&) = delete;
    BmpFile& operator=(const BmpFile&) = delete;

    const char* Path() const { return m_strPath.c_str(); }

    void Replace(const std::uint8_t* pData, std::size_t nSize) const {
        ITnRobotFile* pFile = nullptr;
        TnCreateRobotFile(&pFile);
        pFile->Open(Path(), true);
        pFile->Write(pData, static_cast<long long>(nSize));
        pFile->Close();
        pFile->Release();
    }

private:
    std::string m_strPath;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    static const BmpFile s_file;
    s_file.Replace(pData, nSize);
    const PicturePools pools;
    ITnRobotSurface* pSurface = nullptr;
    if (TnRobotImageUtils::LoadImage(s_file.Path(), pools.Surfaces(), &pSurface) == 0) {
        PicturePools::Finish(pSurface);
    }
    return 0;
}
