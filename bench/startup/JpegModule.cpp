// What there is below any library: a number on the heap, and libjpeg's own calls.

#include <cstddef>
#include <cstdio>
#include <memory>
#include <vector>

// libjpeg's header needs the standard ones above.
#include <jpeglib.h>

#include "startup/Probed.h"

int FirstValue(int nNumber) {
    const auto pNumber = std::make_unique<volatile int>(nNumber);
    return *pNumber;
}

int FirstPicture(const unsigned char* pData, unsigned int nLength) {
    jpeg_decompress_struct info;
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, pData, nLength);
    jpeg_read_header(&info, TRUE);
    jpeg_start_decompress(&info);
    std::vector<unsigned char> pixels(std::size_t{3} * info.output_width * info.output_height);
    while (info.output_scanline < info.output_height) {
        JSAMPROW pRow = pixels.data() + std::size_t{3} * info.output_width * info.output_scanline;
        jpeg_read_scanlines(&info, &pRow, 1);
    }
    const int nWidth = pixels.empty() ? 0 : static_cast<int>(info.output_width);
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    return nWidth;
}
