// The job by hand: everything is kept from frame to frame, and nothing is done twice.

#ifdef TNROBOT_BENCH_TURBOJPEG

#include <turbojpeg.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "BenchSupport.h"
#include "pipeline/Inspection.h"
#include "work/PlainPool.h"

namespace bench {

namespace {

using Bytes = std::vector<unsigned char>;

constexpr int kQuality = 95;
constexpr std::size_t kFrameRow = kPixelBytes * kFrameWidth;

class Floor final : public Party {
public:
    Floor(const std::string& strPath, std::unique_ptr<PlainPool> workers)
        : m_file(std::fopen(strPath.c_str(), "wb")), m_workers(std::move(workers)) {
        Require(m_file != nullptr, "no file for the results");
        for (Bytes& region : m_regions) {
            region.resize(kRegionRow * kRegionHeight);
        }
    }
    ~Floor() override {
        m_workers.reset();
        std::fclose(m_file);
        tjFree(m_pPicture);
        tjDestroy(m_decoder);
        tjDestroy(m_encoder);
    }

    void Inspect(const Bytes& jpeg, std::size_t nFrame, Measurements& measured) override {
        Require(tjDecompress2(m_decoder, jpeg.data(), static_cast<unsigned long>(jpeg.size()), m_frame.data(),
                              kFrameWidth, static_cast<int>(kFrameRow), kFrameHeight, TJPF_BGR, 0) == 0,
                "a frame cannot be decoded");
        MeasureAll(measured);
        WriteRecord(m_file, measured);
        if (nFrame % kJoinEvery == 0) {
            Join(measured);
        }
    }

    Bytes LastPicture() const override { return {m_pPicture, m_pPicture + m_nPicture}; }

private:
    void MeasureAll(Measurements& measured) {
        for (std::size_t n = 0; n < kRegions; ++n) {
            if (m_workers) {
                m_workers->Post([this, n, &measured] { MeasureOne(n, measured[n]); });
            } else {
                MeasureOne(n, measured[n]);
            }
        }
        if (m_workers) {
            m_workers->Wait();
        }
    }

    void MeasureOne(std::size_t nRegion, Measured& measured) {
        const auto nLeft = kPixelBytes * static_cast<std::size_t>(Left(nRegion));
        const unsigned char* pSource = m_frame.data() + static_cast<std::size_t>(Top(nRegion)) * kFrameRow + nLeft;
        Copy(pSource, kFrameRow, m_regions[nRegion].data(), kRegionRow);
        measured = MeasureRows(m_regions[nRegion].data(), kRegionRow);
    }

    static void Copy(const unsigned char* pSource, std::size_t nSourcePitch, unsigned char* pTarget,
                     std::size_t nTargetPitch) {
        for (int n = 0; n < kRegionHeight; ++n, pSource += nSourcePitch, pTarget += nTargetPitch) {
            std::memcpy(pTarget, pSource, kRegionRow);
        }
    }

    void Join(const Measurements& measured) {
        const auto [nDarkest, nBrightest] = Extremes(measured);
        Copy(m_regions[nDarkest].data(), kRegionRow, m_joined.data(), 2 * kRegionRow);
        Copy(m_regions[nBrightest].data(), kRegionRow, m_joined.data() + kRegionRow, 2 * kRegionRow);
        Require(tjCompress2(m_encoder, m_joined.data(), 2 * kRegionWidth, static_cast<int>(2 * kRegionRow),
                            kRegionHeight, TJPF_BGR, &m_pPicture, &m_nPicture, TJSAMP_444, kQuality, 0) == 0,
                "a picture cannot be encoded");
    }

    tjhandle m_decoder = tjInitDecompress();
    tjhandle m_encoder = tjInitCompress();
    std::FILE* m_file;
    Bytes m_frame = Bytes(kFrameRow * kFrameHeight);
    Bytes m_joined = Bytes(2 * kRegionRow * kRegionHeight);
    std::array<Bytes, kRegions> m_regions;
    unsigned char* m_pPicture = nullptr;
    unsigned long m_nPicture = 0;
    std::unique_ptr<PlainPool> m_workers;  // null: none
};

// Each thread has everything of its own, the file too.
class FloorWholeFrames final : public WholeFrames {
public:
    FloorWholeFrames(const std::string& strPath, unsigned int nWorkers) : m_threads(nWorkers) {
        for (unsigned int n = 0; n < nWorkers; ++n) {
            m_parties.push_back(MakeFloorAlone(strPath + std::to_string(n)));
        }
    }

    void Inspect(std::size_t nFrames, std::vector<double>& milliseconds) override {
        m_nNext = 0;
        for (const auto& party : m_parties) {
            m_threads.Post([this, &party, nFrames, &milliseconds] { Work(*party, nFrames, milliseconds); });
        }
        m_threads.Wait();
    }

private:
    void Work(Party& party, std::size_t nFrames, std::vector<double>& milliseconds) {
        Measurements measured;
        for (std::size_t n = m_nNext++; n < nFrames; n = m_nNext++) {
            const auto start = std::chrono::steady_clock::now();
            party.Inspect(Frames()[n % Frames().size()], n, measured);
            const std::chrono::duration<double, std::milli> passed = std::chrono::steady_clock::now() - start;
            milliseconds[n] = passed.count();
        }
    }

    std::atomic<std::size_t> m_nNext{0};
    std::vector<std::unique_ptr<Party>> m_parties;
    PlainPool m_threads;
};

}  // namespace

std::unique_ptr<Party> MakeFloor(const std::string& strPath) {
    return std::make_unique<Floor>(strPath, std::make_unique<PlainPool>(kWorkers));
}

std::unique_ptr<Party> MakeFloorAlone(const std::string& strPath) {
    return std::make_unique<Floor>(strPath, nullptr);
}

std::unique_ptr<WholeFrames> MakeFloorWholeFrames(const std::string& strPath, unsigned int nWorkers) {
    return std::make_unique<FloorWholeFrames>(strPath, nWorkers);
}

}  // namespace bench

#endif  // TNROBOT_BENCH_TURBOJPEG
