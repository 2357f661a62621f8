// Saving groups to memory and to files, and loading them, beside other serialisers.

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "BenchSupport.h"
#include "TempFiles.h"
#include "archive/Formats.h"

namespace {

constexpr int kValues = 100;
constexpr int kManyValues = 10000;
constexpr std::size_t kBlock = std::size_t{64} << 10;

using Group = TnRobotPtr<ITnRobotDataValueGroup>;

Group Mixed(int nValues, bool bBlock) {
    auto group = bench::MixedGroup(nValues);
    if (bBlock) {
        bench::AddBlock(*group, kBlock);
    }
    return group;
}

// Room for everybody's form of the group: names and numbers take far less than 512 bytes a value.
std::size_t RoomFor(std::size_t nValues, std::size_t nBlockBytes) {
    return 512 * nValues + nBlockBytes + nBlockBytes / 8 + (1U << 16);
}

// ---- in memory

template <typename Format>
void Save(benchmark::State& state, ITnRobotDataValueGroup& group, std::size_t nRoom) {
    Format format(group, nRoom);
    std::size_t nLength = format.Save();
    for (auto _ : state) {
        nLength = format.Save();
        benchmark::DoNotOptimize(nLength);
        benchmark::ClobberMemory();
    }
    state.counters["bytes"] = static_cast<double>(nLength);
}

template <typename Format>
void Load(benchmark::State& state, ITnRobotDataValueGroup& group, std::size_t nRoom) {
    Format format(group, nRoom);
    const std::size_t nLength = format.Save();
    format.Load(nLength);  // the first time the system has to find the memory
    for (auto _ : state) {
        bool bOk = format.Load(nLength);
        benchmark::DoNotOptimize(bOk);
        benchmark::ClobberMemory();
    }
}

template <typename Format>
void CheckFormat(ITnRobotDataValueGroup& group, std::size_t nRoom) {
    Format format(group, nRoom);
    const bool bLoaded = format.Load(format.Save());
    bench::Require(bLoaded && format.LoadedEquals(bench::ToMap(group)), "what is loaded is not what was saved");
}

template <typename Format>
void RegisterInMemory(bool bBlock) {
    const std::size_t nRoom = RoomFor(kValues, bBlock ? kBlock : 0);
    CheckFormat<Format>(*Mixed(kValues, bBlock), nRoom);
    const std::string strEnd = std::string(bBlock ? "100With64KiB/" : "100/") + Format::kParty;
    bench::Register("GroupSave" + strEnd, 1,
                    [bBlock, nRoom](benchmark::State& state) { Save<Format>(state, *Mixed(kValues, bBlock), nRoom); });
    bench::Register("GroupLoad" + strEnd, 1,
                    [bBlock, nRoom](benchmark::State& state) { Load<Format>(state, *Mixed(kValues, bBlock), nRoom); });
}

// One element is one byte of the values.
template <typename Format>
void RegisterArchiveScaling(const bench::Program& program) {
    for (const long long nSize : bench::Sizes(program, 1 << 10, 1 << 30, 16)) {
        const auto scaled = [nSize](void (*run)(benchmark::State&, ITnRobotDataValueGroup&, std::size_t)) {
            return [nSize, run](benchmark::State& state) {
                const auto nBytes = static_cast<std::size_t>(nSize);
                run(state, *bench::GroupOfBlocks(nBytes), RoomFor(0, nBytes));
            };
        };
        bench::RegisterScaling("ArchiveSave", Format::kParty, nSize, nSize, scaled(Save<Format>));
        bench::RegisterScaling("ArchiveLoad", Format::kParty, nSize, nSize, scaled(Load<Format>));
    }
}

// A single value as large as many pictures.
template <typename Format>
void RegisterOneValue(const bench::Program& program) {
    const auto sized = [](std::size_t nBytes, void (*run)(benchmark::State&, ITnRobotDataValueGroup&, std::size_t)) {
        return [nBytes, run](benchmark::State& state) {
            const auto group = bench::Make<ITnRobotDataValueGroup>(TnCreateRobotValueDataGroup);
            bench::AddBlock(*group, nBytes);
            run(state, *group, RoomFor(1, nBytes));
        };
    };
    const std::vector<std::size_t> sizes =
        program.IsQuick() ? std::vector<std::size_t>{1} : std::vector<std::size_t>{64, 256, 1024};
    for (const std::size_t nMiB : sizes) {
        const std::string strEnd = std::string("/") + Format::kParty + "/" + std::to_string(nMiB) + "MiB";
        bench::Register("SaveOneValue" + strEnd, 1, sized(nMiB << 20U, Save<Format>));
        bench::Register("LoadOneValue" + strEnd, 1, sized(nMiB << 20U, Load<Format>));
    }
}

// ---- in files, from opening to closing

class OurFile {
public:
    static constexpr const char* kParty = "ours";
    explicit OurFile(ITnRobotDataValueGroup& group) : m_group(group) {}

