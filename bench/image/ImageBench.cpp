// Pictures of 1920 x 1080 B,G,R pixels, and of growing sizes, beside direct libjpeg calls, TurboJPEG,
// OpenCV, plain file operations and plain copies.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "TempFiles.h"
#include "image/Pictures.h"
#include "image/ScalingCases.h"
#include "image/TnBmpDecoder.h"

#ifdef TNROBOT_BENCH_TURBOJPEG
#include <turbojpeg.h>
#endif
#ifdef TNROBOT_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#endif

namespace {

using bench::Blocks;
using bench::Bytes;
using bench::DecodeDirectly;
using bench::EncodeDirectly;
using bench::kBmpHeaders;
using bench::kJpegQuality;
using bench::Surfaces;
using bench::WriteBmp;
using Utils = TnRobotImageUtils;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr std::size_t kRow = 3 * kWidth;  // a multiple of 4: rows have no padding
constexpr std::size_t kPixels = kRow * kHeight;
constexpr int kClip = 512;
constexpr std::size_t kBmpTable = std::size_t{64} << 20;

// ---- what all cases work on

const Bytes& Pixels() {
    static const Bytes s_pixels = bench::Scene(kWidth, kHeight);
    return s_pixels;
}

// Memory that every peer writes to: touched before, as recycled pool memory is.
unsigned char* PeerMemory() {
    static Bytes s_memory(3 * kPixels, 1);
    return s_memory.data();
}

ITnRobotSurface* Picture() {
    static const auto s_surface = [] {
        ITnRobotSurface* pSurface = nullptr;
        bench::Require(Utils::NlImage2Surface(bench::Record(Pixels(), kWidth, kHeight), Surfaces(), &pSurface) == 0,
                       "no surface");
        return tn::Adopt(pSurface);
    }();
    return s_surface.get();
}

void Done(benchmark::State& state, std::size_t nBytes) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(nBytes));
}

const Bytes& Jpeg(int nSampling) {
    static const auto Make = [](int n) {
        Bytes jpeg(2 * kPixels);
        jpeg.resize(EncodeDirectly(Pixels().data(), kWidth, kHeight, n, jpeg.data(), jpeg.size()));
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
        benchmark::DoNotOptimize(EncodeDirectly(Pixels().data(), kWidth, kHeight, 1, PeerMemory(), 3 * kPixels));
        benchmark::ClobberMemory();
    }
    Done(state, kPixels);
}

#ifdef TNROBOT_BENCH_TURBOJPEG

void DecodeTurboTo(unsigned char* pTarget, const Bytes& jpeg) {
    const tjhandle handle = tjInitDecompress();
    bench::Require(tjDecompress2(handle, jpeg.data(), static_cast<unsigned long>(jpeg.size()), pTarget, kWidth,
                                 static_cast<int>(kRow), kHeight, TJPF_BGR, TJFLAG_ACCURATEDCT) == 0,
                   "TurboJPEG does not decode");
    tjDestroy(handle);
}

void DecodeTurbo(benchmark::State& state, int nSampling) {
    const Bytes& jpeg = Jpeg(nSampling);
    for (auto _ : state) {
        DecodeTurboTo(PeerMemory(), jpeg);
        benchmark::ClobberMemory();
    }
    Done(state, kPixels);
}

std::size_t EncodeTurboTo(unsigned char* pTarget) {
    const tjhandle handle = tjInitCompress();
    unsigned long nSize = 3 * kPixels;
    bench::Require(tjCompress2(handle, Pixels().data(), kWidth, static_cast<int>(kRow), kHeight, TJPF_BGR, &pTarget,
                               &nSize, TJSAMP_444, kJpegQuality, TJFLAG_ACCURATEDCT | TJFLAG_NOREALLOC) == 0,
                   "TurboJPEG does not encode");
    tjDestroy(handle);
    return nSize;
}

void EncodeTurbo(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(EncodeTurboTo(PeerMemory()));
        benchmark::ClobberMemory();
    }
    Done(state, kPixels);
}

#endif

#ifdef TNROBOT_BENCH_OPENCV

cv::Mat Frame() {
    return cv::Mat(kHeight, kWidth, CV_8UC3, const_cast<unsigned char*>(Pixels().data()), kRow);
}

