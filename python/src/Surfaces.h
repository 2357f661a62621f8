/// @file
/// What the Python classes Surface and SurfacePool stand for.

#ifndef PYTHON_SURFACES_H_
#define PYTHON_SURFACES_H_

#include <array>
#include <memory>

#include "Interpreter.h"
#include "TnRobotKernel/image.h"
#include "TnRobotKernel/ptr.h"

namespace tnrobot::python {

/// How pixels lie, as NumPy sees them. The strides are in bytes, and so is each element.
struct PixelLayout {
    static constexpr int kMostDimensions = 3;
    int nDimensions = 0;
    std::array<Py_ssize_t, kMostDimensions> shape{};
    std::array<Py_ssize_t, kMostDimensions> strides{};

    Py_ssize_t Bytes() const;
    bool IsContiguous() const;
};

/// A surface that one Python object holds. It holds the pool too: a surface whose pool has gone has no pixels.
class Surface final : public Bound {
public:
    /// @param[in] pool     null for a surface of no pool.
    /// @param[in] surface  with pixels.
    Surface(TnRobotPtr<ITnRobotSurfacePool> pool, TnRobotPtr<ITnRobotSurface> surface);
    Surface(const Surface&) = delete;
    Surface& operator=(const Surface&) = delete;
    ~Surface();

    /// @return the surface. ValueError for an object that nobody has made.
    ITnRobotSurface& Get() const;

    /// @return where the pixels are. They stay there as long as the surface.
    const ITnRobotSurface::STnLockSurface& Pixels() const { return m_pixels; }

    /// @return how they lie; Error for 4:2:0 of an odd size, which is no array.
    PixelLayout Layout() const;

    ObjectMutex& Mutex() const { return m_mutex; }

private:
    mutable ObjectMutex m_mutex;
    TnRobotPtr<ITnRobotSurfacePool> m_pool;  // goes last
    TnRobotPtr<ITnRobotSurface> m_surface;   // used with m_mutex
    ITnRobotSurface::STnLockSurface m_pixels{};
};

/// A pool that surfaces come from.
class SurfacePool final : public Bound {
public:
    explicit SurfacePool(TnRobotPtr<ITnRobotSurfacePool> pool) : m_pool(std::move(pool)) {}

    /// @return the pool. ValueError for an object whose __init__ was never called.
    const TnRobotPtr<ITnRobotSurfacePool>& Get() const;

private:
    TnRobotPtr<ITnRobotSurfacePool> m_pool;  // never changes
};

/// @return the pool that a call is to use: the given one, or for null that of the process, which may go meanwhile.
TnRobotPtr<ITnRobotSurfacePool> PoolOrDefault(const SurfacePool* pPool);

/// @return a Python object's surface, or the reason as an exception where there is none.
std::unique_ptr<Surface> NewSurface(const TnRobotPtr<ITnRobotSurfacePool>& pool, TnRobotPtr<ITnRobotSurface> surface,
                                    const std::error_code& reason, const std::string& strPath = {});

/// Adds the classes.
void BindSurfaces(py::module_& module);

/// Adds what surfaces are seen through by others: NumPy, buffers, DLPack.
void BindArrays(py::module_& module, py::class_<Surface>& surface);

/// Adds the functions that load, save, cut and join.
void BindPictures(py::module_& module);

/// Gives the type of Surface its buffers.
void SetSurfaceBuffers(PyHeapTypeObject* pType);

}  // namespace tnrobot::python

#endif  // PYTHON_SURFACES_H_
