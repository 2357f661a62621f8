#include "support/fakes/TestSurfaces.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <stdexcept>

namespace tntest {

TestSurface::~TestSurface() = default;

bool TestSurface::LockSurface(STnLockSurface& lock) {
    if (m_bRefuse) {
        return false;
    }
    ++m_nLocks;
    lock.nWidth = m_desc.nWidth;
    lock.nHeight = m_desc.nHeight;
    lock.nPitch = m_desc.nPitch;
    lock.eImageType = m_desc.eImageType;
    lock.pData = m_bytes.empty() || m_bHide ? nullptr : m_bytes.data();
    lock.nDataSize = static_cast<unsigned int>(m_bytes.size());
    return true;
}

TestSurfacePool::~TestSurfacePool() = default;

int TestSurfacePool::QuerySurface(const Desc& desc, ITnRobotSurface** ppSurface) {
    ++m_nCalls;
    m_lastDesc = desc;
    if (m_pSurface != nullptr) {
        m_pSurface->AddRef();
        *ppSurface = m_pSurface;
    }
    return m_nAnswer;
}

SurfaceSource::SurfaceSource() : blocks(TestBlockPool::Create()) {
    ITnRobotSurfacePool* pPool = nullptr;
    if (TnCreateRobotSurfacePool(blocks.get(), &pPool) != 1) {
        throw std::runtime_error("no surface pool");
    }
    pool = tn::Adopt(pPool);
}

SurfaceSource::~SurfaceSource() = default;

TnRobotPtr<ITnRobotSurface> SurfaceSource::Get(ETnNLImageType eType, int nWidth, int nHeight, STnNL2DPoint oriPos) {
    ITnRobotSurface* pSurface = nullptr;
    if (pool->QuerySurface(MakeDesc(eType, nWidth, nHeight, oriPos), &pSurface) != 0) {
        return nullptr;
    }
    return tn::Adopt(pSurface);
}

TnRobotPtr<ITnRobotSurface> SurfaceSource::Filled(ETnNLImageType eType, int nWidth, int nHeight, const Bytes& bytes) {
    TnRobotPtr<ITnRobotSurface> surface = Get(eType, nWidth, nHeight);
    Lock lock{};
    if (surface == nullptr || !surface->LockSurface(lock) || lock.nDataSize < bytes.size()) {
        throw std::runtime_error("the surface does not hold the bytes");
    }
    std::copy(bytes.begin(), bytes.end(), lock.pData);
    surface->UnLockSurface();
    return surface;
}

TnRobotPtr<ITnRobotSurface> SurfaceSource::GetWithoutPixels() {
    Get(TN_IMAGE_BGR24, 4, 2).reset();
    return Get(TN_IMAGE_NONE, 4, 2);
}

Desc MakeDesc(ETnNLImageType eType, int nWidth, int nHeight, STnNL2DPoint oriPos) {
    Desc desc{};
    desc.nWidth = nWidth;
    desc.nHeight = nHeight;
    desc.nPitch = -12345;
    desc.eImageType = eType;
    desc.oriPos = oriPos;
    return desc;
}

Bytes SurfaceBytes(ITnRobotSurface* pSurface) {
    Lock lock{};
    if (!pSurface->LockSurface(lock) || lock.pData == nullptr) {
        return {};
    }
    Bytes bytes(lock.pData, lock.pData + lock.nDataSize);
    pSurface->UnLockSurface();
    return bytes;
}

Desc DescOf(ITnRobotSurface* pSurface) {
    Desc desc{};
    pSurface->GetSurfaceDesc(desc);
    return desc;
}

STnNLImageData Record(ETnNLImageType eType, int nWidth, int nHeight, const Bytes& bytes) {
    STnNLImageData image{};
    // The record has no form for memory that is only read.
    image.pData = const_cast<unsigned char*>(bytes.data());
    image.nDataSize = static_cast<unsigned int>(bytes.size());
    image.oriPos = {0, 0};
    image.nWidth = nWidth;
    image.nHeight = nHeight;
    image.eImageType = eType;
    image.nBitsPerChannel = 8;
    const bool bThree = eType == TN_IMAGE_RGB24 || eType == TN_IMAGE_BGR24;
    image.nChannels = bThree ? 3 : eType == TN_IMAGE_BGRX32 ? 4 : 1;
    return image;
}

Bytes Counting(std::size_t nCount, unsigned int nFirst) {
    constexpr unsigned int kLength = 250;
    Bytes bytes(nCount);
    for (std::size_t i = 0; i < nCount; ++i) {
        bytes[i] = static_cast<unsigned char>(1 + (nFirst - 1 + i) % kLength);
    }
    return bytes;
}

Bytes Noise(std::size_t nCount, unsigned int nSeed) {
    std::mt19937 random(nSeed);
    Bytes bytes(nCount);
    for (unsigned char& by : bytes) {
        by = static_cast<unsigned char>(random() >> 24);
    }
    return bytes;
}

Bytes SmoothPicture(int nWidth, int nHeight, int nChannels, int nPitch) {
    Bytes bytes(static_cast<std::size_t>(nPitch) * static_cast<std::size_t>(nHeight));
    for (int y = 0; y < nHeight; ++y) {
        for (int x = 0; x < nWidth; ++x) {
            for (int c = 0; c < nChannels; ++c) {
                const double dValue = 128 + 60 * std::sin(0.11 * x + c) + 50 * std::cos(0.07 * y - 0.5 * c);
                bytes[static_cast<std::size_t>(y * nPitch + x * nChannels + c)] = static_cast<unsigned char>(dValue);
            }
        }
    }
    return bytes;
}

Bytes Repitch(const Bytes& bytes, std::size_t nRow, std::size_t nFrom, std::size_t nTo, std::size_t nRows) {
    Bytes moved(nTo * nRows);
    for (std::size_t y = 0; y < nRows; ++y) {
        for (std::size_t x = 0; x < nRow; ++x) {
            moved[y * nTo + x] = bytes.at(y * nFrom + x);
        }
    }
    return moved;
}

}  // namespace tntest
