// A whole inspection job, with the library as its guides teach it, with others, and by hand: 300 frames of
// 1280 x 960 pixels are decoded, twelve regions of each cut out and measured, the results appended to a file
// under their names, and of every tenth frame two regions joined and encoded.
//
// Once by frames that come one after the other, whose regions four workers share; once by frames that are
// done side by side. Each party runs some frames before it is timed, and its results are compared with those
// of the first.

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <optional>

#ifdef TNROBOT_BENCH_OPENCV
#include <opencv2/core/version.hpp>
#endif

#include "BenchSupport.h"
#include "HeapCalls.h"
#include "TempFiles.h"
#include "TnRobotKernel/make.h"
#include "TnRobotKernel/tn/pixels.h"
#include "pipeline/Inspection.h"

namespace {

using bench::Frames;
using bench::Measurements;

constexpr std::size_t kJob = 300;
constexpr std::size_t kQuickJob = 20;
constexpr std::size_t kMoreWarmUp = 40;
constexpr double kOtherDecoder = 1.5;  // grey levels, by which means and pictures may differ, ...
constexpr int kOtherExtreme = 8;       // and single pixels

// What the process has used up, beside the time.
class Meter {
public:
    Meter() : m_nFaults(Faults()), m_nHeapCalls(bench::HeapCalls()), m_dCpuMs(CpuMs()) {}

    // @param[in] milliseconds  of each frame.
    void Report(benchmark::State& state, std::vector<double> milliseconds) const {
        const auto dFrames = static_cast<double>(milliseconds.size());
        const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - m_start;
        state.counters["cpu_ms"] = (CpuMs() - m_dCpuMs) / dFrames;
        state.counters["heap_calls"] = static_cast<double>(bench::HeapCalls() - m_nHeapCalls) / dFrames;
        state.counters["page_faults"] = static_cast<double>(Faults() - m_nFaults) / dFrames;
        std::sort(milliseconds.begin(), milliseconds.end());
        state.counters["frames_per_second"] = dFrames / passed.count();
        state.counters["p50_ms"] = milliseconds[(milliseconds.size() - 1) / 2];
        state.counters["p99_ms"] = milliseconds[(milliseconds.size() - 1) * 99 / 100];
    }

private:
    static long Faults() {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_minflt + usage.ru_majflt;
    }

    static double CpuMs() {
        timespec time{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return 1e3 * static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_nsec);
    }

