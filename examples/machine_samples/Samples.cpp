#include "Samples.h"

#include <sys/sysinfo.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>

#include "Files.h"

namespace {

constexpr const char* kTypeNames[] = {"none",   "bool",     "short",     "ushort", "int",   "uint", "float",
                                      "double", "longlong", "ulonglong", "string", "block", "char", "byte"};

std::string Hex(const void* pData, std::size_t nSize) {
    const auto* pBytes = static_cast<const unsigned char*>(pData);
    std::string strHex;
    for (std::size_t i = 0; i < nSize; ++i) {
        char szByte[3];
        std::snprintf(szByte, sizeof(szByte), "%02x", pBytes[i]);
        strHex += szByte;
    }
    return strHex;
}

// A group under construction and, beside it, what each value is expected to be in bytes.
class Recorder {
public:
    template <typename T>
    void Scalar(const char* lpszName, ETnRobotDataValueType eType, T value) {
        m_bOk = m_group->SetValue(lpszName, value) == 0 && m_bOk;
        Expect(lpszName, eType, &value, sizeof(value));
    }

    // A character is kept as two bytes, the second of them zero.
    void Char(const char* lpszName, char chValue) {
        const char chPair[2] = {chValue, '\0'};
        m_bOk = m_group->SetValue(lpszName, chValue) == 0 && m_bOk;
        Expect(lpszName, DATA_TYPE_CHAR, chPair, sizeof(chPair));
    }

    void Text(const char* lpszName, const std::string& strValue) {
        m_bOk = m_group->SetValue(lpszName, strValue.c_str()) == 0 && m_bOk;
        Expect(lpszName, DATA_TYPE_STRING, strValue.c_str(), strValue.size() + 1);
    }

    void Block(const char* lpszName, const std::string& strBytes) {
        m_bOk = m_group->SetValue(lpszName, strBytes.data(), static_cast<unsigned int>(strBytes.size())) == 0 && m_bOk;
        Expect(lpszName, DATA_TYPE_BLOCK, strBytes.data(), strBytes.size());
    }

    bool Ok() const { return m_bOk; }
    ITnRobotDataValueGroup& Group() { return *m_group; }
    std::string Expected() const { return m_expected.str(); }

private:
    void Expect(const char* lpszName, ETnRobotDataValueType eType, const void* pData, std::size_t nSize) {
        m_expected << lpszName << '\t' << eType << '\t' << Hex(pData, nSize) << '\n';
    }

    TnRobotPtr<ITnRobotDataValueGroup> m_group = tn::MakeValueDataGroup();
    std::ostringstream m_expected;
    bool m_bOk = true;
};

std::string ReadStart(const char* lpszPath, std::size_t nSize) {
    std::string strBytes(nSize, '\0');
    std::ifstream file(lpszPath, std::ios::binary);
    file.read(strBytes.data(), static_cast<std::streamsize>(nSize));
    strBytes.resize(static_cast<std::size_t>(file.gcount()));
    return strBytes;
}

// At least one value of each of the thirteen types.
void Sample(Recorder& recorder) {
    struct sysinfo info = {};
    sysinfo(&info);
    char szHost[HOST_NAME_MAX + 1] = {};
    gethostname(szHost, sizeof(szHost) - 1);
    double dLoads[3] = {};
    getloadavg(dLoads, 3);
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    localtime_r(&now, &local);
    const std::string strProgram = ReadStart("/proc/self/exe", 4096);
    const auto nMicroseconds =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch());

