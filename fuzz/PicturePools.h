// The pools that pictures are loaded into, for fuzz targets.

#ifndef TNROBOTKERNEL_FUZZ_PICTUREPOOLS_H_
#define TNROBOTKERNEL_FUZZ_PICTUREPOOLS_H_

#include <TnRobotKernel/TnRobotKernel.h>

class PicturePools {
public:
    PicturePools() {
        TnCreateRobotMemoryBlockPool(&m_pBlocks);
        TnCreateRobotSurfacePool(m_pBlocks, &m_pSurfaces);
    }
    ~PicturePools() {
        m_pSurfaces->Release();
        m_pBlocks->Release();
    }
    PicturePools(const PicturePools&) = delete;
    PicturePools& operator=(const PicturePools&) = delete;

    ITnRobotSurfacePool* Surfaces() const { return m_pSurfaces; }

    /// Reads every byte of a loaded picture and lets it go.
    static unsigned int Finish(ITnRobotSurface* pSurface) {
        ITnRobotSurface::STnLockSurface lock = {};
        pSurface->LockSurface(lock);
        unsigned int nSum = 0;
        for (unsigned int i = 0; i < lock.nDataSize; ++i) {
            nSum += static_cast<const volatile unsigned char*>(lock.pData)[i];
        }
        pSurface->UnLockSurface();
        pSurface->Release();
        return nSum;
    }

private:
    ITnRobotMemoryBlockPool* m_pBlocks = nullptr;
    ITnRobotSurfacePool* m_pSurfaces = nullptr;
};

#endif  // TNROBOTKERNEL_FUZZ_PICTUREPOOLS_H_
