// Keeps the two headers of a BMP and its rows whole: fields follow what happens to the rows, but for one
// that is changed now and then.

#include "FuzzMutator.h"

using namespace tnfuzz;

namespace {

constexpr std::size_t kHeaders = 54;
constexpr std::size_t kFileSize = 2;
constexpr std::size_t kDataOffset = 10;
constexpr std::size_t kWidth = 18;
constexpr std::size_t kHeight = 22;
constexpr std::size_t kBits = 28;
constexpr std::size_t kImageSize = 34;

std::uint32_t Field(const Bytes& bytes, std::size_t nAt, std::size_t nBytes = 4) {
    std::uint32_t nValue = 0;
    std::memcpy(&nValue, bytes.data() + nAt, nBytes);
    return nValue;
}

void SetField(Bytes& bytes, std::size_t nAt, std::uint32_t nValue, std::size_t nBytes = 4) {
    std::memcpy(bytes.data() + nAt, &nValue, nBytes);
}

// Headers and what lies behind them, rows, and what follows.
struct Bmp {
    Bytes head;
    Pieces rows;
    Bytes rest;
};

std::size_t RowSize(const Bytes& head) {
    return std::size_t{Field(head, kWidth)} * (Field(head, kBits, 2) / 8);
}

bool Split(const Bytes& bytes, Bmp& bmp) {
    if (bytes.size() < kHeaders) {
        return false;
    }
    const std::size_t nRow = RowSize(bytes);
    std::size_t nAt = Field(bytes, kDataOffset);
    if (nRow == 0 || nAt < kHeaders || nAt > bytes.size()) {
        return false;
    }
    const auto Part = [&bytes](std::size_t nFrom, std::size_t nTo) {
        return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(nFrom),
                     bytes.begin() + static_cast<std::ptrdiff_t>(nTo));
    };
    bmp.head = Part(0, nAt);
    for (; nAt + nRow <= bytes.size(); nAt += nRow) {
        bmp.rows.push_back(Part(nAt, nAt + nRow));
    }
    bmp.rest = Part(nAt, bytes.size());
    return true;
}

// Another width, or another number of bytes for each pixel.
void ReshapeRows(Bmp& bmp, Choice& choice) {
    static constexpr std::uint32_t kDepths[] = {8, 16, 24, 32};
    if (choice.OneIn(3)) {
        SetField(bmp.head, kBits, kDepths[choice.Below(std::size(kDepths))], 2);
    } else {
        SetField(bmp.head, kWidth, static_cast<std::uint32_t>(1 + choice.Below(20)));
    }
    for (Bytes& row : bmp.rows) {
        row.resize(RowSize(bmp.head));
    }
}

// One of all fields, as it may come from anywhere.
void SpoilField(Bytes& bytes, Choice& choice) {
    static constexpr std::size_t kFields[] = {0,     kFileSize, 6,          kDataOffset, 14, kWidth, kHeight, 26,
                                              kBits, 30,        kImageSize, 38,          42, 46,     50};
    const std::size_t nField = kFields[choice.Below(std::size(kFields))];
    const bool bShort = nField == 0 || nField == 26 || nField == kBits;
    SetField(bytes, nField, choice.OneIn(2) ? choice.Number() : Field(bytes, nField) + 1, bShort ? 2 : 4);
}

Bytes MutateBmp(const Bytes& bytes, Choice& choice) {
    Bmp bmp;
    if (!Split(bytes, bmp)) {
        return {};
    }
    switch (choice.Below(5)) {
        case 0:
        case 1:
            Rearrange(bmp.rows, choice);
            break;
        case 2:
            ReshapeRows(bmp, choice);
            break;
        case 3:
            bmp.head.resize(choice.OneIn(2) ? kHeaders : kHeaders + choice.Below(12));
            SetField(bmp.head, kDataOffset, static_cast<std::uint32_t>(bmp.head.size()));
            break;
        default:
            MutateBehind(bmp.rest, 0, 8);
    }
    // Fewer rows than the height are a picture all the same.
    const std::size_t nRows = bmp.rows.size() * RowSize(bmp.head);
    if (!choice.OneIn(4)) {
        SetField(bmp.head, kHeight, static_cast<std::uint32_t>(bmp.rows.size()));
    }
    SetField(bmp.head, kImageSize, choice.OneIn(3) ? 0 : static_cast<std::uint32_t>(nRows));
    SetField(bmp.head, kFileSize, static_cast<std::uint32_t>(bmp.head.size() + nRows + bmp.rest.size()));
    if (choice.OneIn(4)) {
        SpoilField(bmp.head, choice);
    }
    return bmp.head + Join(bmp.rows) + bmp.rest;
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* pData, std::size_t nSize, std::size_t nMaxSize,
                                               unsigned int nSeed) {
    return MutateByFormat(pData, nSize, nMaxSize, nSeed, MutateBmp);
}
