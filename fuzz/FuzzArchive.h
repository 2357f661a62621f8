// An archive that loads from the bytes of one fuzz input.

#ifndef TNROBOTKERNEL_FUZZ_FUZZARCHIVE_H_
#define TNROBOTKERNEL_FUZZ_FUZZARCHIVE_H_

#include <TnRobotKernel/TnRobotKernel.h>

#include <cstdint>
#include <vector>

class FuzzArchive {
public:
    FuzzArchive(const std::uint8_t* pData, std::size_t nSize) : m_bytes(pData, pData + nSize) {
        ITnRobotMemFile* pFile = nullptr;
        TnCreateRobotMemFile(&pFile);
        pFile->OpenMemFile(m_bytes.data(), static_cast<long long>(nSize), false);
        TnCreateRobotArchive(&m_pArchive);
        m_pArchive->Attach(pFile, false);
        pFile->Release();
    }
    ~FuzzArchive() { m_pArchive->Release(); }
    FuzzArchive(const FuzzArchive&) = delete;
    FuzzArchive& operator=(const FuzzArchive&) = delete;

    ITnRobotArchive* operator->() const { return m_pArchive; }
    ITnRobotArchive* Get() const { return m_pArchive; }

private:
    std::vector<std::uint8_t> m_bytes;
    ITnRobotArchive* m_pArchive = nullptr;
};

#endif  // TNROBOTKERNEL_FUZZ_FUZZARCHIVE_H_