// Into a matrix that is there already.
void DecodeOpenCv(benchmark::State& state, int nSampling) {
    const Bytes& jpeg = Jpeg(nSampling);
    cv::Mat frame;
    for (auto _ : state) {
        cv::imdecode(jpeg, cv::IMREAD_COLOR, &frame);
        bench::Require(frame.rows == kHeight, "OpenCV does not decode");
        benchmark::ClobberMemory();
    }
    Done(state, kPixels);
}

void LoadWithOpenCv(benchmark::State& state, const std::string& path, int nFlags) {
    for (auto _ : state) {
        const cv::Mat frame = cv::imread(path, nFlags);
        bench::Require(!frame.empty(), "OpenCV does not load");
        benchmark::DoNotOptimize(frame.data);
    }
    Done(state, kPixels);
}

#endif

// ---- BMP files

const std::string& PlainBmp() {
    static const std::string s_path = [] {
        const std::string path = bench::FilePath("plain.bmp");
        WriteBmp(path, Pixels(), kWidth, kHeight, 3);
        return path;
    }();
    return s_path;
}

// As many bytes as the colour picture: three of its grey levels side by side.
const std::string& GreyBmp() {
    static const std::string s_path = [] {
        const std::string path = bench::FilePath("grey.bmp");
        WriteBmp(path, Pixels(), 3 * kWidth, kHeight, 1);
        return path;
    }();
    return s_path;
}

// No operation of the library loads such a file: what is measured is its decoder, to the point where
// it knows the picture and has its bytes.
void OpenGreyOurs(benchmark::State& state) {
    const std::string& path = GreyBmp();
    for (auto _ : state) {
        CTnBmpDecoder decoder;
        int nWidth = 0;
        int nHeight = 0;
        bench::Require(decoder.Open(path.c_str()) && decoder.ReadHeader(nWidth, nHeight), "the BMP does not open");
        benchmark::DoNotOptimize(decoder);
    }
    Done(state, kPixels);
}

// And on to the caller's memory.
void ReadGreyOurs(benchmark::State& state) {
    const std::string& path = GreyBmp();
    for (auto _ : state) {
        CTnBmpDecoder decoder;
        bench::Require(decoder.Open(path.c_str()) && decoder.ReadData(TN_IMAGE_GRAY8, PeerMemory(), kPixels),
                       "the BMP does not load");
        benchmark::ClobberMemory();
    }
    Done(state, kPixels);
}

// The whole file at once, where it is to stay.
void ReadGreyPlain(benchmark::State& state) {
    const std::string& path = GreyBmp();
    for (auto _ : state) {
        std::FILE* pStream = std::fopen(path.c_str(), "rb");
        bench::Require(pStream != nullptr, "the file cannot be opened");
        const std::size_t nRead = std::fread(PeerMemory(), 1, 2 * kPixels, pStream);
        std::fclose(pStream);
        bench::Require(nRead > kPixels, "the file cannot be read");
        benchmark::ClobberMemory();
    }
    Done(state, kPixels);
}

void LoadBmpOurs(benchmark::State& state) {
    const std::string& path = PlainBmp();
    for (auto _ : state) {
        ITnRobotSurface* pSurface = nullptr;
        bench::Require(Utils::LoadImage(path.c_str(), Surfaces(), &pSurface) == 0, "the BMP does not load");
        benchmark::DoNotOptimize(pSurface);
        pSurface->Release();
    }
    Done(state, kPixels);
}

void LoadBmpPlain(benchmark::State& state) {
    const std::string& path = PlainBmp();
    for (auto _ : state) {
        bench::LoadBmpPlainly(path, kRow, kHeight, PeerMemory(), PeerMemory() + kPixels + 4096);
        benchmark::ClobberMemory();
    }
    Done(state, kPixels);
}

