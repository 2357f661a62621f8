// A surface's pixels as others see them, and arrays of others as surfaces.

#include <pybind11/numpy.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "DlPack.h"
#include "Errors.h"
#include "Surfaces.h"
#include "TnRobotKernel/make.h"
#include "TnRobotKernel/tn/error.h"
#include "TnRobotKernel/tn/pixels.h"
#include "TnRobotKernel/tn/surfaces.h"

namespace tnrobot::python {

namespace {

// A buffer of Python's that somebody reads or writes on any thread.
class HeldBuffer final {
public:
    HeldBuffer() = default;
    HeldBuffer(const HeldBuffer&) = delete;
    HeldBuffer& operator=(const HeldBuffer&) = delete;
    ~HeldBuffer() {
        if (m_view.obj != nullptr) {
            CallWithGil([](void* pView) { PyBuffer_Release(static_cast<Py_buffer*>(pView)); }, &m_view);
        }
    }

    // Throws what Python says where there is no such buffer.
    void Take(const py::object& object, int nFlags) {
        if (PyObject_GetBuffer(object.ptr(), &m_view, nFlags) != 0) {
            m_view.obj = nullptr;
            throw py::error_already_set();
        }
    }

    const Py_buffer& View() const { return m_view; }

private:
    Py_buffer m_view{};
};

py::object ArrayOf(const py::object& self) {
    const auto& surface = self.cast<const Surface&>();
    surface.Get();
    const PixelLayout layout = surface.Layout();
    const auto nDimensions = static_cast<std::size_t>(layout.nDimensions);
    return py::array(py::dtype::of<std::uint8_t>(),
                     std::vector<Py_ssize_t>(layout.shape.begin(), layout.shape.begin() + nDimensions),
                     std::vector<Py_ssize_t>(layout.strides.begin(), layout.strides.begin() + nDimensions),
                     surface.Pixels().pData, self);
}

py::dict ArrayInterface(const Surface& surface) {
    surface.Get();
    const PixelLayout layout = surface.Layout();
    py::tuple shape(layout.nDimensions);
    py::tuple strides(layout.nDimensions);
    for (int i = 0; i < layout.nDimensions; ++i) {
        shape[static_cast<std::size_t>(i)] = layout.shape.at(static_cast<std::size_t>(i));
        strides[static_cast<std::size_t>(i)] = layout.strides.at(static_cast<std::size_t>(i));
    }
    py::dict about;
    about["version"] = 3;
    about["typestr"] = "|u1";
    about["shape"] = shape;
    about["strides"] = strides;
    about["data"] = py::make_tuple(reinterpret_cast<std::uintptr_t>(surface.Pixels().pData), false);
    return about;
}

// What a DLPack tensor of a surface needs as long as somebody has it.
struct Tensor {
    DLManagedTensor managed{};
    std::array<std::int64_t, PixelLayout::kMostDimensions> shape{};
    std::array<std::int64_t, PixelLayout::kMostDimensions> strides{};
    SharedObject surface;
};

void DeleteTensor(DLManagedTensor* pManaged) {
    const std::unique_ptr<Tensor> tensor(static_cast<Tensor*>(pManaged->pManagerContext));
}

// Nobody has taken the tensor out of its capsule.
void DeleteCapsule(PyObject* pCapsule) {
    if (PyCapsule_IsValid(pCapsule, "dltensor") != 0) {
        DeleteTensor(static_cast<DLManagedTensor*>(PyCapsule_GetPointer(pCapsule, "dltensor")));
    }
}

py::object DlPack(const py::object& self, const py::object& stream) {
    if (!stream.is_none()) {
        Raise(PyExc_BufferError, "a surface is in the processor's memory: there are no streams");
    }
    const auto& surface = self.cast<const Surface&>();
    surface.Get();
    const PixelLayout layout = surface.Layout();
    auto tensor = std::make_unique<Tensor>();
    for (std::size_t i = 0; i < tensor->shape.size(); ++i) {
        tensor->shape.at(i) = layout.shape.at(i);
        tensor->strides.at(i) = layout.strides.at(i);  // of elements, which are bytes
    }
    tensor->surface = SharedObject(self);
    DLTensor& about = tensor->managed.tensor;
    about.pData = surface.Pixels().pData;
    about.device = {kDLProcessor, 0};
    about.nDimensions = layout.nDimensions;
    about.type = {kDLUnsigned, 8, 1};
    about.pShape = tensor->shape.data();
    about.pStrides = tensor->strides.data();
    tensor->managed.pManagerContext = tensor.get();
    tensor->managed.pfnDeleter = &DeleteTensor;
    PyObject* pCapsule = PyCapsule_New(&tensor->managed, "dltensor", &DeleteCapsule);
    if (pCapsule == nullptr) {
        throw py::error_already_set();
    }
    static_cast<void>(tensor.release());  // the capsule's, or whose it becomes
    return py::reinterpret_steal<py::object>(pCapsule);
}

int GetBuffer(PyObject* pSelf, Py_buffer* pView, int nFlags) {
    try {
        const auto& surface = py::handle(pSelf).cast<const Surface&>();
        surface.Get();
        auto layout = std::make_unique<PixelLayout>(surface.Layout());
        const bool bStrides = (nFlags & PyBUF_STRIDES) == PyBUF_STRIDES;
        const bool bOrder = (nFlags & PyBUF_C_CONTIGUOUS) == PyBUF_C_CONTIGUOUS ||
                            (nFlags & PyBUF_ANY_CONTIGUOUS) == PyBUF_ANY_CONTIGUOUS;
        const bool bOtherOrder = (nFlags & PyBUF_F_CONTIGUOUS) == PyBUF_F_CONTIGUOUS && !bOrder;
        if (((!bStrides || bOrder) && !layout->IsContiguous()) || bOtherOrder) {
            PyErr_SetString(PyExc_BufferError, "the rows of this surface do not lie one behind the other");
            return -1;
        }
        pView->buf = surface.Pixels().pData;
        pView->len = layout->Bytes();
        pView->itemsize = 1;
        pView->readonly = 0;
        pView->ndim = (nFlags & PyBUF_ND) == PyBUF_ND ? layout->nDimensions : 1;
        pView->format = (nFlags & PyBUF_FORMAT) == PyBUF_FORMAT ? const_cast<char*>("B") : nullptr;
        pView->shape = (nFlags & PyBUF_ND) == PyBUF_ND ? layout->shape.data() : nullptr;
        pView->strides = bStrides ? layout->strides.data() : nullptr;
        pView->suboffsets = nullptr;
        pView->internal = layout.release();
        Py_INCREF(pSelf);
        pView->obj = pSelf;
        return 0;
    } catch (py::error_already_set& error) {
        error.restore();
    } catch (const std::exception& failure) {
        PyErr_SetString(PyExc_BufferError, failure.what());
    }
    pView->obj = nullptr;
    return -1;
}

void ReleaseBuffer(PyObject* /*pSelf*/, Py_buffer* pView) {
    const std::unique_ptr<PixelLayout> layout(static_cast<PixelLayout*>(pView->internal));
}

ETnNLImageType FormatOf(const Py_buffer& view, const py::object& format) {
    if (!format.is_none()) {
        return static_cast<ETnNLImageType>(NumberOf("ImageFormat", format));
    }
    const Py_ssize_t nChannels = view.ndim == PixelLayout::kMostDimensions ? view.shape[2] : 1;
    switch (nChannels) {
        case 1:
            return TN_IMAGE_GRAY8;
        case 3:
            return TN_IMAGE_BGR24;
        case 4:
            return TN_IMAGE_BGRX32;
        default:
            break;
    }
    Raise(PyExc_ValueError, "an array of pixels has 1, 3 or 4 channels");
}

// What an array says of its pixels. ValueError where it cannot be a picture of that format.
ITnRobotSurface::STnSurfaceDesc Describe(const Py_buffer& view, ETnNLImageType eFormat) {
    constexpr Py_ssize_t kMost = std::numeric_limits<int>::max();
    if (view.itemsize != 1 || view.format == nullptr || std::string(view.format) != "B") {
        Raise(PyExc_TypeError, "pixels are unsigned bytes: convert the array with .astype(numpy.uint8)");
    }
    if (view.ndim < 2 || view.ndim > PixelLayout::kMostDimensions) {
        Raise(PyExc_ValueError, "an array of pixels has the dimensions (rows, columns) or (rows, columns, channels)");
    }
    if (view.shape[0] < 1 || view.shape[1] < 1 || view.shape[0] > kMost || view.shape[1] > kMost) {
        Raise(PyExc_ValueError, "the array has no pixels, or too many");
    }
    const auto nRows = static_cast<int>(view.shape[0]);
    const auto nColumns = static_cast<int>(view.shape[1]);
    const Py_ssize_t nChannels = view.ndim == PixelLayout::kMostDimensions ? view.shape[2] : 1;
    if (eFormat == TN_IMAGE_420) {
        if (view.ndim != 2 || nRows % 3 != 0 || nColumns % 2 != 0) {
            Raise(PyExc_ValueError, "4:2:0 is an array of (height * 3 / 2, width), both even");
        }
        return {nColumns, nRows / 3 * 2, static_cast<int>(3LL * nColumns / 2), eFormat, {0, 0}};
    }
    if (nChannels != tn::BytesPerPixel(eFormat)) {
        Raise(PyExc_ValueError, "the array has another number of channels than the format");
    }
    const Py_ssize_t nRow = nColumns * nChannels;
    const Py_ssize_t nPitch = nRows == 1 ? nRow : view.strides[0];
    if (nRow > kMost || nPitch > kMost || nPitch < -kMost) {
        Raise(PyExc_ValueError, "the array's rows are too long");
    }
    return {nColumns, nRows, static_cast<int>(nPitch), eFormat, {0, 0}};
}

// Whether the bytes of a row lie one behind the other, and for 4:2:0 all of them.
bool HasPlainRows(const Py_buffer& view, const ITnRobotSurface::STnSurfaceDesc& desc) {
    const Py_ssize_t nChannels = view.ndim == PixelLayout::kMostDimensions ? view.shape[2] : 1;
    const bool bChannels = nChannels == 1 || view.strides[2] == 1;
    const bool bColumns = view.shape[1] == 1 || view.strides[1] == nChannels;
    const bool bRows = desc.eImageType != TN_IMAGE_420 || view.strides[0] == view.shape[1];
    return bChannels && bColumns && bRows;
}

// Copies an array of any layout, element by element in its own order.
std::unique_ptr<Surface> CopyArray(const TnRobotPtr<ITnRobotSurfacePool>& pool, const Py_buffer& view,
                                   ITnRobotSurface::STnSurfaceDesc desc) {
    TnRobotPtr<ITnRobotSurface> surface;
    std::error_code reason;
    {
        const WithoutGil others;
        surface = tn::QuerySurface(*pool, desc, reason);
        const tn::LockedPixels pixels(surface);
        const Py_ssize_t nChannels = view.ndim == PixelLayout::kMostDimensions ? view.shape[2] : 1;
        const Py_ssize_t nChannelStep = view.ndim == PixelLayout::kMostDimensions ? view.strides[2] : 0;
        const Py_ssize_t nRow = view.shape[1] * nChannels;
        const bool bPlain = HasPlainRows(view, desc);
        const Py_ssize_t nPitch = desc.eImageType == TN_IMAGE_420 ? view.shape[1] : pixels.Pitch();
        unsigned char* pPixels = pixels.Lock().pData;
        if (pPixels != nullptr) {
            std::memset(pPixels, 0, pixels.Lock().nDataSize);
        }
        for (Py_ssize_t i = 0; pPixels != nullptr && i < view.shape[0]; ++i) {
            const auto* pSource = static_cast<const unsigned char*>(view.buf) + i * view.strides[0];
            unsigned char* pTarget = pPixels + i * nPitch;
            if (bPlain) {
                std::memcpy(pTarget, pSource, static_cast<std::size_t>(nRow));
                continue;
            }
            for (Py_ssize_t j = 0; j < nRow; ++j) {
                pTarget[j] = pSource[j / nChannels * view.strides[1] + j % nChannels * nChannelStep];
            }
        }
    }
    return NewSurface(pool, std::move(surface), reason);
}

// Bytes that belong to an array of NumPy's from its first pixel on; 0 where nobody knows of more than the pixels. The
// arrays are asked themselves, not their attributes, which a subclass may have changed.
Py_ssize_t ReachOf(const py::object& array, const void* pPixels) {
    const auto isArray = [](const py::object& object) { return py::isinstance<py::array>(object); };
    py::object whole = array;
    while (isArray(whole) && py::detail::array_proxy(whole.ptr())->base != nullptr) {
        whole = py::reinterpret_borrow<py::object>(py::detail::array_proxy(whole.ptr())->base);
    }
    const char* pBegin = nullptr;
    Py_ssize_t nBytes = 0;
    if (isArray(whole)) {
        const auto all = py::reinterpret_borrow<py::array>(whole);
        const bool bPlain = (all.flags() & py::detail::npy_api::NPY_ARRAY_C_CONTIGUOUS_) != 0;
        pBegin = static_cast<const char*>(all.data());
        nBytes = bPlain ? all.nbytes() : 0;
    } else if (py::isinstance<Surface>(whole)) {
        const ITnRobotSurface::STnLockSurface& pixels = whole.cast<const Surface&>().Pixels();
        pBegin = reinterpret_cast<const char*>(pixels.pData);
        nBytes = Py_ssize_t{pixels.nPitch} * pixels.nHeight;
    }
    const auto* pFirst = static_cast<const char*>(pPixels);
    const bool bInside = nBytes != 0 && pFirst >= pBegin && pFirst <= pBegin + nBytes;
    return bInside ? pBegin + nBytes - pFirst : 0;
}

std::unique_ptr<Surface> OverArray(const py::object& array, const py::object& format) {
    auto buffer = std::make_shared<HeldBuffer>();
    buffer->Take(array, PyBUF_RECORDS);
    const Py_buffer& view = buffer->View();
    const ITnRobotSurface::STnSurfaceDesc desc = Describe(view, FormatOf(view, format));
    const Py_ssize_t nRow = desc.eImageType == TN_IMAGE_420 ? desc.nPitch : view.len / view.shape[0];
    if (!HasPlainRows(view, desc) || desc.nPitch < nRow) {
        Raise(PyExc_ValueError,
              "the bytes of a row do not lie one behind the other, from the top row down: pass copy=True");
    }
    const Py_ssize_t nBytes = std::max(ReachOf(array, view.buf), (desc.nHeight - 1) * Py_ssize_t{desc.nPitch} + nRow);
    if (nBytes < Py_ssize_t{desc.nPitch} * desc.nHeight) {
        Raise(PyExc_ValueError,
              "the array ends before its last row reaches up to the next one's place, as a surface's does: pass "
              "copy=True");
    }
    std::error_code reason;
    auto* pPixels = static_cast<unsigned char*>(view.buf);
    TnRobotPtr<ITnRobotSurface> surface =
        tn::SurfaceOver(pPixels, static_cast<std::size_t>(nBytes), desc, std::move(buffer), reason);
    return NewSurface(nullptr, std::move(surface), reason);
}

std::unique_ptr<Surface> FromCopy(const py::object& array, const py::object& format, const SurfacePool* pPool) {
    HeldBuffer buffer;
    buffer.Take(array, PyBUF_RECORDS_RO);
    const Py_buffer& view = buffer.View();
    return CopyArray(PoolOrDefault(pPool), view, Describe(view, FormatOf(view, format)));
}

}  // namespace

Py_ssize_t PixelLayout::Bytes() const {
    Py_ssize_t nBytes = 1;
    for (std::size_t i = 0; i < static_cast<std::size_t>(nDimensions); ++i) {
        nBytes *= shape.at(i);
    }
    return nBytes;
}

bool PixelLayout::IsContiguous() const {
    return shape[0] == 1 || strides[0] * shape[0] == Bytes();
}

PixelLayout Surface::Layout() const {
    const Py_ssize_t nWidth = m_pixels.nWidth;
    const Py_ssize_t nHeight = m_pixels.nHeight;
    const Py_ssize_t nPitch = m_pixels.nPitch;
    if (m_pixels.eImageType == TN_IMAGE_420) {
        if (nWidth % 2 != 0 || nHeight % 2 != 0) {
            Raise(tn::make_error_code(tn::errc::format_not_supported));
        }
        return {2, {nHeight / 2 * 3, nWidth, 0}, {nWidth, 1, 0}};
    }
    const Py_ssize_t nBytes = tn::BytesPerPixel(m_pixels.eImageType);
    return nBytes == 1 ? PixelLayout{2, {nHeight, nWidth, 0}, {nPitch, 1, 0}}
                       : PixelLayout{3, {nHeight, nWidth, nBytes}, {nPitch, nBytes, 1}};
}

void SetSurfaceBuffers(PyHeapTypeObject* pType) {
    pType->ht_type.tp_as_buffer = &pType->as_buffer;
    pType->as_buffer.bf_getbuffer = &GetBuffer;
    pType->as_buffer.bf_releasebuffer = &ReleaseBuffer;
}

void BindArrays(py::module_& module, py::class_<Surface>& surface) {
    surface
        .def_property_readonly("array", &ArrayOf,
                               R"(The pixels as a NumPy array of bytes, without a copy.

It is (height, width) for one byte per pixel, (height, width, 3 or 4) for more, and (height * 3 / 2, width) for
4:2:0. Writing to it writes to the surface, which lives as long as the array.)")
        .def_property_readonly("__array_interface__", &ArrayInterface, "What NumPy asks for.")
        .def("__dlpack__", &DlPack, py::kw_only(), py::arg("stream") = py::none(),
             "The pixels as a DLPack capsule, without a copy.")
        .def(
            "__dlpack_device__", [](const Surface& /*self*/) { return std::make_pair(int{kDLProcessor}, 0); },
            "The processor's memory.");
    module.def("_over_array", &OverArray, py::arg("array"), py::arg("format"));
    module.def("_copy_array", &FromCopy, py::arg("array"), py::arg("format"), py::arg("pool"));
}

}  // namespace tnrobot::python
