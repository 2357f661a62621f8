// The image that surface pools hand out.

#ifndef TNROBOTKERNEL_SRC_IMAGE_TNROBOTSURFACE_H_
#define TNROBOTKERNEL_SRC_IMAGE_TNROBOTSURFACE_H_

#include "TnRobotKernel/image.h"
#include "TnRobotKernel/ptr.h"

/// A surface over one memory block. While it waits in its pool it holds no block; description and
/// time stamp stay.
class CTnRobotSurface final : public ITnRobotSurface {
public:
    /// @param[in]  pBlock     one reference is taken.
    /// @param[out] ppSurface  +1, caller releases; null for a null block.
    /// @return whether a surface was made; false for a null ppSurface.
    static bool CreateInstance(ITnRobotMemoryBlock* pBlock, const STnSurfaceDesc& desc, ITnRobotSurface** ppSurface);

    ~CTnRobotSurface() override;

    void ClearResource() override;
    bool LockSurface(STnLockSurface& lock) override;
    void UnLockSurface() override;
    void GetSurfaceDesc(STnSurfaceDesc& desc) override;
    STnNL2DPoint GetOriPos() override;
    void ResetOriPos(const STnNL2DPoint& oriPos) override;
    unsigned long long QueryTimeStamp() override;
    void SetTimeStamp(unsigned long long nTimeStamp) override;

    /// As ResetData. @return false for a null block, which changes nothing.
    bool _Init(ITnRobotMemoryBlock* pBlock, const STnSurfaceDesc& desc);

    /// Takes on another description and block; the time stamp stays.
    /// @param[in] pBlock  one reference is taken; may be null.
    void ResetData(const STnSurfaceDesc& desc, ITnRobotMemoryBlock* pBlock);

    /// Tests, in checked builds, what holds while the surface waits in its pool.
    void CheckIdleInvariants() const;

private:
    CTnRobotSurface() = default;
    void _CheckInUse() const;

    TnRobotPtr<ITnRobotMemoryBlock> m_block;
    unsigned long long m_nTimeStamp = 0;
    STnSurfaceDesc m_desc{};
};

#endif  // TNROBOTKERNEL_SRC_IMAGE_TNROBOTSURFACE_H_
