#include "support/bytes/PlainJpeg.h"

#include <csetjmp>
#include <cstdlib>
#include <stdexcept>

namespace tntest {

namespace {

struct Errors {
    jpeg_error_mgr base;
    jmp_buf jump;
};

[[noreturn]] void JumpOut(j_common_ptr pCommon) {
    longjmp(reinterpret_cast<Errors*>(pCommon->err)->jump, 1);
}

void SayNothing(j_common_ptr /*pCommon*/) {}

jpeg_error_mgr* QuietErrors(Errors& errors) {
    jpeg_std_error(&errors.base);
    errors.base.error_exit = JumpOut;
    errors.base.output_message = SayNothing;
    return &errors.base;
}

// Nothing with a destructor lives in the functions that a jump may leave.

struct Encoding {
    jpeg_compress_struct info;
    Errors errors;
    unsigned char* pOut;
    unsigned long nOut;
};

bool Compress(Encoding& e, const JpegRecipe& recipe, const unsigned char* pPixels) {
    if (setjmp(e.errors.jump) != 0) {
        return false;
    }
    jpeg_create_compress(&e.info);
    jpeg_mem_dest(&e.info, &e.pOut, &e.nOut);
    e.info.image_width = static_cast<JDIMENSION>(recipe.nWidth);
    e.info.image_height = static_cast<JDIMENSION>(recipe.nHeight);
    e.info.input_components = recipe.nComponents;
    e.info.in_color_space = recipe.eInput;
    jpeg_set_defaults(&e.info);
    if (recipe.eStored != JCS_UNKNOWN) {
        jpeg_set_colorspace(&e.info, recipe.eStored);
    }
    jpeg_set_quality(&e.info, recipe.nQuality, TRUE);
    if (recipe.nSampling != 0) {
        e.info.comp_info[0].h_samp_factor = recipe.nSampling;
        e.info.comp_info[0].v_samp_factor = recipe.nSampling;
    }
    e.info.arith_code = recipe.bArithmetic ? TRUE : FALSE;
    e.info.optimize_coding = recipe.bOptimised ? TRUE : FALSE;
    e.info.restart_in_rows = static_cast<int>(recipe.nRestartRows);
    if (recipe.bProgressive) {
        jpeg_simple_progression(&e.info);
    }
    jpeg_start_compress(&e.info, TRUE);
    const std::size_t nRow = static_cast<std::size_t>(recipe.nWidth) * static_cast<std::size_t>(recipe.nComponents);
    while (e.info.next_scanline < e.info.image_height) {
        JSAMPROW pRow = const_cast<JSAMPROW>(pPixels + e.info.next_scanline * nRow);
        jpeg_write_scanlines(&e.info, &pRow, 1);
    }
    jpeg_finish_compress(&e.info);
    return true;
}

struct Decoding {
    jpeg_decompress_struct info;
    Errors errors;
};

bool ReadHeaderOf(Decoding& d, const unsigned char* pJpeg, std::size_t nSize) {
    if (setjmp(d.errors.jump) != 0) {
        return false;
    }
    jpeg_create_decompress(&d.info);
    jpeg_mem_src(&d.info, pJpeg, static_cast<unsigned long>(nSize));
    jpeg_read_header(&d.info, TRUE);
    return true;
}

bool ReadRowsOf(Decoding& d, unsigned char* pPixels, std::size_t nRow) {
    if (setjmp(d.errors.jump) != 0) {
        return false;
    }
    jpeg_start_decompress(&d.info);
    while (d.info.output_scanline < d.info.output_height) {
        JSAMPROW pRow = pPixels + d.info.output_scanline * nRow;
        jpeg_read_scanlines(&d.info, &pRow, 1);
    }
    return jpeg_finish_decompress(&d.info) != 0;
}

}  // namespace

Bytes EncodePlain(const JpegRecipe& recipe, const Bytes& pixels) {
    const std::size_t nNeeded = static_cast<std::size_t>(recipe.nWidth) * static_cast<std::size_t>(recipe.nHeight) *
                                static_cast<std::size_t>(recipe.nComponents);
    if (pixels.size() < nNeeded) {
        throw std::invalid_argument("not enough pixels for the recipe");
    }
    Encoding e{};
    e.info.err = QuietErrors(e.errors);
    const bool bDone = Compress(e, recipe, pixels.data());
    jpeg_destroy_compress(&e.info);
    Bytes jpeg(e.pOut, e.pOut + e.nOut);
    std::free(e.pOut);
    if (!bDone) {
        throw std::runtime_error("libjpeg refuses the recipe");
    }
    return jpeg;
}

JpegPicture DecodePlain(const Bytes& jpeg, J_COLOR_SPACE eOutput, int nComponents, std::size_t nMostBytes) {
    JpegPicture picture;
    Decoding d{};
    d.info.err = QuietErrors(d.errors);
    picture.bHeader = ReadHeaderOf(d, jpeg.data(), jpeg.size());
    if (picture.bHeader) {
        picture.nWidth = static_cast<int>(d.info.image_width);
        picture.nHeight = static_cast<int>(d.info.image_height);
        const std::size_t nRow = std::size_t{d.info.image_width} * static_cast<std::size_t>(nComponents);
        if (nRow * d.info.image_height <= nMostBytes) {
            d.info.out_color_space = eOutput;
            picture.pixels.resize(nRow * d.info.image_height);
            picture.bPixels = ReadRowsOf(d, picture.pixels.data(), nRow);
        }
    }
    jpeg_destroy_decompress(&d.info);
    return picture;
}

JpegFacts ReadFacts(const Bytes& jpeg) {
    JpegFacts facts;
    Decoding d{};
    d.info.err = QuietErrors(d.errors);
    if (!ReadHeaderOf(d, jpeg.data(), jpeg.size())) {
        jpeg_destroy_decompress(&d.info);
        throw std::runtime_error("no JPEG");
    }
    facts.nWidth = static_cast<int>(d.info.image_width);
    facts.nHeight = static_cast<int>(d.info.image_height);
    facts.eStored = d.info.jpeg_color_space;
    facts.bProgressive = d.info.progressive_mode != 0;
    facts.bArithmetic = d.info.arith_code != 0;
    facts.bJfif = d.info.saw_JFIF_marker != 0;
    for (int i = 0; i < d.info.num_components; ++i) {
        const jpeg_component_info& component = d.info.comp_info[i];
        facts.sampling.push_back({component.h_samp_factor, component.v_samp_factor});
        const JQUANT_TBL* pTable = d.info.quant_tbl_ptrs[component.quant_tbl_no];
        std::array<unsigned int, DCTSIZE2> quantiser{};
        for (std::size_t k = 0; pTable != nullptr && k < quantiser.size(); ++k) {
            quantiser[k] = pTable->quantval[k];
        }
        facts.quantisers.push_back(quantiser);
    }
    jpeg_destroy_decompress(&d.info);
    return facts;
}

namespace {

// Bits from the highest to the lowest of each byte; a zero follows every byte of ones.
class EntropyBits {
public:
    void Put(unsigned int nBits, int nCount) {
        for (int i = nCount - 1; i >= 0; --i) {
            m_nByte = (m_nByte << 1) | ((nBits >> i) & 1U);
            if (++m_nHeld == 8) {
                Flush();
            }
        }
    }
    Bytes Finish() {
        while (m_nHeld != 0) {
            Put(1, 1);
        }
        return m_bytes;
    }

private:
    void Flush() {
        m_bytes.push_back(static_cast<unsigned char>(m_nByte));
        if (m_nByte == 0xFF) {
            m_bytes.push_back(0);
        }
        m_nByte = 0;
        m_nHeld = 0;
    }

