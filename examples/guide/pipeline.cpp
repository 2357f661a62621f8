// An inspection: pictures are loaded, cut into regions and measured side by side, each picture within a limit;
// a group of results for each goes into one file.

#include <TnRobotKernel/tn/tn.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

using namespace std::chrono_literals;

namespace {

constexpr int kColumns = 4;
constexpr int kRegions = 12;
constexpr int kRegionSize = 160;

// Stands for the camera: a grey picture with a dark part in one region.
bool TakePicture(const std::string& strPath, ITnRobotSurfacePool& pool, int nDarkRegion) {
    const int nRows = kRegions / kColumns;
    const auto surface =
        tn::QuerySurface(pool, {kColumns * kRegionSize, nRows * kRegionSize, 0, TN_IMAGE_BGR24, {0, 0}});
    if (!surface) {
        return false;
    }
    const std::ptrdiff_t nLeft = std::ptrdiff_t{nDarkRegion % kColumns} * kRegionSize * 3;
    const int nTop = nDarkRegion / kColumns * kRegionSize;
    const tn::LockedPixels pixels(surface);
    for (int nY = 0; nY < pixels.Height(); ++nY) {
        std::memset(pixels.Row(nY), 200, static_cast<std::size_t>(pixels.RowBytes()));
        if (nY >= nTop && nY < nTop + kRegionSize) {
            std::memset(pixels.Row(nY) + nLeft, 40, std::size_t{kRegionSize} * 3);
        }
    }
    return tn::SaveImage(strPath.c_str(), surface.get());
}

// [measure]
struct Result {
    bool bDone = false;  // false: the time was over before, or the region could not be cut out
    double dMean = 0;
};

// Asks now and then whether there is time left. What it has by then is not the region's mean.
Result Measure(ITnRobotSurface& region, const tn::CancelToken& token) {
    const tn::LockedPixels pixels(region);
    long long nSum = 0;
    for (int nY = 0; nY < pixels.Height(); ++nY) {
        if (token.IsCancelled()) {
            return {};
        }
        nSum += std::accumulate(pixels.Row(nY), pixels.Row(nY) + pixels.RowBytes(), 0LL);
    }
    return {true, static_cast<double>(nSum) / static_cast<double>(pixels.Height() * pixels.RowBytes())};
}
// [/measure]

// [regions]
// @return false when the time was over before all regions were measured: results tells which are.
bool MeasureRegions(ITnRobotTaskPool& tasks, ITnRobotSurfacePool& pool, ITnRobotSurface& picture,
                    std::chrono::milliseconds limit, std::vector<Result>& results) {
    const auto measure = [&](std::size_t nRegion, const tn::CancelToken& token) {
        const int nLeft = static_cast<int>(nRegion) % kColumns * kRegionSize;
        const int nTop = static_cast<int>(nRegion) / kColumns * kRegionSize;
        const auto region = tn::ClipImage(&pool, &picture, {nLeft, nLeft + kRegionSize, nTop, nTop + kRegionSize});
        if (region) {
            results[nRegion] = Measure(*region, token);  // each pass has a place of its own: no lock
        }
    };
    results.assign(kRegions, {});
    return tn::ForEach(tasks, results.size(), measure, {4, limit});  // 4 threads at most, this one included
}
// [/regions]

// [results]
// One group for a picture. Groups in a file have no names of their own: a value tells which one it is.
bool WriteResults(tn::GroupFileWriter& writer, const std::string& strPicture, const std::vector<Result>& results,
                  std::error_code& ec) {
    const auto group = tn::MakeValueDataGroup();
    tn::Set(*group, "picture", strPicture);
    for (std::size_t n = 0; n < results.size(); ++n) {
        if (results[n].bDone) {
            tn::Set(*group, ("region " + std::to_string(n)).c_str(), results[n].dMean);
        }
    }
    return writer.Write(*group, ec);
}
// [/results]

bool PrintResults(const char* lpszPath, std::error_code& ec) {
    tn::GroupFileReader reader(lpszPath);
    while (const auto group = reader.ReadGroup(ec)) {
        const auto items = tn::Items(*group);
        int nDark = 0;
        for (const auto& [strName, value] : items) {
            nDark += tn::Get<double>(*value).value_or(255) < 100 ? 1 : 0;
        }
        std::printf("%s: %zu regions, %d of them dark\n", tn::Get<std::string>(*group, "picture").value_or("?").c_str(),
                    items.size() - 1, nDark);
    }
    return ec == tn::errc::end_of_file;
}

// [run]
bool Inspect(const std::vector<std::string>& pictures, std::error_code& ec) {
    const auto blocks = tn::MakeMemoryBlockPool();
    const auto pool = tn::MakeSurfacePool(blocks.get());
    const auto tasks = tn::MakeTaskPool();
    tn::GroupFileWriter writer("inspected.tnr");
    std::vector<Result> results;
    for (const std::string& strPicture : pictures) {
        const auto picture = tn::LoadImage(strPicture.c_str(), pool.get(), ec);
        if (!picture || ec) {  // a picture that is cut comes, and with it a reason
            std::printf("%s: %s\n", strPicture.c_str(), ec.message().c_str());
            continue;
        }
        if (!MeasureRegions(*tasks, *pool, *picture, 10s, results)) {
            std::printf("%s: out of time\n", strPicture.c_str());
        }
        if (!WriteResults(writer, strPicture, results, ec)) {
            return false;
        }
    }
    return writer.Save(ec);  // only now is there a new file
}
// [/run]

// A limit that has passed at once: no region is begun, and the results say so.
bool ShowNoTime(const char* lpszPicture) {
    const auto blocks = tn::MakeMemoryBlockPool();
    const auto pool = tn::MakeSurfacePool(blocks.get());
    const auto tasks = tn::MakeTaskPool();
    const auto picture = tn::LoadImage(lpszPicture, pool.get());
    std::vector<Result> results;
    if (!picture || MeasureRegions(*tasks, *pool, *picture, 0ms, results)) {
        return false;
    }
    const auto nDone = std::count_if(results.begin(), results.end(), [](const Result& result) { return result.bDone; });
    std::printf("without time: %td regions\n", nDone);
    return nDone == 0;
}

}  // namespace

int main() {
    const std::vector<std::string> pictures = {"part0.jpg", "part1.jpg", "missing.jpg", "part2.jpg"};
    const auto blocks = tn::MakeMemoryBlockPool();
    const auto pool = tn::MakeSurfacePool(blocks.get());
    std::error_code ec;
    const bool bOk = TakePicture(pictures[0], *pool, 0) && TakePicture(pictures[1], *pool, 5) &&
                     TakePicture(pictures[3], *pool, 11) && Inspect(pictures, ec) && PrintResults("inspected.tnr", ec);
    if (!bOk) {
        std::fprintf(stderr, "inspected.tnr: %s\n", ec.message().c_str());
        return 1;
    }
    return ShowNoTime("part0.jpg") ? 0 : 1;
}
