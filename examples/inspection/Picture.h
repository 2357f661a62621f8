// Pictures: loaded, cut into regions, joined, saved and compared.

#ifndef INSPECTION_PICTURE_H_
#define INSPECTION_PICTURE_H_

#include <cstddef>
#include <string>
#include <vector>

#include "OutputDirectory.h"
#include "Pools.h"

/// A part of a picture, as a picture of its own.
struct Region {
    std::string strName;
    TnRobotPtr<ITnRobotSurface> surface;
};

constexpr int kBytesPerPixel = 3;  // every loaded picture is B,G,R
constexpr int kGridColumns = 4;
constexpr int kGridRows = 3;

/// @return name of the region in a place of the grid, both counted from 0.
std::string RegionName(int nRow, int nColumn);

/// Loads a JPEG or BMP file as B,G,R. @return empty, after a message, when it cannot be loaded.
TnRobotPtr<ITnRobotSurface> LoadPicture(const Pools& pools, const std::string& strPath);

/// Cuts a picture into kGridRows x kGridColumns regions of equal size, row by row; what does not
/// divide evenly stays out at the right and at the bottom.
/// @return none, after a message, when the picture is too small.
std::vector<Region> ClipGrid(const Pools& pools, ITnRobotSurface& picture);

/// Puts two pictures of equal size side by side. @return empty on failure.
TnRobotPtr<ITnRobotSurface> Join(const Pools& pools, ITnRobotSurface& left, ITnRobotSurface& right);

/// Saves a picture as a JPEG file and in a memory block.
/// @param[out] pstrPath  where the file is; may be null.
/// @return whether the block loads again and the file holds the same bytes.
bool SaveJpeg(const Pools& pools, OutputDirectory& output, const std::string& strName, ITnRobotSurface& picture,
              std::string* pstrPath = nullptr);

/// Saves a picture as a BMP file; its rows must be unpadded. The file's colour table is 64 MiB.
/// @return whether the file loads as exactly the same pixels.
bool SaveBmp(const Pools& pools, OutputDirectory& output, const std::string& strName, ITnRobotSurface& picture);

#endif  // INSPECTION_PICTURE_H_