    void Save(const std::string& strPath) {
        Open(strPath, true);
        m_group.Serialize(m_archive.get());
        Close();
    }
    void Load(const std::string& strPath) {
        m_loaded = bench::Make<ITnRobotDataValueGroup>(TnCreateRobotValueDataGroup);
        Open(strPath, false);
        m_loaded->Serialize(m_archive.get());
        Close();
    }
    bool LoadedEquals(const bench::VariantMap&) { return bench::SavedAlike(*m_loaded, m_group); }

private:
    void Open(const std::string& strPath, bool bStoring) {
        bench::Require(m_file->Open(strPath.c_str(), bStoring), "the file cannot be opened");
        m_archive->Attach(m_file.get(), bStoring);
    }
    void Close() {
        m_archive->Flush();
        m_archive->Detach();
        m_file->Close();
    }

    ITnRobotDataValueGroup& m_group;
    Group m_loaded;
    TnRobotPtr<ITnRobotFile> m_file = bench::Make<ITnRobotFile>(TnCreateRobotFile);
    TnRobotPtr<ITnRobotArchive> m_archive = bench::Make<ITnRobotArchive>(TnCreateRobotArchive);
};

#ifdef TNROBOT_BENCH_CEREAL
class CerealFile {
public:
    static constexpr const char* kParty = "cereal";
    explicit CerealFile(ITnRobotDataValueGroup& group) : m_held(bench::ToMap(group)) {}

    void Save(const std::string& strPath) {
        std::ofstream stream(strPath, std::ios::binary);
        cereal::BinaryOutputArchive archive(stream);
        archive(m_held);
    }
    void Load(const std::string& strPath) {
        m_loaded.clear();
        std::ifstream stream(strPath, std::ios::binary);
        cereal::BinaryInputArchive archive(stream);
        archive(m_loaded);
    }
    bool LoadedEquals(const bench::VariantMap& map) { return m_loaded == map; }

private:
    bench::VariantMap m_held;
    bench::VariantMap m_loaded;
};
#endif

// The same bytes as ours in one call each way.
class OneCall {
public:
    static constexpr const char* kParty = "limit_one_call";
    explicit OneCall(ITnRobotDataValueGroup& group) {
        const auto map = bench::ToMap(group);
        m_bytes.assign(bench::OurFormat(group, RoomFor(map.size(), kBlock)).Save(), 1);
        m_loaded.resize(m_bytes.size());
    }

    void Save(const std::string& strPath) { Transfer(strPath, "wb"); }
    void Load(const std::string& strPath) { Transfer(strPath, "rb"); }
    bool LoadedEquals(const bench::VariantMap&) { return m_loaded == m_bytes; }

private:
    void Transfer(const std::string& strPath, const char* lpszMode) {
        std::FILE* pFile = std::fopen(strPath.c_str(), lpszMode);
        bench::Require(pFile != nullptr, "the file cannot be opened");
        std::setvbuf(pFile, nullptr, _IONBF, 0);
        const std::size_t nDone = lpszMode[0] == 'w' ? std::fwrite(m_bytes.data(), 1, m_bytes.size(), pFile)
                                                     : std::fread(m_loaded.data(), 1, m_loaded.size(), pFile);
        std::fclose(pFile);
        bench::Require(nDone == m_bytes.size(), "the file is incomplete");
    }

