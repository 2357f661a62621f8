#include "Inspection.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "Brightness.h"
#include "Measurement.h"
#include "Picture.h"
#include "TestScene.h"

namespace {

void PrintSizes(const std::string& strPicture, ITnRobotSurface& picture, const std::vector<Region>& regions) {
    ITnRobotSurface::STnSurfaceDesc whole{};
    ITnRobotSurface::STnSurfaceDesc region{};
    picture.GetSurfaceDesc(whole);
    regions.front().surface->GetSurfaceDesc(region);
    std::printf("\n%s: %d x %d pixels, %zu regions of %d x %d\n", strPicture.c_str(), whole.nWidth, whole.nHeight,
                regions.size(), region.nWidth, region.nHeight);
}

// Archives the measurements, reads them back and prints them.
bool KeepMeasurements(OutputDirectory& output, const std::string& strName, const std::vector<Measurement>& measured) {
    const std::string strPath = output.NewFile(strName + "_measurements", "tnr");
    if (!SaveMeasurements(strPath, measured)) {
        std::fprintf(stderr, "cannot save %s\n", strPath.c_str());
        return false;
    }
    const std::vector<Measurement> loaded = LoadMeasurements(strPath, measured.size());
    return PrintMeasurements(loaded, measured);
}

bool SaveRegions(const Pools& pools, OutputDirectory& output, const std::string& strName,
                 const std::vector<Region>& regions) {
    return std::all_of(regions.begin(), regions.end(), [&](const Region& region) {
        return SaveJpeg(pools, output, strName + "_" + region.strName, *region.surface);
    });
}

bool SaveJoined(const Pools& pools, OutputDirectory& output, const std::string& strName, const Region& left,
                const Region& right) {
    const TnRobotPtr<ITnRobotSurface> joined = Join(pools, *left.surface, *right.surface);
    if (!joined) {
        std::fprintf(stderr, "cannot join %s and %s\n", left.strName.c_str(), right.strName.c_str());
        return false;
    }
    const std::string strJoined = strName + "_joined";
    std::printf("joined side by side: the darkest, %s, and the brightest, %s\n", left.strName.c_str(),
                right.strName.c_str());
    return SaveJpeg(pools, output, strJoined, *joined) && SaveBmp(pools, output, strJoined, *joined);
}

bool IsDarker(const Measurement& a, const Measurement& b) {
    return a.dMean < b.dMean;
}

}  // namespace

bool InspectPicture(const Pools& pools, OutputDirectory& output, const std::string& strPicture,
                    const std::string& strName, std::string& strDarkest) {
    const TnRobotPtr<ITnRobotSurface> picture = LoadPicture(pools, strPicture);
    if (!picture) {
        return false;
    }
    const std::vector<Region> regions = ClipGrid(pools, *picture);
    std::vector<Measurement> measured;
    if (regions.empty() || !MeasureRegions(pools, regions, measured)) {
        return false;
    }
    PrintSizes(strPicture, *picture, regions);
    if (!KeepMeasurements(output, strName, measured)) {
        return false;
    }
    const auto [darkest, brightest] = std::minmax_element(measured.begin(), measured.end(), IsDarker);
    const Region& left = regions[static_cast<std::size_t>(darkest - measured.begin())];
    const Region& right = regions[static_cast<std::size_t>(brightest - measured.begin())];
    strDarkest = left.strName;
    return SaveRegions(pools, output, strName, regions) && SaveJoined(pools, output, strName, left, right);
}

// As a BMP file the scene is exactly what was drawn, as a JPEG file it is about the same.
bool InspectTestScene(const Pools& pools, OutputDirectory& output) {
    const TnRobotPtr<ITnRobotSurface> scene = DrawTestScene(pools);
    std::string strJpeg;
    if (!scene || !SaveBmp(pools, output, "scene", *scene) || !SaveJpeg(pools, output, "scene", *scene, &strJpeg)) {
        std::fprintf(stderr, "cannot draw the test scene\n");
        return false;
    }
    std::string strDarkest;
    if (!InspectPicture(pools, output, strJpeg, "scene", strDarkest)) {
        return false;
    }
    const bool bFound = strDarkest == DefectiveRegion();
    std::printf("the darkest region holds the defective part: %s\n", bFound ? "yes" : "NO");
    return bFound;
}