    recorder.Scalar("running as root", DATA_TYPE_BOOL, geteuid() == 0);
    recorder.Scalar("minutes east of Greenwich", DATA_TYPE_SHORT, static_cast<short>(local.tm_gmtoff / 60));
    recorder.Scalar("processes", DATA_TYPE_USHORT, static_cast<unsigned short>(info.procs));
    recorder.Scalar("process number", DATA_TYPE_INT, static_cast<int>(getpid()));
    recorder.Scalar("processors", DATA_TYPE_UINT, static_cast<unsigned int>(sysconf(_SC_NPROCESSORS_ONLN)));
    recorder.Scalar("load in the last minute", DATA_TYPE_FLOAT, static_cast<float>(dLoads[0]));
    recorder.Scalar("uptime in hours", DATA_TYPE_DOUBLE, static_cast<double>(info.uptime) / 3600.0);
    recorder.Scalar("microseconds since 1970", DATA_TYPE_LONGLONG, static_cast<long long>(nMicroseconds.count()));
    recorder.Scalar("bytes of memory", DATA_TYPE_ULONGLONG,
                    static_cast<unsigned long long>(info.totalram) * info.mem_unit);
    recorder.Text("host name", szHost);
    recorder.Block("start of this program", strProgram);
    recorder.Char("weekday's first letter", "SMTWTFS"[local.tm_wday]);
    recorder.Scalar("class byte of this program", DATA_TYPE_BYTE,
                    static_cast<unsigned char>(strProgram.size() > 4 ? strProgram[4] : 0));
}

// The bytes of a value are what follows version, type and count in its saved form; a value that
// was loaded keeps reporting the length that it had before.
std::string SavedBytes(ITnRobotDataValue& value) {
    constexpr std::size_t kHeader = 1 + 4 + 4;
    const TnRobotPtr<ITnRobotMemFile> file = OpenMemory();
    {
        const AttachedArchive archive(*file, true);
        value.Serialize(archive.Get());
    }
    const std::vector<char> bytes = Content(*file);
    return Hex(bytes.data() + kHeader, bytes.size() - kHeader);
}

std::string Shown(ITnRobotDataValue& value, const std::string& strBytes) {
    constexpr std::size_t kShownDigits = 16;
    if (value.GetDataValueType() != DATA_TYPE_BLOCK) {
        return value.Convert2String(nullptr);
    }
    return strBytes.substr(0, kShownDigits) + "... (" + std::to_string(strBytes.size() / 2) + " bytes)";
}

bool CheckOne(ITnRobotDataValueGroup& group, const std::string& strName, int nType, const std::string& strExpected) {
    const auto value = tn::GetValue(group, strName.c_str());
    if (!value) {
        std::printf("%-28s missing\n", strName.c_str());
        return false;
    }
    const std::string strBytes = SavedBytes(*value);
    const bool bEqual = value->GetDataValueType() == nType && strBytes == strExpected;
    std::printf("%-28s %-10s %-34s %s\n", strName.c_str(), kTypeNames[nType], Shown(*value, strBytes).c_str(),
                bEqual ? "yes" : "NO");
    return bEqual;
}

}  // namespace

bool SaveSamples(const std::string& strDirectory) {
    Recorder recorder;
    Sample(recorder);
    if (!recorder.Ok() || !tn::SaveTo((strDirectory + "/samples.tnr").c_str(), recorder.Group())) {
        return false;
    }
    std::ofstream expected(strDirectory + "/samples.txt");
    expected << recorder.Expected() << std::flush;
    return expected.good();
}

bool CheckSamples(const std::string& strDirectory) {
    const auto group = tn::MakeValueDataGroup();
    if (!tn::LoadFrom((strDirectory + "/samples.tnr").c_str(), *group)) {
        return false;
    }

    std::printf("%-28s %-10s %-34s %s\n", "name", "type", "value", "equal to what was saved");
    std::ifstream expected(strDirectory + "/samples.txt");
    bool bEqual = true;
    std::size_t nExpected = 0;
    for (std::string strLine; std::getline(expected, strLine); ++nExpected) {
        std::istringstream fields(strLine);
        std::string strName;
        std::string strType;
        std::string strBytes;
        std::getline(fields, strName, '\t');
        std::getline(fields, strType, '\t');
        std::getline(fields, strBytes, '\t');
        bEqual = CheckOne(*group, strName, std::stoi(strType), strBytes) && bEqual;
    }
    std::vector<std::pair<std::string, ETnRobotDataValueType>> names;
    return bEqual && nExpected != 0 && group->GetAllDataName(names) == static_cast<int>(nExpected);
}