    Bytes m_bytes;
    unsigned int m_nByte = 0;
    int m_nHeld = 0;
};

}  // namespace

Bytes EmptyProgressiveJpeg(int nWidth, int nHeight, int nScans) {
    const auto Big16 = [](int n) { return U8(static_cast<unsigned int>(n) >> 8 & 0xFF) + U8(n & 0xFF); };
    Bytes jpeg = FromHex("FFD8 FFDB 0043 00") + Bytes(64, 1);
    jpeg = jpeg + FromHex("FFC2 000B 08") + Big16(nHeight) + Big16(nWidth) + FromHex("01 01 11 00");
    // One code of one bit: "16384 blocks without anything, and as many more as the next 14 bits say".
    jpeg = jpeg + FromHex("FFC4 0014 10") + FromHex("01") + Bytes(15, 0) + FromHex("E0");
    constexpr long long kBlocksPerRun = 32767;
    const long long nBlocks = ((nWidth + 7LL) / 8) * ((nHeight + 7LL) / 8);
    EntropyBits bits;
    for (long long n = 0; n < nBlocks; n += kBlocksPerRun) {
        bits.Put(0x3FFF, 15);
    }
    const Bytes scan = FromHex("FFDA 0008 01 01 00 01 3F 00") + bits.Finish();
    for (int i = 0; i < nScans; ++i) {
        jpeg.insert(jpeg.end(), scan.begin(), scan.end());
    }
    return jpeg + FromHex("FFD9");
}

namespace {

struct Marker {
    std::size_t nAt;
    std::size_t nData;  // behind its segment
    unsigned int nCode;
};

// Of a JPEG that is in order. Restarts are pixels here.
std::vector<Marker> MarkersOf(const Bytes& jpeg) {
    std::vector<Marker> markers;
    for (std::size_t i = 0; i + 1 < jpeg.size();) {
        const unsigned int nCode = jpeg[i + 1];
        if (jpeg[i] != 0xFF || nCode == 0 || nCode == 0xFF || (nCode >= 0xD0 && nCode <= 0xD7)) {
            ++i;
            continue;
        }
        const bool bSegment = nCode != 0xD8 && nCode != 0xD9;
        const std::size_t nLength = bSegment ? static_cast<std::size_t>(jpeg[i + 2]) << 8 | jpeg[i + 3] : 0;
        markers.push_back({i, i + 2 + nLength, nCode});
        i += 2 + nLength;
    }
    return markers;
}

Bytes Part(const Bytes& jpeg, std::size_t nFrom, std::size_t nTo) {
    return Bytes(jpeg.begin() + static_cast<std::ptrdiff_t>(nFrom), jpeg.begin() + static_cast<std::ptrdiff_t>(nTo));
}

constexpr unsigned int kStartOfScan = 0xDA;

}  // namespace

Bytes RepeatLastScan(const Bytes& jpeg, int nScans) {
    std::size_t nLast = 0;
    std::size_t nEnd = 0;
    for (const Marker& marker : MarkersOf(jpeg)) {
        nLast = marker.nCode == kStartOfScan ? marker.nAt : nLast;
        nScans -= marker.nCode == kStartOfScan ? 1 : 0;
        nEnd = marker.nAt;
    }
    const Bytes scan = Part(jpeg, nLast, nEnd);
    Bytes repeated = Part(jpeg, 0, nEnd);
    for (int i = 0; i < nScans; ++i) {
        repeated.insert(repeated.end(), scan.begin(), scan.end());
    }
    return repeated + FromHex("FFD9");
}

Bytes AddComments(const Bytes& jpeg, std::size_t nBytes) {
    constexpr std::size_t kLargest = 65535;
    Bytes comments;
    while (comments.size() < nBytes) {
        comments = comments + FromHex("FFFE FFFF") + Bytes(kLargest - 2, 'c');
    }
    return Part(jpeg, 0, 2) + comments + Part(jpeg, 2, jpeg.size());
}

Bytes AddFillBytes(const Bytes& jpeg) {
    Bytes filled = Part(jpeg, 0, 2);
    std::size_t nDone = 2;
    for (const Marker& marker : MarkersOf(jpeg)) {
        if (marker.nAt > 0) {
            filled = filled + Part(jpeg, nDone, marker.nAt) + FromHex("FF");
            nDone = marker.nAt;
        }
    }
    return filled + Part(jpeg, nDone, jpeg.size());
}

Bytes CutFirstScan(const Bytes& jpeg, std::size_t nBytes) {
    for (const Marker& marker : MarkersOf(jpeg)) {
        if (marker.nCode == kStartOfScan) {
            return Part(jpeg, 0, marker.nData + nBytes) + FromHex("FFD9");
        }
    }
    throw std::invalid_argument("no scan");
}

void PatchSize(Bytes& jpeg, unsigned int nWidth, unsigned int nHeight) {
    for (std::size_t i = 2; i + 9 < jpeg.size();) {
        const unsigned int nMarker = jpeg[i + 1];
        if ((nMarker >= 0xC0 && nMarker <= 0xC2) || nMarker == 0xC9 || nMarker == 0xCA) {
            jpeg[i + 5] = static_cast<unsigned char>(nHeight >> 8);
            jpeg[i + 6] = static_cast<unsigned char>(nHeight & 0xFF);
            jpeg[i + 7] = static_cast<unsigned char>(nWidth >> 8);
            jpeg[i + 8] = static_cast<unsigned char>(nWidth & 0xFF);
            return;
        }
        i += 2 + (static_cast<std::size_t>(jpeg[i + 2]) << 8 | jpeg[i + 3]);
    }
    throw std::invalid_argument("no frame header");
}

}  // namespace tntest