void SaveBmpOurs(benchmark::State& state) {
    const std::string path = bench::FilePath("ours.bmp");
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
    const std::string path = bench::FilePath("plain_write.bmp");
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

void CopyClip() {
    const std::size_t nClipRow = bench::Unknown(3 * kClip);
    const unsigned char* pFrom = Pixels().data() + kRow * kRegion.top + 3 * kRegion.left;
    unsigned char* pTo = PeerMemory();
    for (int y = 0; y < kClip; ++y) {
        std::memcpy(pTo, pFrom, nClipRow);
        pFrom += kRow;
        pTo += nClipRow;
    }
    benchmark::ClobberMemory();
}

void ClipMemcpy(benchmark::State& state) {
    for (auto _ : state) {
        CopyClip();
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

void CopyJoined() {
    const std::size_t nRow = bench::Unknown(kRow);
    const unsigned char* pFrom = Pixels().data();
    unsigned char* pTo = PeerMemory();
    for (int y = 0; y < kHeight; ++y) {
        std::memcpy(pTo, pFrom, nRow);
        std::memcpy(pTo + nRow, pFrom, nRow);
        pFrom += nRow;
        pTo += 2 * nRow;
    }
    benchmark::ClobberMemory();
}

void JoinMemcpy(benchmark::State& state) {
    for (auto _ : state) {
        CopyJoined();
    }
    Done(state, 2 * kPixels);
}

#ifdef TNROBOT_BENCH_OPENCV

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

// ---- every party must have done the same

Bytes PixelsOf(ITnRobotSurface* pSurface) {
    ITnRobotSurface::STnLockSurface lock{};
    bench::Require(pSurface != nullptr && pSurface->LockSurface(lock), "no surface");
    Bytes pixels(lock.pData,
                 lock.pData + static_cast<std::size_t>(lock.nPitch) * static_cast<std::size_t>(lock.nHeight));
    pSurface->UnLockSurface();
    pSurface->Release();
    return pixels;
}

Bytes PeerBytes(std::size_t nBytes) {
    return Bytes(PeerMemory(), PeerMemory() + nBytes);
}

void CheckJpeg() {
    ITnRobotMemoryBlock* pBlock = nullptr;
    bench::Require(Utils::SaveImage(Picture(), Blocks(), &pBlock) == 0, "the picture does not save");
    unsigned int nSize = 0;
    const unsigned char* pData = pBlock->QueryMemory(nSize);
    bench::Require(Bytes(pData, pData + nSize) == Jpeg(1), "the JPEG differs from libjpeg's");
    pBlock->Release();
    for (const int nSampling : {1, 2}) {
        const Bytes& jpeg = Jpeg(nSampling);
        ITnRobotSurface* pSurface = nullptr;
        Utils::LoadImage(jpeg.data(), static_cast<unsigned int>(jpeg.size()), Surfaces(), &pSurface);
        const Bytes ours = PixelsOf(pSurface);
        DecodeDirectly(jpeg, PeerMemory());
        bench::Require(PeerBytes(kPixels) == ours, "the pixels differ from libjpeg's");
#ifdef TNROBOT_BENCH_TURBOJPEG
        DecodeTurboTo(PeerMemory(), jpeg);
        bench::Require(PeerBytes(kPixels) == ours, "the pixels differ from TurboJPEG's");
#endif
#ifdef TNROBOT_BENCH_OPENCV
        const cv::Mat frame = cv::imdecode(jpeg, cv::IMREAD_COLOR);
        bench::Require(Bytes(frame.datastart, frame.dataend) == ours, "the pixels differ from OpenCV's");
#endif
    }
#ifdef TNROBOT_BENCH_TURBOJPEG
    bench::Require(PeerBytes(EncodeTurboTo(PeerMemory())) == Jpeg(1), "the JPEG differs from TurboJPEG's");
#endif
}

void CheckBmp() {
    ITnRobotSurface* pSurface = nullptr;
    Utils::LoadImage(PlainBmp().c_str(), Surfaces(), &pSurface);
    bench::Require(PixelsOf(pSurface) == Pixels(), "the pixels of the BMP differ");
    CTnBmpDecoder decoder;
    bench::Require(decoder.Open(GreyBmp().c_str()) && decoder.ReadData(TN_IMAGE_GRAY8, PeerMemory(), kPixels) &&
                       PeerBytes(kPixels) == Pixels(),
                   "the pixels of the grey BMP differ");
#ifdef TNROBOT_BENCH_OPENCV
    const cv::Mat frame = cv::imread(PlainBmp(), cv::IMREAD_COLOR);
    bench::Require(Bytes(frame.datastart, frame.dataend) == Pixels(), "OpenCV reads another picture");
    const cv::Mat grey = cv::imread(GreyBmp(), cv::IMREAD_GRAYSCALE);
    bench::Require(Bytes(grey.datastart, grey.dataend) == Pixels(), "OpenCV reads another grey picture");
#endif
}

void CheckCopies() {
    ITnRobotSurface* pSurface = nullptr;
    Utils::ClipImage(Surfaces(), Picture(), kRegion, &pSurface);
    const Bytes clip = PixelsOf(pSurface);
    CopyClip();
    bench::Require(PeerBytes(clip.size()) == clip && clip.size() == std::size_t{3} * kClip * kClip, "the clip differs");
    Utils::PieceImage(Surfaces(), Picture(), Picture(), &pSurface);
    const Bytes joined = PixelsOf(pSurface);
    CopyJoined();
    bench::Require(PeerBytes(2 * kPixels) == joined, "the joined picture differs");
}

void RegisterJpeg() {
    const struct {
        const char* m_lpszName;
        int m_nSampling;
    } samplings[] = {{"444", 1}, {"420", 2}};
    const auto decode = [](const std::string& strName, int nSampling, void (*run)(benchmark::State&, int)) {
        bench::Register("JpegDecode/" + strName, 1,
                        [run, nSampling](benchmark::State& state) { run(state, nSampling); });
    };
    for (const auto& sampling : samplings) {
        const std::string strEnd = std::string("/") + sampling.m_lpszName;
        decode("ours" + strEnd, sampling.m_nSampling, DecodeOurs);
        decode("libjpeg" + strEnd, sampling.m_nSampling, DecodeLibjpeg);
#ifdef TNROBOT_BENCH_TURBOJPEG
        decode("turbojpeg" + strEnd, sampling.m_nSampling, DecodeTurbo);
#endif
#ifdef TNROBOT_BENCH_OPENCV
        decode("opencv" + strEnd, sampling.m_nSampling, DecodeOpenCv);
#endif
    }
    bench::Register("JpegEncode/ours", 1, EncodeOurs);
    bench::Register("JpegEncode/libjpeg", 1, EncodeLibjpeg);
#ifdef TNROBOT_BENCH_TURBOJPEG
    bench::Register("JpegEncode/turbojpeg", 1, EncodeTurbo);
#endif
}

void RegisterBmpAndCopies() {
    bench::Register("BmpLoad24/ours", 1, LoadBmpOurs);
    bench::Register("BmpLoad24/limit_fread_flip", 1, LoadBmpPlain);
    bench::Register("BmpOpen8/ours", 1, OpenGreyOurs);
    bench::Register("BmpOpen8/limit_fread", 1, ReadGreyPlain);
    bench::Register("BmpRead8/ours", 1, ReadGreyOurs);
    bench::Register("BmpRead8/limit_fread", 1, ReadGreyPlain);
    bench::Register("BmpSave24/ours", 1, SaveBmpOurs);
    bench::Register("BmpSave24/limit_one_write", 1, SaveBmpPlain);
    bench::Register("Clip512/ours", 1, ClipOurs);
    bench::Register("Clip512/limit_memcpy_rows", 1, ClipMemcpy);
    bench::Register("JoinTwoFrames/ours", 1, JoinOurs);
    bench::Register("JoinTwoFrames/limit_memcpy_rows", 1, JoinMemcpy);
#ifdef TNROBOT_BENCH_OPENCV
    cv::setNumThreads(1);  // as the others
    const auto load = [](const std::string& strCase, const std::string& (*path)(), int nFlags) {
        bench::Register(strCase + "/opencv", 1,
                        [path, nFlags](benchmark::State& state) { LoadWithOpenCv(state, path(), nFlags); });
    };
    load("BmpLoad24", PlainBmp, cv::IMREAD_COLOR);
    load("BmpOpen8", GreyBmp, cv::IMREAD_GRAYSCALE);
    load("BmpRead8", GreyBmp, cv::IMREAD_GRAYSCALE);
    bench::Register("Clip512/opencv", 1, ClipOpenCv);
    bench::Register("JoinTwoFrames/opencv", 1, JoinOpenCv);
#endif
}

void TellPeers(bench::Program& program) {
#ifdef TNROBOT_BENCH_TURBOJPEG
    program.AddPeer("TurboJPEG " TNROBOT_BENCH_TURBOJPEG_VERSION);
#else
    program.AddAbsentPeer("TurboJPEG");
#endif
#ifdef TNROBOT_BENCH_OPENCV
    program.AddPeer("OpenCV " CV_VERSION);
#else
    program.AddAbsentPeer("OpenCV");
#endif
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    bench::Program program(nArguments, ppszArguments, "image", "Images");
    TellPeers(program);
    CheckJpeg();
    CheckBmp();
    CheckCopies();
    RegisterJpeg();
    RegisterBmpAndCopies();
    bench::RegisterScalingCases(program);
    return program.Run();
}
