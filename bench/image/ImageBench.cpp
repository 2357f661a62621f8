// Pictures of 1920 x 1080 B,G,R pixels beside direct libjpeg calls, TurboJPEG, OpenCV, plain file
// operations and plain copies.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

// libjpeg's header needs the standard ones above.
#include <jpeglib.h>

#include "BenchSupport.h"

#ifdef TNROBOT_BENCH_TURBOJPEG
#include <turbojpeg.h>
#endif
#ifdef TNROBOT_BENCH_OPENCV
#include <opencv2/core.hpp>
#endif

namespace {

using Bytes = std::vector<unsigned char>;
using Utils = TnRobotImageUtils;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr std::size_t kRow = 3 * kWidth;  // a multiple of 4: rows have no padding
constexpr std::size_t kPixels = kRow * kHeight;
constexpr int kQuality = 95;
constexpr int kClip = 512;
constexpr std::size_t kBmpHeaders = 54;
constexpr std::size_t kBmpTable = std::size_t{64} << 20;

// ---- what all cases work on

// A scene with shading, edges and noise: neither a flat area nor pure noise is what cameras deliver.
Bytes Scene() {
    Bytes pixels(kPixels);
    unsigned int nRandom = 12345;
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            const double dShade = 110 + 60 * std::sin(0.004 * x) + 40 * std::cos(0.006 * y);
            const int nEdge = (x / 97 + y / 61) % 3 == 0 ? 40 : 0;
            for (int c = 0; c < 3; ++c) {
                nRandom = nRandom * 1664525U + 1013904223U;
                const int nNoise = static_cast<int>(nRandom >> 29);
                pixels[static_cast<std::size_t>(y) * kRow + static_cast<std::size_t>(3 * x + c)] =
                    static_cast<unsigned char>(static_cast<int>(dShade) + nEdge + nNoise - 5 * c);
            }
        }
    }
    return pixels;
}

const Bytes& Pixels() {
    static const Bytes s_pixels = Scene();
    return s_pixels;
}

// Memory that every peer writes to: touched before, as recycled pool memory is.
unsigned char* PeerMemory() {
    static Bytes s_memory(3 * kPixels, 1);
    return s_memory.data();
}

ITnRobotMemoryBlockPool* Blocks() {
    static const auto s_pool = bench::Make<ITnRobotMemoryBlockPool>(TnCreateRobotMemoryBlockPool);
    return s_pool.get();
}

ITnRobotSurfacePool* Surfaces() {
    static const auto s_pool = bench::Make<ITnRobotSurfacePool>(TnCreateRobotSurfacePool, Blocks());
    return s_pool.get();
}

STnNLImageData Record() {
    STnNLImageData image{};
    image.pData = const_cast<unsigned char*>(Pixels().data());
    image.nDataSize = kPixels;
    image.nWidth = kWidth;
    image.nHeight = kHeight;
    image.eImageType = TN_IMAGE_BGR24;
    image.nBitsPerChannel = 8;
    image.nChannels = 3;
    return image;
}

ITnRobotSurface* Picture() {
    static const auto s_surface = [] {
        ITnRobotSurface* pSurface = nullptr;
        bench::Require(Utils::NlImage2Surface(Record(), Surfaces(), &pSurface) == 0, "no surface");
        return bench::Counted<ITnRobotSurface>(pSurface);
    }();
    return s_surface.get();
}

// Files live in a directory of the program's own until it ends.
std::string FilePath(const char* lpszName) {
    static const struct Directory {
        Directory() {
            path = (std::filesystem::temp_directory_path() / "tnrobotbenchXXXXXX").string();
            bench::Require(mkdtemp(path.data()) != nullptr, "no temporary directory");
        }
        ~Directory() {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
        std::string path;
    } s_directory;
    return s_directory.path + "/" + lpszName;
}

void Done(benchmark::State& state, std::size_t nBytes) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(nBytes));
}

// ---- direct libjpeg calls

// Any error ends the program: the pictures are good.
[[noreturn]] void Fail(j_common_ptr pCommon) {
    pCommon->err->output_message(pCommon);
    std::abort();
}

