// The group that the save and load cases use.

#ifndef TNROBOTKERNEL_BENCH_VALUES_MIXEDGROUP_H_
#define TNROBOTKERNEL_BENCH_VALUES_MIXEDGROUP_H_

#include <string>
#include <vector>

#include "BenchSupport.h"

namespace bench {

/// @return names such as "axis.042".
inline std::vector<std::string> Names(int nCount) {
    std::vector<std::string> names;
    for (int i = 0; i < nCount; ++i) {
        const std::string strNumber = std::to_string(i);
        names.push_back("axis." + std::string(strNumber.size() < 3 ? 3 - strNumber.size() : 0, '0') + strNumber);
    }
    return names;
}

inline void SetMixedValue(ITnRobotDataValueGroup& group, const char* lpszName, int nIndex) {
    const std::vector<unsigned char> block(256, static_cast<unsigned char>(nIndex));
    constexpr int kTypes = 13;
    switch (nIndex % kTypes) {
        case 0:
            group.SetValue(lpszName, true);
            break;
        case 1:
            group.SetValue(lpszName, 'c');
            break;
        case 2:
            group.SetValue(lpszName, static_cast<unsigned char>(nIndex));
            break;
        case 3:
            group.SetValue(lpszName, static_cast<short>(nIndex));
            break;
        case 4:
            group.SetValue(lpszName, static_cast<unsigned short>(nIndex));
            break;
        case 5:
            group.SetValue(lpszName, nIndex);
            break;
        case 6:
            group.SetValue(lpszName, static_cast<unsigned int>(nIndex));
            break;
        case 7:
            group.SetValue(lpszName, static_cast<float>(nIndex));
            break;
        case 8:
            group.SetValue(lpszName, static_cast<double>(nIndex));
            break;
        case 9:
            group.SetValue(lpszName, static_cast<long long>(nIndex));
            break;
        case 10:
            group.SetValue(lpszName, static_cast<unsigned long long>(nIndex));
            break;
        case 11:
            group.SetValue(lpszName, "a text that needs the heap");
            break;
        default:
            group.SetValue(lpszName, block.data(), static_cast<unsigned int>(block.size()));
            break;
    }
}

/// @return a group of that many values of all thirteen types in turn.
inline TnRobotPtr<ITnRobotDataValueGroup> MixedGroup(int nCount) {
    auto group = Make<ITnRobotDataValueGroup>(TnCreateRobotValueDataGroup);
    const auto names = Names(nCount);
    for (int i = 0; i < nCount; ++i) {
        SetMixedValue(*group, names[static_cast<std::size_t>(i)].c_str(), i);
    }
    return group;
}

/// A memory file over a buffer of its own and an archive, both used again and again.
class ArchiveInMemory {
public:
    explicit ArchiveInMemory(std::size_t nCapacity) : m_bytes(nCapacity) {}

    /// @return the bytes that the group takes.
    long long Save(ITnRobotDataValueGroup& group) {
        m_file->OpenMemFile(m_bytes.data(), static_cast<long long>(m_bytes.size()), true);
        m_archive->Attach(m_file.get(), true);
        group.Serialize(m_archive.get());
        m_archive->Flush();
        m_archive->Detach();
        const long long nLength = m_file->GetTotleLen();
        m_file->Close();
        return nLength;
    }

    int Load(ITnRobotDataValueGroup& group, long long nLength) {
        m_file->OpenMemFile(m_bytes.data(), nLength, false);
        m_archive->Attach(m_file.get(), false);
        const int nResult = group.Serialize(m_archive.get());
        m_archive->Detach();
        m_file->Close();
        return nResult;
    }

    const unsigned char* Bytes() const { return m_bytes.data(); }

private:
    std::vector<unsigned char> m_bytes;
    TnRobotPtr<ITnRobotMemFile> m_file = Make<ITnRobotMemFile>(TnCreateRobotMemFile);
    TnRobotPtr<ITnRobotArchive> m_archive = Make<ITnRobotArchive>(TnCreateRobotArchive);
};

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_VALUES_MIXEDGROUP_H_
