/// @file
/// The records by which DLPack hands arrays on. Names are ours, the layout is that of its version 0.

#ifndef PYTHON_DLPACK_H_
#define PYTHON_DLPACK_H_

#include <cstdint>

namespace tnrobot::python {

inline constexpr std::int32_t kDLProcessor = 1;  ///< memory of the processor
inline constexpr std::uint8_t kDLUnsigned = 1;   ///< elements that are unsigned whole numbers

/// Where the elements are.
struct DLDevice {
    std::int32_t eType;  ///< kDLProcessor
    std::int32_t nNumber;
};

/// What the elements are.
struct DLType {
    std::uint8_t byCode;  ///< kDLUnsigned
    std::uint8_t nBits;
    std::uint16_t nLanes;
};

/// An array of somebody else's.
struct DLTensor {
    void* pData;
    DLDevice device;
    std::int32_t nDimensions;
    DLType type;
    std::int64_t* pShape;
    std::int64_t* pStrides;  ///< in elements
    std::uint64_t nOffset;   ///< of the first element, in bytes
};

/// An array and whom to tell when it is not needed any more.
struct DLManagedTensor {
    DLTensor tensor;
    void* pManagerContext;
    void (*pfnDeleter)(DLManagedTensor* pSelf);
};

}  // namespace tnrobot::python

#endif  // PYTHON_DLPACK_H_