// @param[in] nSampling  of the first component: 1 keeps all colour, 2 halves it in both directions.
std::size_t EncodeDirectly(const unsigned char* pPixels, int nSampling, unsigned char* pOut, std::size_t nRoom) {
    jpeg_compress_struct info;
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    errors.error_exit = Fail;
    jpeg_create_compress(&info);
    unsigned char* pBuffer = pOut;
    unsigned long nSize = static_cast<unsigned long>(nRoom);
    jpeg_mem_dest(&info, &pBuffer, &nSize);
    info.image_width = kWidth;
    info.image_height = kHeight;
    info.input_components = 3;
    info.in_color_space = JCS_EXT_BGR;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, kQuality, TRUE);
    info.comp_info[0].h_samp_factor = nSampling;
    info.comp_info[0].v_samp_factor = nSampling;
    jpeg_start_compress(&info, TRUE);
    for (int y = 0; y < kHeight; ++y) {
        JSAMPROW pRow = const_cast<JSAMPROW>(pPixels + static_cast<std::size_t>(y) * kRow);
        jpeg_write_scanlines(&info, &pRow, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    bench::Require(pBuffer == pOut, "the buffer is too small");
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
        JSAMPROW pRow = pOut + std::size_t{info.output_scanline} * kRow;
        jpeg_read_scanlines(&info, &pRow, 1);
    }
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
}

const Bytes& Jpeg(int nSampling) {
    static const auto Make = [](int n) {
        Bytes jpeg(2 * kPixels);
        jpeg.resize(EncodeDirectly(Pixels().data(), n, jpeg.data(), jpeg.size()));
        return jpeg;
    };
    static const Bytes s_full = Make(1);
    static const Bytes s_half = Make(2);
    return nSampling == 1 ? s_full : s_half;
}

// ---- decoding

void DecodeOurs(benchmark::State& state, int nSampling) {
    const Bytes& jpeg = Jpeg(nSampling);
    for (auto _ : state) {
        ITnRobotSurface* pSurface = nullptr;
        bench::Require(
            Utils::LoadImage(jpeg.data(), static_cast<unsigned int>(jpeg.size()), Surfaces(), &pSurface) == 0,
            "the JPEG does not load");
        benchmark::DoNotOptimize(pSurface);
        pSurface->Release();
    }
    Done(state, kPixels);
}

void DecodeLibjpeg(benchmark::State& state, int nSampling) {
    const Bytes& jpeg = Jpeg(nSampling);
    for (auto _ : state) {
        DecodeDirectly(jpeg, PeerMemory());
        benchmark::ClobberMemory();
    }
    Done(state, kPixels);
}

// ---- encoding

void EncodeOurs(benchmark::State& state) {
    for (auto _ : state) {
        ITnRobotMemoryBlock* pBlock = nullptr;
        bench::Require(Utils::SaveImage(Picture(), Blocks(), &pBlock) == 0, "the picture does not save");
        benchmark::DoNotOptimize(pBlock);
        pBlock->Release();
    }
    Done(state, kPixels);
}

void EncodeLibjpeg(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(EncodeDirectly(Pixels().data(), 1, PeerMemory(), 3 * kPixels));
        benchmark::ClobberMemory();
    }
    Done(state, kPixels);
}

#ifdef TNROBOT_BENCH_TURBOJPEG

void DecodeTurbo(benchmark::State& state, int nSampling) {
    const Bytes& jpeg = Jpeg(nSampling);
    for (auto _ : state) {
        const tjhandle handle = tjInitDecompress();
        bench::Require(tjDecompress2(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()), PeerMemory(), kWidth,
                                     static_cast<int>(kRow), kHeight, TJPF_BGR, TJFLAG_ACCURATEDCT) == 0,
                       "TurboJPEG does not decode");
        tjDestroy(handle);
        benchmark::ClobberMemory();
    }
    Done(state, kPixels);
}

void EncodeTurbo(benchmark::State& state) {
    for (auto _ : state) {
        const tjhandle handle = tjInitCompress();
        unsigned char* pOut = PeerMemory();
        unsigned long nSize = 3 * kPixels;
        bench::Require(tjCompress2(handle, Pixels().data(), kWidth, static_cast<int>(kRow), kHeight, TJPF_BGR, &pOut,
                                   &nSize, TJSAMP_444, kQuality, TJFLAG_ACCURATEDCT | TJFLAG_NOREALLOC) == 0,
                       "TurboJPEG does not encode");
        tjDestroy(handle);
        benchmark::ClobberMemory();
    }
    Done(state, kPixels);
}

#endif

// ---- BMP files

void PutLittle(Bytes& bytes, std::size_t nAt, unsigned int nValue) {
    for (std::size_t i = 0; i < 4; ++i) {
        bytes[nAt + i] = static_cast<unsigned char>(nValue >> (8 * i));
    }
}

