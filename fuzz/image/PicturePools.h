// The pools that pictures are loaded into, for fuzz targets.

#ifndef TNROBOTKERNEL_FUZZ_IMAGE_PICTUREPOOLS_H_
#define TNROBOTKERNEL_FUZZ_IMAGE_PICTUREPOOLS_H_

#include <TnRobotKernel/TnRobotKernel.h>

#include "FuzzInput.h"
#include "TnRobotKernel/ptr.h"
#include "TnRobotKernel/tn/pixels.h"
#include "support/fakes/TestBlocks.h"

namespace tnfuzz {

/// Memory comes exactly as large as it is asked for, and filled with a pattern. Nothing is refused, as
/// a user's pool refuses nothing either: what a picture may claim is the library's business.
class PicturePools {
public:
    static constexpr unsigned int kLargestSurface = 0xFFFFFFFFU;

    PicturePools() : m_blocks(tntest::TestBlockPool::Create()) {
        ITnRobotSurfacePool* pSurfaces = nullptr;
        TnCreateRobotSurfacePool(m_blocks.get(), &pSurfaces);
        m_surfaces.attach(pSurfaces);
    }

    ITnRobotMemoryBlockPool* Blocks() const { return m_blocks.get(); }
    ITnRobotSurfacePool* Surfaces() const { return m_surfaces.get(); }

private:
    TnRobotPtr<tntest::TestBlockPool> m_blocks;
    TnRobotPtr<ITnRobotSurfacePool> m_surfaces;
};

using Surface = TnRobotPtr<ITnRobotSurface>;

/// @return a surface's pixels, all bytes of its memory.
inline Bytes Pixels(ITnRobotSurface& surface) {
    const tn::LockedPixels pixels(surface);
    return {pixels.Lock().pData, pixels.Lock().pData + pixels.Lock().nDataSize};
}

inline ITnRobotSurface::STnSurfaceDesc Description(ITnRobotSurface& surface) {
    ITnRobotSurface::STnSurfaceDesc desc = {};
    surface.GetSurfaceDesc(desc);
    return desc;
}

}  // namespace tnfuzz

#endif  // TNROBOTKERNEL_FUZZ_IMAGE_PICTUREPOOLS_H_
