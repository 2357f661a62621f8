// Surfaces and pictures for image tests.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_FAKES_TESTSURFACES_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_FAKES_TESTSURFACES_H_

#include <cstddef>

#include "TnRobotKernel/image.h"
#include "TnRobotKernel/ptr.h"
#include "support/bytes/Bytes.h"
#include "support/fakes/TestBlocks.h"

namespace tntest {

using Desc = ITnRobotSurface::STnSurfaceDesc;
using Lock = ITnRobotSurface::STnLockSurface;

/// A surface over bytes of the test's own. Every lock must be paired with an unlock.
class TestSurface final : public ITnRobotSurface {
public:
    TestSurface(const Desc& desc, Bytes bytes) : m_desc(desc), m_bytes(std::move(bytes)) {}
    ~TestSurface() override;

    static TnRobotPtr<TestSurface> Create(const Desc& desc, Bytes bytes) {
        return tn::Adopt(new TestSurface(desc, std::move(bytes)));
    }

    /// Locks fail from now on.
    void RefuseLocks() { m_bRefuse = true; }
    /// Locks tell the size from now on, and no place.
    void HideBytes() { m_bHide = true; }
    int OpenLocks() const { return m_nLocks; }
    const Bytes& Content() const { return m_bytes; }

    void ClearResource() override {}
    bool LockSurface(STnLockSurface& lock) override;
    void UnLockSurface() override { --m_nLocks; }
    void GetSurfaceDesc(STnSurfaceDesc& desc) override { desc = m_desc; }
    STnNL2DPoint GetOriPos() override { return m_desc.oriPos; }
    void ResetOriPos(const STnNL2DPoint& oriPos) override { m_desc.oriPos = oriPos; }
    unsigned long long QueryTimeStamp() override { return 0; }
    void SetTimeStamp(unsigned long long /*nTimeStamp*/) override {}

private:
    Desc m_desc;
    Bytes m_bytes;
    bool m_bRefuse = false;
    bool m_bHide = false;
    int m_nLocks = 0;
};

/// A pool that answers what it is told and keeps what it was asked.
class TestSurfacePool final : public ITnRobotSurfacePool {
public:
    TestSurfacePool(int nAnswer, ITnRobotSurface* pSurface) : m_nAnswer(nAnswer), m_pSurface(pSurface) {}
    ~TestSurfacePool() override;

    /// @param[in] pSurface  handed out with one more reference each time; null for none.
    static TnRobotPtr<TestSurfacePool> Create(int nAnswer, ITnRobotSurface* pSurface) {
        return tn::Adopt(new TestSurfacePool(nAnswer, pSurface));
    }

    int QuerySurface(const Desc& desc, ITnRobotSurface** ppSurface) override;

    int m_nCalls = 0;
    Desc m_lastDesc{};

private:
    int m_nAnswer;
    ITnRobotSurface* m_pSurface;
};

/// A surface pool over a TestBlockPool.
struct SurfaceSource {
    SurfaceSource();
    ~SurfaceSource();
    SurfaceSource(const SurfaceSource&) = delete;
    SurfaceSource& operator=(const SurfaceSource&) = delete;

    /// A surface whose bytes are still the pool's pattern; null when the pool has none.
    TnRobotPtr<ITnRobotSurface> Get(ETnNLImageType eType, int nWidth, int nHeight, STnNL2DPoint oriPos = {0, 0});
    /// A surface that starts with these bytes.
    TnRobotPtr<ITnRobotSurface> Filled(ETnNLImageType eType, int nWidth, int nHeight, const Bytes& bytes);

    /// Puts one surface on the free list and makes the next request for pixels fail: the pool then
    /// hands out a surface without any.
    TnRobotPtr<ITnRobotSurface> GetWithoutPixels();

    TnRobotPtr<TestBlockPool> blocks;
    TnRobotPtr<ITnRobotSurfacePool> pool;
};

/// A description with the wrong pitch, which the pool must replace.
Desc MakeDesc(ETnNLImageType eType, int nWidth, int nHeight, STnNL2DPoint oriPos = {0, 0});

/// @return all bytes of a surface, padding included.
Bytes SurfaceBytes(ITnRobotSurface* pSurface);

/// @return the description, pitch included.
Desc DescOf(ITnRobotSurface* pSurface);

/// A record over the bytes, which must outlive it. Channels follow from the format.
STnNLImageData Record(ETnNLImageType eType, int nWidth, int nHeight, const Bytes& bytes);

/// Bytes that do not repeat: 1, 2, 3 ... 250, 1, 2 ... from nFirst on. Never zero, never the
/// pattern of unwritten memory more often than chance has it.
Bytes Counting(std::size_t nCount, unsigned int nFirst = 1);

/// Bytes of a fixed pseudo-random sequence.
Bytes Noise(std::size_t nCount, unsigned int nSeed);

/// A smooth B,G,R picture with rows at nPitch, padding zero.
Bytes SmoothPicture(int nWidth, int nHeight, int nChannels, int nPitch);

/// Rows moved from one pitch to another; nRow bytes of each are kept, the rest is zero.
Bytes Repitch(const Bytes& bytes, std::size_t nRow, std::size_t nFrom, std::size_t nTo, std::size_t nRows);

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_FAKES_TESTSURFACES_H_
