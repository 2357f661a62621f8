// A piece ends where a scan's coded pixels end. Whoever asks for more while rows of the scan are
// missing is the decoder, and gets a zero; afterwards it is the reader of markers, which gets the next
// piece.

#include "image/TnJpegSource.h"

#include <jerror.h>

#include <algorithm>
#include <cstddef>

#include "image/TnJpegOutline.h"

namespace tnrobot {

namespace {

const JOCTET kZero = 0;
const JOCTET kEndOfImage[] = {0xFF, 0xD9};

ArithmeticSource& Source(j_decompress_ptr pJpeg) {
    return *reinterpret_cast<ArithmeticSource*>(pJpeg->src);
}

void Give(ArithmeticSource& source, const JOCTET* pBytes, std::ptrdiff_t nCount) {
    source.m_base.next_input_byte = pBytes;
    source.m_base.bytes_in_buffer = static_cast<std::size_t>(nCount);
}

void InitNothing(j_decompress_ptr /*pJpeg*/) {}

// A scan that only refines the first coefficient of each block takes one bit of it, whatever the
// picture: that is no work to speak of, and of flat pictures such a scan has nothing but zeros.
bool IsCheapScan(const jpeg_decompress_struct& jpeg) {
    return jpeg.Ss == 0 && jpeg.Ah != 0;
}

void GiveZero(j_decompress_ptr pJpeg) {
    ArithmeticSource& source = Source(pJpeg);
    if (!IsCheapScan(*pJpeg) && source.m_nZeros-- <= 0) {
        JumpOutOfJpeg(reinterpret_cast<j_common_ptr>(pJpeg));
    }
    Give(source, &kZero, 1);
}

// Fill bytes before a marker belong to it: the decoder would take them for coded pixels.
// @param[in] pCoded  where coded pixels start in the piece.
void GivePiece(ArithmeticSource& source, const unsigned char* pPiece, const unsigned char* pCoded) {
    const unsigned char* pMarker = FindScanEnd(pCoded, source.m_pEnd);
    while (pMarker != pCoded && pMarker[-1] == kEndOfImage[0]) {
        --pMarker;
    }
    source.m_pNext = pMarker;
    Give(source, pPiece, pMarker - pPiece);
}

// Input that ends without saying so is ended here, as libjpeg's own source does.
void GiveNextPiece(j_decompress_ptr pJpeg) {
    ArithmeticSource& source = Source(pJpeg);
    if (source.m_pNext != source.m_pEnd) {
        GivePiece(source, source.m_pNext, FindScanData(source.m_pNext, source.m_pEnd));
        return;
    }
    pJpeg->err->msg_code = JWRN_JPEG_EOF;
    pJpeg->err->emit_message(reinterpret_cast<j_common_ptr>(pJpeg), -1);
    Give(source, kEndOfImage, sizeof(kEndOfImage));
}

// Between restarts markers are read within a scan.
boolean FillInputBuffer(j_decompress_ptr pJpeg) {
    if (pJpeg->input_iMCU_row < pJpeg->total_iMCU_rows && pJpeg->restart_interval == 0) {
        GiveZero(pJpeg);
    } else {
        GiveNextPiece(pJpeg);
    }
    return TRUE;
}

// Segments lie within a piece, so only broken ones reach beyond it.
void SkipInputData(j_decompress_ptr pJpeg, long nCount) {
    jpeg_source_mgr& base = Source(pJpeg).m_base;
    const std::size_t nSkip = std::min(static_cast<std::size_t>(std::max(nCount, 0L)), base.bytes_in_buffer);
    base.next_input_byte += nSkip;
    base.bytes_in_buffer -= nSkip;
}

}  // namespace

void UseArithmeticSource(jpeg_decompress_struct& jpeg, ArithmeticSource& source, std::int64_t nZeros) {
    const unsigned char* pRest = jpeg.src->next_input_byte;
    source.m_pEnd = pRest + jpeg.src->bytes_in_buffer;
    source.m_nZeros = nZeros;
    source.m_base.init_source = InitNothing;
    source.m_base.fill_input_buffer = FillInputBuffer;
    source.m_base.skip_input_data = SkipInputData;
    source.m_base.resync_to_restart = jpeg_resync_to_restart;
    source.m_base.term_source = InitNothing;
    GivePiece(source, pRest, pRest);
    jpeg.src = &source.m_base;
}

}  // namespace tnrobot