// As other programs write it: no colour table.
std::string PlainBmp() {
    static const std::string s_path = [] {
        Bytes file(kBmpHeaders);
        file[0] = 'B';
        file[1] = 'M';
        PutLittle(file, 2, static_cast<unsigned int>(kBmpHeaders + kPixels));
        PutLittle(file, 10, kBmpHeaders);
        PutLittle(file, 14, 40);
        PutLittle(file, 18, kWidth);
        PutLittle(file, 22, kHeight);
        PutLittle(file, 26, 1U | 24U << 16);
        PutLittle(file, 34, static_cast<unsigned int>(kPixels));
        for (int y = kHeight - 1; y >= 0; --y) {
            const unsigned char* pRow = Pixels().data() + static_cast<std::size_t>(y) * kRow;
            file.insert(file.end(), pRow, pRow + kRow);
        }
        const std::string path = FilePath("plain.bmp");
        std::FILE* pFile = std::fopen(path.c_str(), "wb");
        bench::Require(pFile != nullptr && std::fwrite(file.data(), 1, file.size(), pFile) == file.size(),
                       "the file cannot be written");
        std::fclose(pFile);
        return path;
    }();
    return s_path;
}

void LoadBmpOurs(benchmark::State& state) {
    const std::string path = PlainBmp();
    for (auto _ : state) {
        ITnRobotSurface* pSurface = nullptr;
        bench::Require(Utils::LoadImage(path.c_str(), Surfaces(), &pSurface) == 0, "the BMP does not load");
        benchmark::DoNotOptimize(pSurface);
        pSurface->Release();
    }
    Done(state, kPixels);
}

// The whole file at once, then the rows in the other order.
void LoadBmpPlain(benchmark::State& state) {
    const std::string path = PlainBmp();
    unsigned char* pFile = PeerMemory();
    unsigned char* pTarget = PeerMemory() + kPixels + 4096;
    for (auto _ : state) {
        std::FILE* pStream = std::fopen(path.c_str(), "rb");
        bench::Require(pStream != nullptr, "the file cannot be opened");
        const std::size_t nRead = std::fread(pFile, 1, kBmpHeaders + kPixels, pStream);
        std::fclose(pStream);
        bench::Require(nRead == kBmpHeaders + kPixels, "the file cannot be read");
        for (std::size_t y = 0; y < kHeight; ++y) {
            std::memcpy(pTarget + y * kRow, pFile + kBmpHeaders + (kHeight - 1 - y) * kRow, kRow);
        }
        benchmark::ClobberMemory();
    }
    Done(state, kPixels);
}

void SaveBmpOurs(benchmark::State& state) {
    const std::string path = FilePath("ours.bmp");
    for (auto _ : state) {
        bench::Require(Utils::SaveImage(path.c_str(), Picture()) == 0, "the picture does not save");
    }
    struct stat status = {};
    bench::Require(stat(path.c_str(), &status) == 0 &&
                       static_cast<std::size_t>(status.st_size) == kBmpHeaders + kBmpTable + kPixels,
                   "the file is not what it should be");
    Done(state, kBmpHeaders + kBmpTable + kPixels);
    unlink(path.c_str());
}

// As many bytes, ready in memory, in one call.
void SaveBmpPlain(benchmark::State& state) {
    static const Bytes s_file(kBmpHeaders + kBmpTable + kPixels, 7);
    const std::string path = FilePath("plain_write.bmp");
    for (auto _ : state) {
        const int nFile = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        const ssize_t nWritten = write(nFile, s_file.data(), s_file.size());
        close(nFile);
        bench::Require(nWritten == static_cast<ssize_t>(s_file.size()), "the file cannot be written");
    }
    Done(state, s_file.size());
    unlink(path.c_str());
}

// ---- regions and joined pictures

constexpr STnNLROIRect kRegion = {701, 701 + kClip, 300, 300 + kClip};

void ClipOurs(benchmark::State& state) {
    for (auto _ : state) {
        ITnRobotSurface* pSurface = nullptr;
        Utils::ClipImage(Surfaces(), Picture(), kRegion, &pSurface);
        benchmark::DoNotOptimize(pSurface);
        pSurface->Release();
    }
    Done(state, std::size_t{3} * kClip * kClip);
}

void ClipMemcpy(benchmark::State& state) {
    constexpr std::size_t kClipRow = 3 * kClip;
    for (auto _ : state) {
        const unsigned char* pFrom = Pixels().data() + kRow * kRegion.top + 3 * kRegion.left;
        unsigned char* pTo = PeerMemory();
        for (int y = 0; y < kClip; ++y) {
            std::memcpy(pTo, pFrom, kClipRow);
            pFrom += kRow;
            pTo += kClipRow;
        }
        benchmark::ClobberMemory();
    }
    Done(state, std::size_t{3} * kClip * kClip);
}