    std::vector<unsigned char> m_bytes;
    std::vector<unsigned char> m_loaded;
};

template <typename File>
void SaveFile(benchmark::State& state, ITnRobotDataValueGroup& group) {
    const std::string strPath = bench::FilePath(std::string(File::kParty) + ".saved");
    File file(group);
    file.Save(strPath);
    const long long nBefore = bench::WriteCalls();
    for (auto _ : state) {
        file.Save(strPath);
    }
    const auto nCalls = static_cast<double>(bench::WriteCalls() - nBefore);
    const auto nBytes = static_cast<double>(std::filesystem::file_size(strPath));
    state.counters["bytes"] = nBytes;
    // The last part of a file may be a short one.
    state.counters["write_calls_per_64KiB"] =
        nCalls / static_cast<double>(state.iterations()) / std::ceil(nBytes / static_cast<double>(kBlock));
}

template <typename File>
void LoadFile(benchmark::State& state, ITnRobotDataValueGroup& group) {
    const std::string strPath = bench::FilePath(std::string(File::kParty) + ".loaded");
    File file(group);
    file.Save(strPath);
    for (auto _ : state) {
        file.Load(strPath);
        benchmark::ClobberMemory();
    }
    bench::Require(file.LoadedEquals(bench::ToMap(group)), "what is loaded is not what was saved");
}

template <typename File>
void RegisterInFile(const std::string& strCount, int nValues, bool bBlock) {
    const std::string strEnd = strCount + "/" + File::kParty;
    bench::Register("GroupSaveFile" + strEnd, 1,
                    [nValues, bBlock](benchmark::State& state) { SaveFile<File>(state, *Mixed(nValues, bBlock)); });
    bench::Register("GroupLoadFile" + strEnd, 1,
                    [nValues, bBlock](benchmark::State& state) { LoadFile<File>(state, *Mixed(nValues, bBlock)); });
}

template <typename File>
void RegisterFileParty() {
    RegisterInFile<File>("100", kValues, false);
    RegisterInFile<File>("100With64KiB", kValues, true);
    RegisterInFile<File>("10000", kManyValues, false);
}

void TellPeers(bench::Program& program) {
#ifdef TNROBOT_BENCH_CEREAL
    program.AddPeer("cereal " + std::to_string(CEREAL_VERSION_MAJOR) + "." + std::to_string(CEREAL_VERSION_MINOR) +
                    "." + std::to_string(CEREAL_VERSION_PATCH));
#else
    program.AddAbsentPeer("cereal");
#endif
#ifdef TNROBOT_BENCH_MSGPACK
    program.AddPeer("msgpack-cxx " MSGPACK_VERSION);
#else
    program.AddAbsentPeer("msgpack-cxx");
#endif
#ifdef TNROBOT_BENCH_JSON
    program.AddPeer("nlohmann::json " + std::to_string(NLOHMANN_JSON_VERSION_MAJOR) + "." +
                    std::to_string(NLOHMANN_JSON_VERSION_MINOR) + "." + std::to_string(NLOHMANN_JSON_VERSION_PATCH));
#else
    program.AddAbsentPeer("nlohmann::json");
#endif
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    bench::Program program(nArguments, ppszArguments, "archive", "Archive");
    TellPeers(program);
    bench::ForEachFormat([](auto* pType) {
        using Format = std::remove_pointer_t<decltype(pType)>;
        RegisterInMemory<Format>(false);
        RegisterInMemory<Format>(true);
    });
    RegisterArchiveScaling<bench::OurFormat>(program);
#ifdef TNROBOT_BENCH_CEREAL
    RegisterArchiveScaling<bench::CerealMap>(program);
#endif
    RegisterArchiveScaling<bench::CopyOfBytes>(program);
    RegisterOneValue<bench::OurFormat>(program);
#ifdef TNROBOT_BENCH_CEREAL
    RegisterOneValue<bench::CerealMap>(program);
#endif
    RegisterOneValue<bench::CopyOfBytes>(program);
    RegisterFileParty<OurFile>();
#ifdef TNROBOT_BENCH_CEREAL
    RegisterFileParty<CerealFile>();
#endif
    RegisterFileParty<OneCall>();
    return program.Run();
}
