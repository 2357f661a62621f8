#include "image/ScalingCases.h"

#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "TempFiles.h"
#include "image/Pictures.h"

namespace {

using bench::Bytes;
using Utils = TnRobotImageUtils;

// A square picture and what each case needs of it. The pools are the case's own, so that the largest
// picture does not stay in memory for the rest of the program.
class Square {
public:
    explicit Square(int nSide) : m_nSide(nSide), m_pixels(bench::Scene(nSide, nSide)) {}

    int Side() const { return m_nSide; }
    std::size_t Row() const { return std::size_t{3} * static_cast<std::size_t>(m_nSide); }
    const Bytes& Pixels() const { return m_pixels; }
    ITnRobotMemoryBlockPool* Blocks() const { return m_blocks.get(); }
    ITnRobotSurfacePool* Surfaces() const { return m_surfaces.get(); }

    Bytes Jpeg() const {
        Bytes jpeg(m_pixels.size() + 4096);
        jpeg.resize(bench::EncodeDirectly(m_pixels.data(), m_nSide, m_nSide, 1, jpeg.data(), jpeg.size()));
        return jpeg;
    }
    TnRobotPtr<ITnRobotSurface> Surface() const {
        ITnRobotSurface* pSurface = nullptr;
        bench::Require(Utils::NlImage2Surface(bench::Record(m_pixels, m_nSide, m_nSide), Surfaces(), &pSurface) == 0,
                       "no surface");
        return tn::Adopt(pSurface);
    }

private:
    int m_nSide;
    Bytes m_pixels;
    TnRobotPtr<ITnRobotMemoryBlockPool> m_blocks = bench::Make<ITnRobotMemoryBlockPool>(TnCreateRobotMemoryBlockPool);
    TnRobotPtr<ITnRobotSurfacePool> m_surfaces =
        bench::Make<ITnRobotSurfacePool>(TnCreateRobotSurfacePool, m_blocks.get());
};

/// Runs the operation once outside the timer, so that pools are filled, then in the benchmark's loop.
template <typename Operation>
void Repeat(benchmark::State& state, Operation operation) {
    operation();
    for (auto _ : state) {
        operation();
        benchmark::ClobberMemory();
    }
}

void DecodeOurs(benchmark::State& state, const Square& square) {
    const Bytes jpeg = square.Jpeg();
    Repeat(state, [&] {
        ITnRobotSurface* pSurface = nullptr;
        const auto nLength = static_cast<unsigned int>(jpeg.size());
        bench::Require(Utils::LoadImage(jpeg.data(), nLength, square.Surfaces(), &pSurface) == 0, "no picture");
        pSurface->Release();
    });
}

void DecodeLibjpeg(benchmark::State& state, const Square& square) {
    const Bytes jpeg = square.Jpeg();
    Bytes target(square.Pixels().size());
    Repeat(state, [&] { bench::DecodeDirectly(jpeg, target.data()); });
}

void EncodeOurs(benchmark::State& state, const Square& square) {
    const auto surface = square.Surface();
    Repeat(state, [&] {
        ITnRobotMemoryBlock* pBlock = nullptr;
        bench::Require(Utils::SaveImage(surface.get(), square.Blocks(), &pBlock) == 0, "the picture does not save");
        pBlock->Release();
    });
}

void EncodeLibjpeg(benchmark::State& state, const Square& square) {
    Bytes target(square.Pixels().size() + 4096);
    Repeat(state, [&] {
        benchmark::DoNotOptimize(bench::EncodeDirectly(square.Pixels().data(), square.Side(), square.Side(), 1,
                                                       target.data(), target.size()));
    });
}

std::string BmpOf(const Square& square) {
    std::string path = bench::FilePath("scaling.bmp");
    bench::WriteBmp(path, square.Pixels(), square.Side(), square.Side(), 3);
    return path;
}

void LoadBmpOurs(benchmark::State& state, const Square& square) {
    const std::string path = BmpOf(square);
    Repeat(state, [&] {
        ITnRobotSurface* pSurface = nullptr;
        bench::Require(Utils::LoadImage(path.c_str(), square.Surfaces(), &pSurface) == 0, "the BMP does not load");
        pSurface->Release();
    });
    unlink(path.c_str());
}

void LoadBmpPlain(benchmark::State& state, const Square& square) {
    const std::string path = BmpOf(square);
    Bytes file(square.Pixels().size() + bench::kBmpHeaders);
    Bytes target(square.Pixels().size());
    Repeat(state, [&] {
        bench::LoadBmpPlainly(path, square.Row(), static_cast<std::size_t>(square.Side()), file.data(), target.data());
    });
    unlink(path.c_str());
}

// The middle quarter.
void ClipOurs(benchmark::State& state, const Square& square) {
    const auto surface = square.Surface();
    const int nQuarter = square.Side() / 4;
    const STnNLROIRect region = {nQuarter, 3 * nQuarter, nQuarter, 3 * nQuarter};
    Repeat(state, [&] {
        ITnRobotSurface* pSurface = nullptr;
        Utils::ClipImage(square.Surfaces(), surface.get(), region, &pSurface);
        bench::Require(pSurface != nullptr, "nothing is clipped");
        pSurface->Release();
    });
}

void ClipMemcpy(benchmark::State& state, const Square& square) {
    const std::size_t nQuarter = static_cast<std::size_t>(square.Side()) / 4;
    const std::size_t nClipRow = 3 * 2 * nQuarter;
    Bytes target(nClipRow * 2 * nQuarter);
    Repeat(state, [&] {
        for (std::size_t y = 0; y < 2 * nQuarter; ++y) {
            std::memcpy(target.data() + y * nClipRow,
                        square.Pixels().data() + (nQuarter + y) * square.Row() + 3 * nQuarter, nClipRow);
        }
    });
}

using Case = void (*)(benchmark::State&, const Square&);

// One element is one pixel of the picture.
void RegisterCase(const bench::Program& program, const std::string& strCase, const std::string& strParty, Case run) {
    for (const long long nSide : bench::Sizes(program, 64, 16384, 4)) {
        bench::RegisterScaling(strCase, strParty, nSide, nSide * nSide,
                               [run, nSide](benchmark::State& state) { run(state, Square(static_cast<int>(nSide))); });
    }
}

}  // namespace

void bench::RegisterScalingCases(const Program& program) {
    RegisterCase(program, "JpegDecode", "ours", DecodeOurs);
    RegisterCase(program, "JpegDecode", "libjpeg", DecodeLibjpeg);
    RegisterCase(program, "JpegEncode", "ours", EncodeOurs);
    RegisterCase(program, "JpegEncode", "libjpeg", EncodeLibjpeg);
    RegisterCase(program, "BmpLoad", "ours", LoadBmpOurs);
    RegisterCase(program, "BmpLoad", "limit_fread_flip", LoadBmpPlain);
    RegisterCase(program, "Clip", "ours", ClipOurs);
    RegisterCase(program, "Clip", "limit_memcpy_rows", ClipMemcpy);
}