void JoinOurs(benchmark::State& state) {
    for (auto _ : state) {
        ITnRobotSurface* pSurface = nullptr;
        bench::Require(Utils::PieceImage(Surfaces(), Picture(), Picture(), &pSurface) == 1, "nothing is joined");
        benchmark::DoNotOptimize(pSurface);
        pSurface->Release();
    }
    Done(state, 2 * kPixels);
}

void JoinMemcpy(benchmark::State& state) {
    for (auto _ : state) {
        const unsigned char* pFrom = Pixels().data();
        unsigned char* pTo = PeerMemory();
        for (int y = 0; y < kHeight; ++y) {
            std::memcpy(pTo, pFrom, kRow);
            std::memcpy(pTo + kRow, pFrom, kRow);
            pFrom += kRow;
            pTo += 2 * kRow;
        }
        benchmark::ClobberMemory();
    }
    Done(state, 2 * kPixels);
}

#ifdef TNROBOT_BENCH_OPENCV

cv::Mat Frame() {
    return cv::Mat(kHeight, kWidth, CV_8UC3, const_cast<unsigned char*>(Pixels().data()), kRow);
}

void ClipOpenCv(benchmark::State& state) {
    const cv::Mat frame = Frame();
    cv::Mat clip;
    for (auto _ : state) {
        frame(cv::Rect(kRegion.left, kRegion.top, kClip, kClip)).copyTo(clip);
        benchmark::ClobberMemory();
    }
    Done(state, std::size_t{3} * kClip * kClip);
}

void JoinOpenCv(benchmark::State& state) {
    const cv::Mat frame = Frame();
    cv::Mat joined;
    for (auto _ : state) {
        cv::hconcat(frame, frame, joined);
        benchmark::ClobberMemory();
    }
    Done(state, 2 * kPixels);
}

#endif

void RegisterJpeg() {
    const struct {
        const char* m_lpszName;
        int m_nSampling;
    } samplings[] = {{"444", 1}, {"420", 2}};
    for (const auto& sampling : samplings) {
        const int n = sampling.m_nSampling;
        const std::string strEnd = std::string("/") + sampling.m_lpszName;
        bench::Register("JpegDecode/ours" + strEnd, 1, [n](benchmark::State& state) { DecodeOurs(state, n); });
        bench::Register("JpegDecode/libjpeg" + strEnd, 1, [n](benchmark::State& state) { DecodeLibjpeg(state, n); });
#ifdef TNROBOT_BENCH_TURBOJPEG
        bench::Register("JpegDecode/turbojpeg" + strEnd, 1, [n](benchmark::State& state) { DecodeTurbo(state, n); });
#endif
    }
    bench::Register("JpegEncode/ours", 1, EncodeOurs);
    bench::Register("JpegEncode/libjpeg", 1, EncodeLibjpeg);
#ifdef TNROBOT_BENCH_TURBOJPEG
    bench::Register("JpegEncode/turbojpeg", 1, EncodeTurbo);
#endif
}

void RegisterBmpAndCopies() {
    bench::Register("BmpLoad/ours", 1, LoadBmpOurs);
    bench::Register("BmpLoad/fread_flip", 1, LoadBmpPlain);
    bench::Register("BmpSave24/ours", 1, SaveBmpOurs);
    bench::Register("BmpSave24/one_write", 1, SaveBmpPlain);
    bench::Register("Clip512/ours", 1, ClipOurs);
    bench::Register("Clip512/memcpy_rows", 1, ClipMemcpy);
    bench::Register("JoinTwoFrames/ours", 1, JoinOurs);
    bench::Register("JoinTwoFrames/memcpy_rows", 1, JoinMemcpy);
#ifdef TNROBOT_BENCH_OPENCV
    cv::setNumThreads(1);  // as the others
    bench::Register("Clip512/opencv", 1, ClipOpenCv);
    bench::Register("JoinTwoFrames/opencv", 1, JoinOpenCv);
#endif
}

std::string AbsentPeers() {
    std::string strAbsent;
#ifndef TNROBOT_BENCH_TURBOJPEG
    strAbsent += "TurboJPEG";
#endif
#ifndef TNROBOT_BENCH_OPENCV
    strAbsent += strAbsent.empty() ? "OpenCV" : ", OpenCV";
#endif
    return strAbsent;
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    RegisterJpeg();
    RegisterBmpAndCopies();
    if (!AbsentPeers().empty()) {
        benchmark::AddCustomContext("peers_not_installed", AbsentPeers());
    }
    return bench::Run(nArguments, ppszArguments, "Images");
}
