#include "OutputDirectory.h"

#include <TnRobotKernel/TnRobotKernel.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <utility>

// A directory that cannot be made shows when the first file is missing.
OutputDirectory::OutputDirectory(std::string strDirectory) : m_strDirectory(std::move(strDirectory)) {
    std::error_code ignored;
    std::filesystem::create_directories(m_strDirectory, ignored);
}

std::string OutputDirectory::NewFile(const std::string& strName, const char* lpszExtension) {
    char szPath[TnRobotUtils::kPathSize];
    TnRobotUtils::MakeValidFile(m_strDirectory.c_str(), strName.c_str(), lpszExtension, szPath);
    m_files.emplace_back(szPath);
    return m_files.back();
}

// The directory may hold files of others, which are nobody's business here. The paths were made with
// a directory, so each of them has a name part.
bool OutputDirectory::List() const {
    std::vector<std::string> found;
    TnRobotUtils::FindFile(m_strDirectory.c_str(), nullptr, found);
    bool bAll = true;
    std::printf("\nwritten to %s:\n", m_strDirectory.c_str());
    for (const std::string& strFile : m_files) {
        const long long nSize = TnRobotUtils::GetFileSize(strFile.c_str());
        const bool bFound = nSize > 0 && std::find(found.begin(), found.end(), strFile) != found.end();
        char szName[TnRobotUtils::kPathSize] = {};
        TnRobotUtils::GetPureName(strFile.c_str(), szName);
        std::printf("%10lld bytes  %s%s\n", nSize, szName, bFound ? "" : "  MISSING");
        bAll = bAll && bFound;
    }
    std::printf("(a .bmp of a colour picture carries a grey table of 64 MiB, which its readers rely on)\n");
    return bAll;
}
