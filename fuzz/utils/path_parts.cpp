// Takes paths apart and puts them together, in buffers of exactly the documented size.

#include <TnRobotKernel/TnRobotKernel.h>

#include <array>

#include "FuzzBudget.h"
#include "FuzzInput.h"

using namespace tnfuzz;

namespace {

constexpr std::size_t kSize = TnRobotUtils::kPathSize;
constexpr char kUntouched = '#';

using Buffer = std::array<char, kSize>;

Buffer FreshBuffer() {
    Buffer buffer;
    buffer.fill(kUntouched);
    return buffer;
}

using Splitter = int (*)(const char*, char*);

// A part is cut to what fits, and zero-terminated.
void CheckPart(Splitter pfnSplit, const std::string& strPath, const std::string& strPart, bool bSeparated) {
    Buffer buffer = FreshBuffer();
    const int nResult = pfnSplit(strPath.c_str(), buffer.data());
    Require(nResult == (bSeparated ? 0 : -1), "a path without a separator has no parts");
    if (!bSeparated) {
        Require(buffer == FreshBuffer(), "and nothing is written");
        return;
    }
    Require(strnlen(buffer.data(), kSize) < kSize, "a part ends in its buffer");
    Require(std::string(buffer.data()) == strPart.substr(0, kSize - 1),
            "and is what lies on its side of the separator");
    Require(pfnSplit(strPath.c_str(), nullptr) == 0, "nobody need take it");
}

// A built path is not terminated when it fills the buffer; a shorter one is followed by zeros.
void CheckBuilt(const Buffer& buffer, std::string strPath) {
    strPath.resize(kSize, '\0');
    Require(std::equal(buffer.begin(), buffer.end(), strPath.begin()), "directory and name make a path");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const FuzzBudget budget(nSize);
    const std::string strPath(pData, std::find(pData, pData + nSize, 0));
    const std::size_t nSeparator = strPath.find_last_of("/\\");
    const bool bSeparated = nSeparator != std::string::npos;
    const std::string strDirectory = bSeparated ? strPath.substr(0, nSeparator) : "";
    const std::string strName = bSeparated ? strPath.substr(nSeparator + 1) : "";
    CheckPart(TnRobotUtils::GetPurePath, strPath, strDirectory, bSeparated);
    CheckPart(TnRobotUtils::GetPureName, strPath, strName, bSeparated);

    Buffer buffer = FreshBuffer();
    TnRobotUtils::MakeWorkFilePath(strPath.c_str(), buffer.data());
    CheckBuilt(buffer, std::string(TnRobotUtils::GetWorkDir()) + "/" + strPath);
    // An empty directory would mean the default one, which is made on disk.
    if (!strDirectory.empty()) {
        TnRobotUtils::SetDebugDir(strDirectory.c_str());
        buffer = FreshBuffer();
        TnRobotUtils::MakeDebugFile(strName.c_str(), buffer.data());
        CheckBuilt(buffer, strDirectory + "/" + strName);
    }
    Require(!TnRobotUtils::MatchWildcard(strName.c_str(), strPath.c_str()), "wildcards are not supported");
    return 0;
}
