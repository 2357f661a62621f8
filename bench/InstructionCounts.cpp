// Runs hot calls a fixed number of times for an instruction counter; scripts/check_instructions.sh
// counts under callgrind and compares with bench/instructions.json.
//
// Counts, unlike times, are the same on every machine with the same compiler and libraries: nothing
// here depends on the time, on random numbers or on other threads. Collection is off at the start;
// each case dumps its own count. Without the counter the program just runs.

#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "utils/TnBase64.h"
#include "values/MixedGroup.h"

namespace {

/// Counts kCalls calls under a name that ends in their number, after some that fill pools and buffers
/// and bind functions.
template <typename Call>
void Count(const char* lpszName, Call call) {
    constexpr int kFirstCalls = 3;
    constexpr int kCalls = 100;
    for (int i = 0; i < kFirstCalls; ++i) {
        call();
    }
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    for (int i = 0; i < kCalls; ++i) {
        call();
        benchmark::ClobberMemory();
    }
    CALLGRIND_TOGGLE_COLLECT;
    const std::string strDump = std::string(lpszName) + " " + std::to_string(kCalls);
    CALLGRIND_DUMP_STATS_AT(strDump.c_str());
    std::puts(lpszName);
}

void CountMemory() {
    const auto general = bench::Make<ITnRobotMemoryBlockPool>(TnCreateRobotMemoryBlockPool);
    const auto circle = bench::Make<ITnRobotMemoryBlockPool>(TnCreateRobotCircleMemoryBlockPool);
    const auto takeAndRelease = [](ITnRobotMemoryBlockPool& pool, unsigned int nSize) {
        ITnRobotMemoryBlock* pBlock = nullptr;
        pool.QueryMemBuff(nSize, &pBlock);
        bench::Require(pBlock != nullptr, "no block");
        pBlock->Release();
    };
    Count("block", [&] { takeAndRelease(*general, 32768); });
    Count("circle_block", [&] { takeAndRelease(*circle, 4096); });

    const auto stream = bench::Make<ITnRobotMemDataStream>(TnCreateRobotMemDataStream, general.get());
    const unsigned char piece[16] = {1, 2, 3};
    Count("stream_16_bytes", [&] { stream->WriteData(piece, sizeof(piece)); });
}

void CountValues() {
    Count("int_value", [] { bench::Make<ITnRobotDataValue>(TnCreateRobotIntData, 42); });
    Count("text_value", [] { bench::Make<ITnRobotDataValue>(TnCreateRobotStringData, "sixteen letters!"); });
}

// A group's map orders its names by their hashes, which the standard library fixes.
void CountGroups() {
    const auto group = bench::MixedGroup(100);
    const auto other = bench::Make<ITnRobotDataValueGroup>(TnCreateRobotValueDataGroup);
    const std::string strName = bench::Names(100)[5];
    Count("group_set", [&] { group->SetValue(strName.c_str(), 7); });
    Count("group_get", [&] {
        int nError = 0;
        int nValue = group->IntData(strName.c_str(), &nError);
        benchmark::DoNotOptimize(nValue);
    });
    Count("group_copy_100", [&] { other->Copy(group.get()); });
    bench::ArchiveInMemory archive(std::size_t{1} << 20);
    const long long nLength = archive.Save(*group);
    Count("group_save_100", [&] { archive.Save(*group); });
    Count("group_load_100", [&] {
        const auto loaded = bench::Make<ITnRobotDataValueGroup>(TnCreateRobotValueDataGroup);
        archive.Load(*loaded, nLength);
    });
}

void CountImages() {
    constexpr int kSide = 64;
    constexpr std::size_t kBytes = std::size_t{3} * kSide * kSide;
    const auto blocks = bench::Make<ITnRobotMemoryBlockPool>(TnCreateRobotMemoryBlockPool);
    const auto surfaces = bench::Make<ITnRobotSurfacePool>(TnCreateRobotSurfacePool, blocks.get());
    std::vector<unsigned char> pixels(kBytes, 100);
    STnNLImageData image{};
    image.pData = pixels.data();
    image.nDataSize = kBytes;
    image.nWidth = kSide;
    image.nHeight = kSide;
    image.eImageType = TN_IMAGE_BGR24;
    image.nBitsPerChannel = 8;
    image.nChannels = 3;
    ITnRobotSurface* pSurface = nullptr;
    bench::Require(TnRobotImageUtils::NlImage2Surface(image, surfaces.get(), &pSurface) == 0, "no surface");
    const TnRobotPtr<ITnRobotSurface> picture(pSurface, tn::kAdopt);
    Count("clip_32x32", [&] {
        ITnRobotSurface* pClip = nullptr;
        TnRobotImageUtils::ClipImage(surfaces.get(), picture.get(), {16, 48, 16, 48}, &pClip);
        pClip->Release();
    });
}

void CountEvents() {
    const auto event = bench::Make<ITnRobotEvent>(TnCreateRobotManualEvent, false);
    Count("event_set_reset", [&] {
        event->SetEvent();
        event->ResetEvent();
    });
}

void CountUtilities() {
    std::vector<unsigned char> bytes(1024);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(i * 7);
    }
    std::vector<char> text((bytes.size() + 2) / 3 * 4);
    Count("base64_encode_1024", [&] { tnrobot::EncodeBase64(bytes.data(), bytes.size(), text.data()); });
    Count("base64_decode_1024", [&] { tnrobot::DecodeBase64(text.data(), text.size() / 4, bytes.data()); });
    Count("hex_dump_1024", [&] { TnRobotStringUtils::Hex2String(bytes.data(), 1024); });
}

}  // namespace

int main() {
    const bench::ParkedThread parked;
    Count("empty", [] {});
    CountMemory();
    CountValues();
    CountGroups();
    CountImages();
    CountEvents();
    CountUtilities();
    return 0;
}
