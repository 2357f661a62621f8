// Surfaces and their pools.

#include "Surfaces.h"

#include <cstring>
#include <string>
#include <utility>

#include "Errors.h"
#include "Pools.h"
#include "TnRobotKernel/make.h"
#include "TnRobotKernel/tn/pixels.h"

namespace tnrobot::python {

namespace {

// Made by the first use, with the interpreter's lock; dropped at the interpreter's end.
TnRobotPtr<ITnRobotSurfacePool>& DefaultPool() {
    static TnRobotPtr<ITnRobotSurfacePool> s_pool;
    return s_pool;
}

// A surface goes back to its pool, which is locked while somebody waits for memory there, and hears of signals.
void GiveBack(TnRobotPtr<ITnRobotSurface>& surface) {
    if (surface) {
        const WithoutGil others;
        surface.reset();
    }
}

std::unique_ptr<SurfacePool> NewPool(const BlockPool* pSource) {
    const TnRobotPtr<ITnRobotMemoryBlockPool> blocks =
        pSource != nullptr ? TnRobotPtr<ITnRobotMemoryBlockPool>(&pSource->Get(), tn::kRetain)
                           : tn::MakeMemoryBlockPool();
    return std::make_unique<SurfacePool>(tn::MakeSurfacePool(blocks.get()));
}

// New pixels are zero: what was in the pool's memory before is nobody's business.
std::unique_ptr<Surface> Query(const SurfacePool* pPool, int nWidth, int nHeight, const py::object& format) {
    const auto eFormat = static_cast<ETnNLImageType>(NumberOf("ImageFormat", format));
    const TnRobotPtr<ITnRobotSurfacePool> pool = PoolOrDefault(pPool);
    TnRobotPtr<ITnRobotSurface> surface;
    std::error_code reason;
    {
        const WithoutGil others;
        surface = tn::QuerySurface(*pool, {nWidth, nHeight, 0, eFormat, {0, 0}}, reason);
        const tn::LockedPixels pixels(surface);
        if (pixels.Lock().pData != nullptr) {
            std::memset(pixels.Lock().pData, 0, pixels.Lock().nDataSize);
        }
    }
    return NewSurface(pool, std::move(surface), reason);
}

py::tuple Origin(const Surface& surface) {
    STnNL2DPoint point{};
    {
        const Locked lock(surface.Mutex());
        point = surface.Get().GetOriPos();
    }
    return py::make_tuple(point.x, point.y);
}

void SetOrigin(const Surface& surface, const std::pair<int, int>& point) {
    const Locked lock(surface.Mutex());
    surface.Get().ResetOriPos({point.first, point.second});
}

unsigned long long TimeStamp(const Surface& surface) {
    const Locked lock(surface.Mutex());
    return surface.Get().QueryTimeStamp();
}

void SetTimeStamp(const Surface& surface, unsigned long long nTimeStamp) {
    const Locked lock(surface.Mutex());
    surface.Get().SetTimeStamp(nTimeStamp);
}

py::object Format(const Surface& surface) {
    surface.Get();
    return Enumerator("ImageFormat", surface.Pixels().eImageType);
}

std::string Describe(const Surface& surface) {
    if (surface.Pixels().pData == nullptr) {
        return "<Surface without pixels>";
    }
    const auto strFormat = py::cast<std::string>(Attribute(Format(surface), "name"));
    return "<Surface " + std::to_string(surface.Pixels().nWidth) + " x " + std::to_string(surface.Pixels().nHeight) +
           " " + strFormat + ">";
}

template <auto pField>
int PixelField(const Surface& surface) {
    surface.Get();
    return surface.Pixels().*pField;
}

}  // namespace

Surface::Surface(TnRobotPtr<ITnRobotSurfacePool> pool, TnRobotPtr<ITnRobotSurface> surface)
    : m_pool(std::move(pool)), m_surface(std::move(surface)), m_pixels(tn::LockedPixels(m_surface).Lock()) {}

Surface::~Surface() {
    GiveBack(m_surface);
}

ITnRobotSurface& Surface::Get() const {
    if (!m_surface) {
        throw py::value_error("this surface has no pixels: take one from a pool or from load_image");
    }
    return *m_surface;
}

const TnRobotPtr<ITnRobotSurfacePool>& SurfacePool::Get() const {
    if (!m_pool) {
        throw py::value_error("this pool has no surfaces: its __init__ was never called");
    }
    return m_pool;
}

TnRobotPtr<ITnRobotSurfacePool> PoolOrDefault(const SurfacePool* pPool) {
    if (pPool != nullptr) {
        return pPool->Get();
    }
    if (!DefaultPool()) {
        DefaultPool() = tn::MakeSurfacePool(tn::MakeMemoryBlockPool().get());
    }
    return DefaultPool();
}

std::unique_ptr<Surface> NewSurface(const TnRobotPtr<ITnRobotSurfacePool>& pool, TnRobotPtr<ITnRobotSurface> surface,
                                    const std::error_code& reason, const std::string& strPath) {
    if (reason || PyErr_Occurred() != nullptr) {
        GiveBack(surface);
    }
    if (PyErr_Occurred() != nullptr) {  // a signal, while memory was waited for
        throw py::error_already_set();
    }
    Check(reason, strPath);
    return std::make_unique<Surface>(pool, std::move(surface));
}

void BindSurfaces(py::module_& module) {
    py::class_<Surface> surface(module, "Surface", py::custom_type_setup(&SetSurfaceBuffers),
                                R"(A picture in memory: pixels of a format, an origin and a time stamp.

It comes from a SurfacePool, from load_image or from Surface.from_array. NumPy, OpenCV and everything else that
takes arrays or buffers sees its pixels without a copy, and keeps it alive.)");
    surface.def_property_readonly("width", &PixelField<&ITnRobotSurface::STnLockSurface::nWidth>, "Pixels of a row.")
        .def_property_readonly("height", &PixelField<&ITnRobotSurface::STnLockSurface::nHeight>, "Rows.")
        .def_property_readonly("pitch", &PixelField<&ITnRobotSurface::STnLockSurface::nPitch>,
                               "Bytes from one row to the next, which may be more than the pixels take.")
        .def_property_readonly("format", &Format, "The ImageFormat.")
        .def_property("origin", &Origin, &SetOrigin, "(x, y) within a larger picture; carried, never interpreted.")
        .def_property("time_stamp", &TimeStamp, &SetTimeStamp,
                      "A number from 0 to 2**64 - 1, of any unit. A pool's surface brings that of its last use.")
        .def("__repr__", &Describe);
    BindArrays(module, surface);

    py::class_<SurfacePool>(module, "SurfacePool", R"(Hands out surfaces, and takes their memory back.

The memory comes from a block pool, such as a LimitedPool, or from a general one of its own.)")
        .def(py::init(&NewPool), py::arg("source") = py::none())
        .def("surface", &Query, py::arg("width"), py::arg("height"), py::arg("format"),
             "Hand out a surface whose pixels are zero; Error or ValueError for what no surface can be.");
    module.def("_drop_default_pool", [] { DefaultPool().reset(); });
}

}  // namespace tnrobot::python
