#include "TestScene.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "Picture.h"

namespace {

constexpr int kPlaceSize = 320;  // pixels of a place, across and down
constexpr double kHalfPlace = kPlaceSize / 2.0;
constexpr int kWidth = kGridColumns * kPlaceSize;
constexpr int kHeight = kGridRows * kPlaceSize;
constexpr int kDefectiveRow = 1;
constexpr int kDefectiveColumn = 2;
constexpr double kDegree = 3.14159265358979 / 180;

struct Colour {
    int nBlue;
    int nGreen;
    int nRed;
};

constexpr Colour kBelt = {62, 66, 64};
constexpr Colour kSeam = {40, 43, 41};
constexpr Colour kBrass = {92, 178, 212};
constexpr Colour kSteel = {192, 184, 176};

// A point seen from the middle of a part, in pixels.
struct Offset {
    double dX;
    double dY;
};

bool IsInCircle(const Offset& point, const Offset& centre, double dRadius) {
    return std::hypot(point.dX - centre.dX, point.dY - centre.dY) <= dRadius;
}

// A washer and a nut of about the same area.
bool IsInRoundPart(const Offset& point) {
    return IsInCircle(point, {0, 0}, 100) && !IsInCircle(point, {0, 0}, 36);
}

bool IsInSquarePart(const Offset& point, double dAngle) {
    constexpr double kHalfSide = 88.5;
    const double dX = point.dX * std::cos(dAngle) + point.dY * std::sin(dAngle);
    const double dY = point.dY * std::cos(dAngle) - point.dX * std::sin(dAngle);
    return std::max(std::abs(dX), std::abs(dY)) <= kHalfSide && !IsInCircle(point, {0, 0}, 36);
}

// The defective part has lost a piece at its right side.
Colour PaintPlace(int nRow, int nColumn, const Offset& point) {
    const bool bRound = (nRow + nColumn) % 2 == 0;
    const double dAngle = (17.0 * nColumn + 29.0 * nRow) * kDegree;
    const bool bMissing = nRow == kDefectiveRow && nColumn == kDefectiveColumn && IsInCircle(point, {75, 20}, 85);
    if (bRound && !bMissing && IsInRoundPart(point)) {
        return kBrass;
    }
    if (!bRound && !bMissing && IsInSquarePart(point, dAngle)) {
        return kSteel;
    }
    return std::abs(point.dX) > kHalfPlace - 3 ? kSeam : kBelt;
}

// The light falls off from the middle of the picture by up to a tenth.
double Light(int nX, int nY) {
    const double dX = 2.0 * nX / kWidth - 1;
    const double dY = 2.0 * nY / kHeight - 1;
    return 1 - 0.05 * (dX * dX + dY * dY);
}

unsigned char Shade(int nColour, double dLight, int nNoise) {
    return static_cast<unsigned char>(std::clamp(static_cast<int>(nColour * dLight) + nNoise, 0, 255));
}

void PaintPixel(int nX, int nY, int nNoise, unsigned char* pPixel) {
    const Offset point = {nX % kPlaceSize - kHalfPlace + 0.5, nY % kPlaceSize - kHalfPlace + 0.5};
    const Colour colour = PaintPlace(nY / kPlaceSize, nX / kPlaceSize, point);
    const double dLight = Light(nX, nY);
    pPixel[0] = Shade(colour.nBlue, dLight, nNoise);
    pPixel[1] = Shade(colour.nGreen, dLight, nNoise);
    pPixel[2] = Shade(colour.nRed, dLight, nNoise);
}

}  // namespace

// The rows of this picture lie at a surface's pitch, because their length is a multiple of 4.
TnRobotPtr<ITnRobotSurface> DrawTestScene(const Pools& pools) {
    constexpr unsigned int kSeed = 20;
    constexpr unsigned int kNoise = 13;  // from -6 to 6
    std::mt19937 random(kSeed);
    std::vector<unsigned char> pixels(static_cast<std::size_t>(kWidth) * kHeight * kBytesPerPixel);
    for (int i = 0; i < kWidth * kHeight; ++i) {
        const int nNoise = static_cast<int>(random() % kNoise) - static_cast<int>(kNoise / 2);
        PaintPixel(i % kWidth, i / kWidth, nNoise, &pixels[static_cast<std::size_t>(i) * kBytesPerPixel]);
    }
    STnNLImageData image{};
    image.pData = pixels.data();
    image.nDataSize = static_cast<unsigned int>(pixels.size());
    image.nWidth = kWidth;
    image.nHeight = kHeight;
    image.eImageType = TN_IMAGE_BGR24;
    image.nBitsPerChannel = 8;
    image.nChannels = kBytesPerPixel;
    return tn::NlImage2Surface(image, pools.Surfaces());
}

std::string DefectiveRegion() {
    return RegionName(kDefectiveRow, kDefectiveColumn);
}
