// What a program waits for and what it takes before a library does anything: each start is one of a small
// program that loads a module with the library behind it, makes a value and decodes a small picture.

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>

#ifdef TNROBOT_BENCH_OPENCV
#include <opencv2/core/version.hpp>
#endif

#include "BenchSupport.h"
#include "TempFiles.h"
#include "image/Pictures.h"

namespace {

constexpr int kStarts = 15;
constexpr int kSide = 64;  // of the picture, so small that decoding it takes next to nothing

// What the probe prints.
struct Start {
    double dValueUs = 0;
    double dPictureUs = 0;
    long nResidentKiB = 0;
    unsigned long nRelocations = 0;
    std::size_t nLibraries = 0;
    long nFileKiB = 0;
    int nWidth = 0;
};

const std::string& Picture() {
    static const std::string s_strPath = [] {
        const bench::Bytes pixels = bench::Scene(kSide, kSide);
        bench::Bytes jpeg(2 * pixels.size());
        const std::size_t nBytes = bench::EncodeDirectly(pixels.data(), kSide, kSide, 2, jpeg.data(), jpeg.size());
        std::ofstream file(bench::FilePath("picture.jpg"), std::ios::binary);
        file.write(reinterpret_cast<const char*>(jpeg.data()), static_cast<std::streamsize>(nBytes));
        return bench::FilePath("picture.jpg");
    }();
    return s_strPath;
}

Start StartOnce(const std::string& strModule, const std::string& strLibrary) {
    const std::string strCommand =
        std::string(TNROBOT_STARTUP_PROBE) + " '" + strModule + "' '" + Picture() + "' '" + strLibrary + "'";
    std::FILE* pPipe = popen(strCommand.c_str(), "re");
    bench::Require(pPipe != nullptr, "the probe cannot be started");
    Start start;
    const int nRead =
        std::fscanf(pPipe, "%lf %lf %ld %lu %zu %ld %d", &start.dValueUs, &start.dPictureUs, &start.nResidentKiB,
                    &start.nRelocations, &start.nLibraries, &start.nFileKiB, &start.nWidth);
    bench::Require(pclose(pPipe) == 0 && nRead == 7, "the probe has failed");
    return start;
}

template <typename T>
double Median(std::array<Start, kStarts>& starts, T Start::*pField) {
    std::nth_element(starts.begin(), starts.begin() + kStarts / 2, starts.end(),
                     [pField](const Start& a, const Start& b) { return a.*pField < b.*pField; });
    return static_cast<double>(starts[kStarts / 2].*pField);
}

std::array<Start, kStarts> StartOften(const std::string& strModule, const std::string& strLibrary) {
    std::array<Start, kStarts> starts;
    for (Start& start : starts) {
        start = StartOnce(strModule, strLibrary);
    }
    return starts;
}

// What libjpeg and a picture take by themselves.
double JpegKiB() {
    static const double s_dKiB = [] {
        auto starts = StartOften(TNROBOT_STARTUP_JPEG, "libjpeg");
        return Median(starts, &Start::nResidentKiB);
    }();
    return s_dKiB;
}

void FirstUse(benchmark::State& state, const std::string& strModule, const std::string& strLibrary) {
    std::array<Start, kStarts> starts;
    for (auto _ : state) {
        starts = StartOften(strModule, strLibrary);
        state.SetIterationTime(1e-6 * Median(starts, &Start::dValueUs));
    }
    state.counters["value_us"] = Median(starts, &Start::dValueUs);
    state.counters["picture_us"] = Median(starts, &Start::dPictureUs);
    state.counters["resident_KiB"] = Median(starts, &Start::nResidentKiB);
    state.counters["above_libjpeg_KiB"] = std::max(0.0, Median(starts, &Start::nResidentKiB) - JpegKiB());
    state.counters["file_KiB"] = Median(starts, &Start::nFileKiB);
    state.counters["relocations"] = Median(starts, &Start::nRelocations);
    state.counters["libraries"] = Median(starts, &Start::nLibraries);
}

void RegisterStart(const std::string& strParty, const std::string& strModule, const std::string& strLibrary) {
    bench::RegisterManual("Startup/" + strParty,
                          [strModule, strLibrary](benchmark::State& state) { FirstUse(state, strModule, strLibrary); })
        ->Iterations(1)
        ->Unit(benchmark::kMicrosecond);
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    bench::Program program(nArguments, ppszArguments, "startup", "Startup and size");
    Picture();
    RegisterStart("ours", TNROBOT_STARTUP_OURS, "libTnRobotKernel");
#ifdef TNROBOT_BENCH_OPENCV
    program.AddPeer(std::string("OpenCV ") + CV_VERSION);
    RegisterStart("opencv", TNROBOT_STARTUP_OPENCV, "libopencv");
#else
    program.AddAbsentPeer("OpenCV: its modules core and imgcodecs are not installed");
#endif
    RegisterStart("limit_libjpeg", TNROBOT_STARTUP_JPEG, "libjpeg");
    RegisterStart("limit_nothing", TNROBOT_STARTUP_NONE, "no library");
    return program.Run();
}
