// Pictures in files and in memory, and parts of them.

#include <mutex>
#include <string>
#include <utility>

#include "Errors.h"
#include "Surfaces.h"
#include "TnRobotKernel/make.h"
#include "TnRobotKernel/tn/pictures.h"

namespace tnrobot::python {

namespace {

// A cut picture is an error unless somebody wants what there is of it.
std::unique_ptr<Surface> Loaded(const TnRobotPtr<ITnRobotSurfacePool>& pool, TnRobotPtr<ITnRobotSurface> surface,
                                std::error_code reason, bool bAllowIncomplete, const std::string& strPath) {
    if (surface && bAllowIncomplete && reason == tn::errc::picture_incomplete) {
        reason.clear();
    }
    return NewSurface(pool, std::move(surface), reason, strPath);
}

std::unique_ptr<Surface> LoadFile(const py::object& path, const SurfacePool* pPool, bool bAllowIncomplete) {
    const std::string strPath = PathOf(path);
    const TnRobotPtr<ITnRobotSurfacePool> pool = PoolOrDefault(pPool);
    TnRobotPtr<ITnRobotSurface> surface;
    std::error_code reason;
    {
        const WithoutGil others;
        surface = tn::LoadImage(strPath.c_str(), pool.get(), reason);
    }
    return Loaded(pool, std::move(surface), reason, bAllowIncomplete, strPath);
}

// The bytes are copied: another thread may change what a buffer holds while they are looked at, more than once.
std::unique_ptr<Surface> Decode(const py::object& data, const SurfacePool* pPool, bool bAllowIncomplete) {
    Py_buffer view{};
    if (PyObject_GetBuffer(data.ptr(), &view, PyBUF_SIMPLE) != 0) {
        throw py::error_already_set();
    }
    const bool bFits = static_cast<std::size_t>(view.len) <= std::numeric_limits<unsigned int>::max();
    std::string strBytes;
    if (bFits) {
        strBytes.assign(static_cast<const char*>(view.buf), static_cast<std::size_t>(view.len));
    }
    PyBuffer_Release(&view);
    if (!bFits) {
        Raise(tn::make_error_code(tn::errc::picture_too_large));
    }
    if (strBytes.empty()) {
        Raise(tn::make_error_code(tn::errc::picture_incomplete));
    }
    const TnRobotPtr<ITnRobotSurfacePool> pool = PoolOrDefault(pPool);
    TnRobotPtr<ITnRobotSurface> surface;
    std::error_code reason;
    {
        const WithoutGil others;
        surface = tn::LoadImage(reinterpret_cast<const unsigned char*>(strBytes.data()),
                                static_cast<unsigned int>(strBytes.size()), pool.get(), reason);
    }
    return Loaded(pool, std::move(surface), reason, bAllowIncomplete, {});
}

void SaveFile(const py::object& path, const Surface& surface) {
    const std::string strPath = PathOf(path);
    ITnRobotSurface& source = surface.Get();
    std::error_code reason;
    RunLocked(surface.Mutex(), [&] { tn::SaveImage(strPath.c_str(), &source, reason); });
    Check(reason, strPath);
}

py::bytes Encode(const Surface& surface) {
    ITnRobotSurface& source = surface.Get();
    if (tn::BytesPerPixel(surface.Pixels().eImageType) == 0) {
        Raise(tn::make_error_code(tn::errc::format_not_supported));
    }
    constexpr int kLongest = 65500;
    if (surface.Pixels().nWidth > kLongest || surface.Pixels().nHeight > kLongest) {
        Raise(tn::make_error_code(tn::errc::picture_too_large));
    }
    TnRobotPtr<ITnRobotMemoryBlock> block;
    RunLocked(surface.Mutex(), [&] {
        const ITnRobotSurface::STnLockSurface& pixels = surface.Pixels();
        const tn::detail::RecordToSave record(pixels.pData, pixels.eImageType, pixels.nWidth, pixels.nHeight,
                                              pixels.nPitch);
        block = tn::SaveImage(record.Image(), tn::MakeMemoryBlockPool().get());
    });
    static_cast<void>(source);
    if (!block) {
        Raise(tn::make_error_code(tn::errc::picture_too_large));
    }
    unsigned int nBytes = 0;
    const unsigned char* pBytes = block->QueryMemory(nBytes);
    return {reinterpret_cast<const char*>(pBytes), nBytes};
}

std::unique_ptr<Surface> Clip(const Surface& surface, int nLeft, int nTop, int nRight, int nBottom,
                              const SurfacePool* pPool) {
    ITnRobotSurface& source = surface.Get();
    const TnRobotPtr<ITnRobotSurfacePool> pool = PoolOrDefault(pPool);
    std::error_code reason;
    TnRobotPtr<ITnRobotSurface> part = RunLocked(surface.Mutex(), [&] {
        return tn::ClipImage(pool.get(), &source, {nLeft, nRight, nTop, nBottom}, reason);
    });
    if (reason == std::errc::invalid_argument) {
        Raise(PyExc_ValueError, "the region is empty or not inside the surface");
    }
    return NewSurface(pool, std::move(part), reason);
}

// The library joins others too, and what comes of it is documented for programs that know it so.
void CheckAlike(const Surface& first, const Surface& second) {
    const ITnRobotSurface::STnLockSurface& left = first.Pixels();
    const ITnRobotSurface::STnLockSurface& right = second.Pixels();
    if (left.nWidth != right.nWidth || left.nHeight != right.nHeight || left.eImageType != right.eImageType) {
        Raise(PyExc_ValueError, "only surfaces of equal size and format are joined");
    }
    const int nBytes = tn::BytesPerPixel(left.eImageType);
    if (nBytes != 1 && nBytes != 3) {
        Raise(tn::make_error_code(tn::errc::format_not_supported));
    }
}

std::unique_ptr<Surface> Join(const Surface& first, const Surface& second, const SurfacePool* pPool) {
    ITnRobotSurface& left = first.Get();
    ITnRobotSurface& right = second.Get();
    CheckAlike(first, second);
    const TnRobotPtr<ITnRobotSurfacePool> pool = PoolOrDefault(pPool);
    std::error_code reason;
    TnRobotPtr<ITnRobotSurface> joined;
    first.Mutex().Settle();
    second.Mutex().Settle();
    {
        const WithoutGil others;
        std::unique_lock<ObjectMutex> firstLock(first.Mutex(), std::defer_lock);
        std::unique_lock<ObjectMutex> secondLock(second.Mutex(), std::defer_lock);
        if (&first == &second) {
            firstLock.lock();
        } else {
            std::lock(firstLock, secondLock);
        }
        joined = tn::PieceImage(pool.get(), &left, &right, reason);
    }
    return NewSurface(pool, std::move(joined), reason);
}

}  // namespace

void BindPictures(py::module_& module) {
    const py::arg_v pool = py::arg("pool") = py::none();
    module.def("load_image", &LoadFile, py::arg("path"), py::kw_only(), pool, py::arg("allow_incomplete") = false,
               R"(Load a .jpg or .bmp file as a surface of format BGR24.

Error says what is wrong with the picture, OSError what the system refuses. A picture that was cut is an Error
with ErrorCode.PICTURE_INCOMPLETE; with allow_incomplete what there is of it comes, the rest grey or black.)");
    module.def("decode_image", &Decode, py::arg("data"), py::kw_only(), pool, py::arg("allow_incomplete") = false,
               "Decode the bytes of a JPEG, as load_image does that of a file.");
    module.def("_save_image", &SaveFile, py::arg("path"), py::arg("surface"));
    module.def("_encode_image", &Encode, py::arg("surface"));
    module.def("clip", &Clip, py::arg("surface"), py::arg("left"), py::arg("top"), py::arg("right"), py::arg("bottom"),
               py::kw_only(), pool,
               R"(Copy a region into a new surface: columns left to right - 1, rows top to bottom - 1.

ValueError for a region that is empty or not inside, Error for a format that is not cut.)");
    module.def("join", &Join, py::arg("first"), py::arg("second"), py::kw_only(), pool,
               "Join two surfaces of equal size and format side by side in a new one.");
}

}  // namespace tnrobot::python