    long m_nFaults;
    long long m_nHeapCalls;
    double m_dCpuMs;
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

// What a party has found in each of the different frames, and what it has made of them.
struct Findings {
    std::vector<Measurements> frames;
    double dPicture = 0;  // mean of the last picture
};

double MeanOfPicture(const std::vector<unsigned char>& jpeg) {
    const auto blocks = tn::MakeMemoryBlockPool();
    const auto surfaces = tn::MakeSurfacePool(blocks.get());
    const auto picture = tn::LoadImage(jpeg.data(), static_cast<unsigned int>(jpeg.size()), surfaces.get());
    const tn::LockedPixels pixels(picture);
    bench::Require(pixels && pixels.Width() == 2 * bench::kRegionWidth && pixels.Height() == bench::kRegionHeight,
                   "two regions have not been joined");
    return (bench::MeasureRows(pixels.Row(0), static_cast<std::size_t>(pixels.Pitch())).dMean +
            bench::MeasureRows(pixels.Row(0) + bench::kRegionRow, static_cast<std::size_t>(pixels.Pitch())).dMean) /
           2;
}

Findings WarmUp(bench::Party& party) {
    Findings findings;
    findings.frames.resize(Frames().size());
    for (std::size_t n = 0; n < Frames().size(); ++n) {
        party.Inspect(Frames()[n], n, findings.frames[n]);
    }
    findings.dPicture = MeanOfPicture(party.LastPicture());
    // Pools and caches grow until everything has been asked for once in every order.
    Measurements measured;
    for (std::size_t n = 0; n < kMoreWarmUp; ++n) {
        party.Inspect(Frames()[n % Frames().size()], n, measured);
    }
    return findings;
}

// Parties that use the same decoder find the same. @return the largest difference of a mean.
double Compare(const Findings& findings, const Findings& first) {
    double dLargest = 0;
    for (std::size_t nFrame = 0; nFrame < findings.frames.size(); ++nFrame) {
        for (std::size_t n = 0; n < bench::kRegions; ++n) {
            const bench::Measured& measured = findings.frames[nFrame][n];
            const bench::Measured& expected = first.frames[nFrame][n];
            dLargest = std::max(dLargest, std::abs(measured.dMean - expected.dMean));
            bench::Require(std::abs(measured.nMinimum - expected.nMinimum) <= kOtherExtreme &&
                               std::abs(measured.nMaximum - expected.nMaximum) <= kOtherExtreme,
                           "the parties find different pixels");
        }
    }
    bench::Require(dLargest <= kOtherDecoder && std::abs(findings.dPicture - first.dPicture) <= kOtherDecoder,
                   "the parties find different means");
    constexpr double kRounding = 1e-9;
    return dLargest < kRounding ? 0 : dLargest;
}

std::optional<Findings>& FirstFindings() {
    static std::optional<Findings> s_findings;
    return s_findings;
}

void OneByOne(benchmark::State& state, bench::MakeParty make, std::size_t nFrames) {
    long nBefore = -1;
    const bench::PeakMemory memory(nBefore);
    const auto party = make(bench::FilePath("results"));
    const Findings findings = WarmUp(*party);
    if (!FirstFindings()) {
        FirstFindings() = findings;
    }
    state.counters["differs_by"] = Compare(findings, *FirstFindings());
    std::vector<double> milliseconds(nFrames);
    Measurements measured;
    const Meter meter;
    for (auto _ : state) {
        for (std::size_t n = 0; n < nFrames; ++n) {
            const auto start = std::chrono::steady_clock::now();
            party->Inspect(Frames()[n % Frames().size()], n, measured);
            const std::chrono::duration<double, std::milli> passed = std::chrono::steady_clock::now() - start;
            milliseconds[n] = passed.count();
        }
    }
    meter.Report(state, milliseconds);
    state.counters["peak_MiB"] = memory.MiB();
}

using MakeWholeFrames = std::unique_ptr<bench::WholeFrames> (*)(const std::string&, unsigned int);

void SideBySide(benchmark::State& state, MakeWholeFrames make, unsigned int nWorkers, std::size_t nFrames) {
    long nBefore = -1;
    const bench::PeakMemory memory(nBefore);
    const auto party = make(bench::FilePath("results"), nWorkers);
    std::vector<double> milliseconds(nFrames);
    std::vector<double> ignored(kMoreWarmUp * nWorkers);
    party->Inspect(ignored.size(), ignored);
    const Meter meter;
    for (auto _ : state) {
        party->Inspect(nFrames, milliseconds);
    }
    meter.Report(state, milliseconds);
    state.counters["peak_MiB"] = memory.MiB();
}

// Each run is one job: the framework is not to ask for more.
template <typename Function>
void RegisterJob(const std::string& strName, Function function) {
    bench::Register(strName, 1, function)->Iterations(1)->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    bench::Program program(nArguments, ppszArguments, "pipeline", "A whole inspection job");
    const std::size_t nFrames = program.IsQuick() ? kQuickJob : kJob;
    Frames();  // made before anything is timed
    const auto oneByOne = [nFrames](const std::string& strParty, bench::MakeParty make) {
        RegisterJob("RegionsOfFrames/" + strParty,
                    [make, nFrames](benchmark::State& state) { OneByOne(state, make, nFrames); });
    };
    const auto sideBySide = [nFrames](const std::string& strParty, MakeWholeFrames make, unsigned int nWorkers) {
        RegisterJob("WholeFrames/" + strParty,
                    [make, nWorkers, nFrames](benchmark::State& state) { SideBySide(state, make, nWorkers, nFrames); });
    };
    oneByOne("ours", bench::MakeOurLoop);
    oneByOne("ours_queue", bench::MakeOurQueue);
    oneByOne("ours_alone", bench::MakeOursAlone);
#ifdef TNROBOT_BENCH_OPENCV
    program.AddPeer(std::string("OpenCV ") + CV_VERSION);
    oneByOne("opencv", bench::MakeOpenCv);
    oneByOne("opencv_kept", bench::MakeOpenCvKept);
#else
    program.AddAbsentPeer("OpenCV: its modules core and imgcodecs are not installed");
#endif
#ifdef TNROBOT_BENCH_TURBOJPEG
    oneByOne("floor", bench::MakeFloor);
#else
    program.AddAbsentPeer("TurboJPEG, and with it what is done by hand: it is not installed");
#endif
    sideBySide("ours", bench::MakeOurWholeFrames, bench::kWorkers);
    sideBySide("one_worker", bench::MakeOurWholeFrames, 1);
#ifdef TNROBOT_BENCH_TURBOJPEG
    sideBySide("floor", bench::MakeFloorWholeFrames, bench::kWorkers);
    sideBySide("floor_one_worker", bench::MakeFloorWholeFrames, 1);
#endif
    return program.Run();
}
