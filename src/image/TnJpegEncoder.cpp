// libjpeg takes the record's rows one by one and fills a small buffer, which is appended to the result
// whenever it is full.

#include "image/TnJpegEncoder.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>

#include "image/TnImageGeometry.h"
#include "image/TnJpegError.h"

namespace {

constexpr int kLibraryVersion = 62;
constexpr int kQuality = 95;
constexpr std::size_t kBufferSize = 4096;

// What libjpeg writes to: a working buffer that is appended to the output whenever it is full. The
// manager comes first: libjpeg hands back a pointer to it.
struct Destination {
    jpeg_destination_mgr m_base;
    std::vector<unsigned char>* m_pOutput;
    unsigned char m_buffer[kBufferSize];
};

struct EncodeContext {
    jpeg_compress_struct m_jpeg;
    STnJpegErrorManager m_errors;
    Destination m_destination;
};

// How libjpeg sees a record: where its rows are and what their bytes mean.
struct Picture {
    const unsigned char* m_pData;
    JDIMENSION m_nWidth;
    JDIMENSION m_nHeight;
    std::size_t m_nPitch;
    tnrobot::JpegFormat m_format;
};

void InitNothing(j_compress_ptr /*pJpeg*/) {}

// @return whether the bytes were appended. Exceptions must not cross libjpeg, which knows nothing
// about them, and the output's size must fit what the encoder reports.
bool Append(Destination& destination, std::size_t nCount) {
    std::vector<unsigned char>& output = *destination.m_pOutput;
    if (output.size() + nCount > std::numeric_limits<unsigned int>::max()) {
        return false;
    }
    try {
        output.insert(output.end(), destination.m_buffer, destination.m_buffer + nCount);
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
    return true;
}

void AppendOrJump(j_compress_ptr pJpeg, std::size_t nCount) {
    if (!Append(*reinterpret_cast<Destination*>(pJpeg->dest), nCount)) {
        tnrobot::JumpOutOfJpeg(reinterpret_cast<j_common_ptr>(pJpeg));
    }
}

void RewindBuffer(Destination& destination) {
    destination.m_base.next_output_byte = destination.m_buffer;
    destination.m_base.free_in_buffer = kBufferSize;
}

// The buffer counts as full whatever free_in_buffer says: that is how libjpeg calls this.
boolean EmptyOutputBuffer(j_compress_ptr pJpeg) {
    AppendOrJump(pJpeg, kBufferSize);
    RewindBuffer(*reinterpret_cast<Destination*>(pJpeg->dest));
    return TRUE;
}

void TermDestination(j_compress_ptr pJpeg) {
    AppendOrJump(pJpeg, kBufferSize - pJpeg->dest->free_in_buffer);
}

void InitDestination(Destination& destination, std::vector<unsigned char>& output) {
    destination.m_pOutput = &output;
    destination.m_base.init_destination = InitNothing;
    destination.m_base.empty_output_buffer = EmptyOutputBuffer;
    destination.m_base.term_destination = TermDestination;
    RewindBuffer(destination);
}

void SetParameters(jpeg_compress_struct& jpeg, const Picture& picture) {
    jpeg.image_width = picture.m_nWidth;
    jpeg.image_height = picture.m_nHeight;
    jpeg.input_components = picture.m_format.m_nComponents;
    jpeg.in_color_space = picture.m_format.m_eColourSpace;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, kQuality, TRUE);
    jpeg.comp_info[0].h_samp_factor = 1;
    jpeg.comp_info[0].v_samp_factor = 1;
}

void WriteRows(jpeg_compress_struct& jpeg, const Picture& picture) {
    while (jpeg.next_scanline < jpeg.image_height) {
        // libjpeg takes a pointer to changeable bytes, but only reads them.
        auto* pRow = const_cast<JSAMPROW>(picture.m_pData + jpeg.next_scanline * picture.m_nPitch);
        jpeg_write_scanlines(&jpeg, &pRow, 1);
    }
}

bool EncodePicture(EncodeContext& context, const Picture& picture) {
    if (setjmp(context.m_errors.m_jump) != 0) {
        return false;
    }
    jpeg_compress_struct& jpeg = context.m_jpeg;
    jpeg_CreateCompress(&jpeg, kLibraryVersion, sizeof(jpeg));
    jpeg.dest = &context.m_destination.m_base;
    SetParameters(jpeg, picture);
    jpeg_start_compress(&jpeg, TRUE);
    WriteRows(jpeg, picture);
    jpeg_finish_compress(&jpeg);
    return true;
}

void DestroyEncoder(EncodeContext& context) {
    if (setjmp(context.m_errors.m_jump) == 0) {
        jpeg_destroy_compress(&context.m_jpeg);
    }
}

// @return bytes from one row to the next; 0 when the record does not hold its rows. Surfaces of
// one-byte pixels are packed, so data that is too short for aligned rows is taken as such.
std::int64_t RowPitch(const STnNLImageData& image, int nPixelSize, int nKnownPitch) {
    const std::int64_t nRow = std::int64_t{image.nWidth} * nPixelSize;
    if (nKnownPitch >= nRow && tnrobot::RowLayout{image.nHeight, nRow, nKnownPitch}.FitsInto(image.nDataSize)) {
        return nKnownPitch;
    }
    const std::int64_t nAligned = tnrobot::AlignTo4(nRow);
    if (tnrobot::RowLayout{image.nHeight, nRow, nAligned}.FitsInto(image.nDataSize)) {
        return nAligned;
    }
    const bool bPacked = nPixelSize == 1 && tnrobot::RowLayout{image.nHeight, nRow, nRow}.FitsInto(image.nDataSize);
    return bPacked ? nRow : 0;
}

}  // namespace

bool CTnJpegEncoder::Encode(const STnNLImageData& image, int nPitch) {
    m_jpeg.clear();
    const tnrobot::JpegFormat format = tnrobot::JpegFormatOf(image.eImageType);
    const std::int64_t nRowPitch = RowPitch(image, format.m_nComponents, nPitch);
    if (image.pData == nullptr || nRowPitch == 0) {
        return false;
    }
    const Picture picture = {image.pData, static_cast<JDIMENSION>(image.nWidth), static_cast<JDIMENSION>(image.nHeight),
                             static_cast<std::size_t>(nRowPitch), format};
    EncodeContext context{};
    context.m_jpeg.err = tnrobot::InitJpegErrors(context.m_errors);
    InitDestination(context.m_destination, m_jpeg);
    // Most pictures fit half of their size, and what stays unused of it costs no memory; growing
    // step by step costs a tenth of the time.
    m_jpeg.reserve(picture.m_nPitch * picture.m_nHeight / 2);
    const bool bEncoded = EncodePicture(context, picture);
    DestroyEncoder(context);
    if (!bEncoded) {
        m_jpeg.clear();
    }
    return bEncoded;
}

const unsigned char* CTnJpegEncoder::GetEncodeData(unsigned int& nSize) const {
    nSize = static_cast<unsigned int>(m_jpeg.size());
    return m_jpeg.data();
}
