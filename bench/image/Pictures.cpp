#include "image/Pictures.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

// libjpeg's header needs the standard ones above.
#include <jpeglib.h>

namespace bench {

namespace {

// Any error ends the program: the pictures are good.
[[noreturn]] void Fail(j_common_ptr pCommon) {
    pCommon->err->output_message(pCommon);
    std::abort();
}

void PutLittle(Bytes& bytes, std::size_t nAt, unsigned int nValue) {
    for (std::size_t i = 0; i < 4; ++i) {
        bytes[nAt + i] = static_cast<unsigned char>(nValue >> (8 * i));
    }
}

}  // namespace

Bytes Scene(int nWidth, int nHeight) {
    const std::size_t nRow = std::size_t{3} * static_cast<std::size_t>(nWidth);
    Bytes pixels(nRow * static_cast<std::size_t>(nHeight));
    std::vector<double> across(static_cast<std::size_t>(nWidth));
    for (int x = 0; x < nWidth; ++x) {
        across[static_cast<std::size_t>(x)] = 60 * std::sin(0.004 * x);
    }
    unsigned int nRandom = 12345;
    for (int y = 0; y < nHeight; ++y) {
        const double dDown = 110 + 40 * std::cos(0.006 * y);
        for (int x = 0; x < nWidth; ++x) {
            const double dShade = dDown + across[static_cast<std::size_t>(x)];
            const int nEdge = (x / 97 + y / 61) % 3 == 0 ? 40 : 0;
            for (int c = 0; c < 3; ++c) {
                nRandom = nRandom * 1664525U + 1013904223U;
                const int nNoise = static_cast<int>(nRandom >> 29);
                pixels[static_cast<std::size_t>(y) * nRow + static_cast<std::size_t>(3 * x + c)] =
                    static_cast<unsigned char>(static_cast<int>(dShade) + nEdge + nNoise - 5 * c);
            }
        }
    }
    return pixels;
}

STnNLImageData Record(const Bytes& pixels, int nWidth, int nHeight) {
    STnNLImageData image{};
    image.pData = const_cast<unsigned char*>(pixels.data());
    image.nDataSize = static_cast<unsigned int>(pixels.size());
    image.nWidth = nWidth;
    image.nHeight = nHeight;
    image.eImageType = TN_IMAGE_BGR24;
    image.nBitsPerChannel = 8;
    image.nChannels = 3;
    return image;
}

ITnRobotMemoryBlockPool* Blocks() {
    static const auto s_pool = Make<ITnRobotMemoryBlockPool>(TnCreateRobotMemoryBlockPool);
    return s_pool.get();
}

ITnRobotSurfacePool* Surfaces() {
    static const auto s_pool = Make<ITnRobotSurfacePool>(TnCreateRobotSurfacePool, Blocks());
    return s_pool.get();
}

std::size_t EncodeDirectly(const unsigned char* pPixels, int nWidth, int nHeight, int nSampling, unsigned char* pOut,
                           std::size_t nRoom) {
    jpeg_compress_struct info;
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    errors.error_exit = Fail;
    jpeg_create_compress(&info);
    unsigned char* pBuffer = pOut;
    unsigned long nSize = static_cast<unsigned long>(nRoom);
    jpeg_mem_dest(&info, &pBuffer, &nSize);
    info.image_width = static_cast<JDIMENSION>(nWidth);
    info.image_height = static_cast<JDIMENSION>(nHeight);
    info.input_components = 3;
    info.in_color_space = JCS_EXT_BGR;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, kJpegQuality, TRUE);
    info.comp_info[0].h_samp_factor = nSampling;
    info.comp_info[0].v_samp_factor = nSampling;
    jpeg_start_compress(&info, TRUE);
    for (std::size_t y = 0; y < info.image_height; ++y) {
        JSAMPROW pRow = const_cast<JSAMPROW>(pPixels + y * 3 * info.image_width);
        jpeg_write_scanlines(&info, &pRow, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    Require(pBuffer == pOut, "the buffer is too small");
    return nSize;
}

void DecodeDirectly(const Bytes& jpeg, unsigned char* pOut) {
    jpeg_decompress_struct info;
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    errors.error_exit = Fail;
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, jpeg.data(), static_cast<unsigned long>(jpeg.size()));
    jpeg_read_header(&info, TRUE);
    info.out_color_space = JCS_EXT_BGR;
    jpeg_start_decompress(&info);
    while (info.output_scanline < info.output_height) {
        JSAMPROW pRow = pOut + std::size_t{info.output_scanline} * 3 * info.output_width;
        jpeg_read_scanlines(&info, &pRow, 1);
    }
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
}

void WriteBmp(const std::string& path, const Bytes& pixels, int nWidth, int nHeight, unsigned int nChannels) {
    const std::size_t nRow = std::size_t{nChannels} * static_cast<std::size_t>(nWidth);
    const std::size_t nTable = nChannels == 1 ? 1024 : 0;
    Bytes head(kBmpHeaders + nTable);
    head[0] = 'B';
    head[1] = 'M';
    PutLittle(head, 2, static_cast<unsigned int>(head.size() + pixels.size()));
    PutLittle(head, 10, static_cast<unsigned int>(head.size()));
    PutLittle(head, 14, 40);
    PutLittle(head, 18, static_cast<unsigned int>(nWidth));
    PutLittle(head, 22, static_cast<unsigned int>(nHeight));
    PutLittle(head, 26, 1U | (8U * nChannels) << 16U);
    PutLittle(head, 34, static_cast<unsigned int>(pixels.size()));
    PutLittle(head, 46, nChannels == 1 ? 256 : 0);
    for (unsigned int n = 0; n < nTable / 4; ++n) {
        PutLittle(head, kBmpHeaders + std::size_t{4} * n, n * 0x010101U);
    }
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(head.data()), static_cast<std::streamsize>(head.size()));
    for (std::size_t y = static_cast<std::size_t>(nHeight); y-- > 0;) {
        file.write(reinterpret_cast<const char*>(pixels.data() + y * nRow), static_cast<std::streamsize>(nRow));
    }
    Require(file.good(), "the file cannot be written");
}

void LoadBmpPlainly(const std::string& path, std::size_t nRow, std::size_t nRows, unsigned char* pFile,
                    unsigned char* pTarget) {
    std::FILE* pStream = std::fopen(path.c_str(), "rb");
    Require(pStream != nullptr, "the file cannot be opened");
    const std::size_t nRead = std::fread(pFile, 1, kBmpHeaders + nRow * nRows, pStream);
    std::fclose(pStream);
    Require(nRead == kBmpHeaders + nRow * nRows, "the file cannot be read");
    for (std::size_t y = 0; y < nRows; ++y) {
        std::memcpy(pTarget + y * nRow, pFile + kBmpHeaders + (nRows - 1 - y) * nRow, nRow);
    }
}

}  // namespace bench
