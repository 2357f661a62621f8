#include "Picture.h"

#include <cstdio>
#include <cstring>
#include <utility>

namespace {

bool Equal(ITnRobotSurface& a, ITnRobotSurface& b) {
    const tn::LockedPixels first(a);
    const tn::LockedPixels second(b);
    if (first.Width() != second.Width() || first.Height() != second.Height()) {
        return false;
    }
    const auto nRowBytes = static_cast<std::size_t>(first.RowBytes());
    for (int nRow = 0; nRow < first.Height(); ++nRow) {
        if (std::memcmp(first.Row(nRow), second.Row(nRow), nRowBytes) != 0) {
            return false;
        }
    }
    return true;
}

bool LoadsAs(const Pools& pools, ITnRobotMemoryBlock& block, const ITnRobotSurface::STnSurfaceDesc& desc) {
    const auto loaded = tn::LoadImage(&block, pools.Surfaces());
    if (!loaded) {
        return false;
    }
    ITnRobotSurface::STnSurfaceDesc loadedDesc{};
    loaded->GetSurfaceDesc(loadedDesc);
    return loadedDesc.nWidth == desc.nWidth && loadedDesc.nHeight == desc.nHeight;
}

bool FileHolds(const std::string& strPath, ITnRobotMemoryBlock& block) {
    unsigned int nSize = 0;
    const unsigned char* pData = block.QueryMemory(nSize);
    int nLength = 0;
    if (TnRobotUtils::ReadFile(strPath.c_str(), nullptr, &nLength) != 0 || nLength != static_cast<int>(nSize)) {
        return false;
    }
    std::vector<char> content(nSize);
    TnRobotUtils::ReadFile(strPath.c_str(), content.data(), &nLength);
    return std::memcmp(content.data(), pData, nSize) == 0;
}

}  // namespace

std::string RegionName(int nRow, int nColumn) {
    return "row" + std::to_string(nRow + 1) + "_column" + std::to_string(nColumn + 1);
}

// A picture that is cut is inspected as far as it goes, and the message says so.
TnRobotPtr<ITnRobotSurface> LoadPicture(const Pools& pools, const std::string& strPath) {
    std::error_code ec;
    auto picture = tn::LoadImage(strPath.c_str(), pools.Surfaces(), ec);
    if (ec) {
        std::fprintf(stderr, "%s: %s\n", strPath.c_str(), ec.message().c_str());
    }
    return picture;
}

// Widths are multiples of 4, so that rows of three bytes per pixel have no padding: the two kinds
// of files step differently over padded ones.
std::vector<Region> ClipGrid(const Pools& pools, ITnRobotSurface& picture) {
    ITnRobotSurface::STnSurfaceDesc desc{};
    picture.GetSurfaceDesc(desc);
    const int nWidth = desc.nWidth / kGridColumns / 4 * 4;
    const int nHeight = desc.nHeight / kGridRows;
    std::vector<Region> regions;
    for (int i = 0; i < kGridRows * kGridColumns; ++i) {
        const int nRow = i / kGridColumns;
        const int nColumn = i % kGridColumns;
        const STnNLROIRect place = {nColumn * nWidth, (nColumn + 1) * nWidth, nRow * nHeight, (nRow + 1) * nHeight};
        auto region = tn::ClipImage(pools.Surfaces(), &picture, place);
        if (!region) {
            std::fprintf(stderr, "cannot cut %d x %d pixels into regions\n", desc.nWidth, desc.nHeight);
            return {};
        }
        regions.push_back({RegionName(nRow, nColumn), std::move(region)});
    }
    return regions;
}

TnRobotPtr<ITnRobotSurface> Join(const Pools& pools, ITnRobotSurface& left, ITnRobotSurface& right) {
    return tn::PieceImage(pools.Surfaces(), &left, &right);
}

// Saving reports what cannot be encoded, but not what cannot be written: the file is looked at.
bool SaveJpeg(const Pools& pools, OutputDirectory& output, const std::string& strName, ITnRobotSurface& picture,
              std::string* pstrPath) {
    const std::string strPath = output.NewFile(strName, "jpg");
    if (pstrPath != nullptr) {
        *pstrPath = strPath;
    }
    const auto block = tn::SaveImage(&picture, pools.Blocks());
    if (!block || TnRobotImageUtils::SaveImage(strPath.c_str(), &picture) != 0) {
        std::fprintf(stderr, "cannot save %s\n", strPath.c_str());
        return false;
    }
    ITnRobotSurface::STnSurfaceDesc desc{};
    picture.GetSurfaceDesc(desc);
    const bool bSame = LoadsAs(pools, *block, desc) && FileHolds(strPath, *block);
    if (!bSame) {
        std::fprintf(stderr, "%s differs from what was saved\n", strPath.c_str());
    }
    return bSame;
}

bool SaveBmp(const Pools& pools, OutputDirectory& output, const std::string& strName, ITnRobotSurface& picture) {
    const std::string strPath = output.NewFile(strName, "bmp");
    if (TnRobotImageUtils::SaveImage(strPath.c_str(), &picture) != 0) {
        std::fprintf(stderr, "cannot save %s\n", strPath.c_str());
        return false;
    }
    const TnRobotPtr<ITnRobotSurface> loaded = LoadPicture(pools, strPath);
    const bool bSame = loaded && Equal(picture, *loaded);
    if (!bSame) {
        std::fprintf(stderr, "%s differs from what was saved\n", strPath.c_str());
    }
    return bSame;
}
