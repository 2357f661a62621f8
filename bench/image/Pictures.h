// Pictures, the pools that hold them, and the plain ways to code and to store them.

#ifndef TNROBOTKERNEL_BENCH_IMAGE_PICTURES_H_
#define TNROBOTKERNEL_BENCH_IMAGE_PICTURES_H_

#include <cstddef>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace bench {

using Bytes = std::vector<unsigned char>;

constexpr int kJpegQuality = 95;
constexpr std::size_t kBmpHeaders = 54;

/// @return B,G,R rows of a scene with shading, edges and noise: neither a flat area nor pure noise is
///         what cameras deliver.
Bytes Scene(int nWidth, int nHeight);

/// @return the pixels as the record that images are handed over in; borrows them.
STnNLImageData Record(const Bytes& pixels, int nWidth, int nHeight);

ITnRobotMemoryBlockPool* Blocks();
ITnRobotSurfacePool* Surfaces();

/// Codes B,G,R rows by direct calls of libjpeg. @return the bytes written to pOut.
/// @param[in] nSampling  of the first component: 1 keeps all colour, 2 halves it in both directions.
std::size_t EncodeDirectly(const unsigned char* pPixels, int nWidth, int nHeight, int nSampling, unsigned char* pOut,
                           std::size_t nRoom);

void DecodeDirectly(const Bytes& jpeg, unsigned char* pOut);

/// Writes a file as other programs do: rows from the bottom up, a colour table only where pixels are
/// indexes.
/// @param[in] nChannels  bytes per pixel; the rows must need no padding.
void WriteBmp(const std::string& path, const Bytes& pixels, int nWidth, int nHeight, unsigned int nChannels);

/// The file is read as it is, then its rows are copied in the other order.
/// @param[out] pFile  room for the file; pTarget  room for the rows.
void LoadBmpPlainly(const std::string& path, std::size_t nRow, std::size_t nRows, unsigned char* pFile,
                    unsigned char* pTarget);

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_IMAGE_PICTURES_H_
