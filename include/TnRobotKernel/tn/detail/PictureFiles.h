/// @file
/// What JPEG and BMP files say about themselves, for the reasons of tn/pictures.h. Nothing is decoded.

#ifndef TNROBOTKERNEL_TN_DETAIL_PICTUREFILES_H_
#define TNROBOTKERNEL_TN_DETAIL_PICTUREFILES_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "TnRobotKernel/tn/detail/SavedPath.h"

namespace tn::detail {

enum class PictureKind { kOther, kJpeg, kBmp };

// By the last four characters, whatever their case, as the library chooses.
inline PictureKind KindOf(const char* lpszPath) {
    constexpr std::size_t kEnding = 4;
    const std::size_t nLength = std::strlen(lpszPath);
    std::array<char, kEnding + 1> ending{};
    for (std::size_t i = 0; nLength >= kEnding && i < kEnding; ++i) {
        const char ch = lpszPath[nLength - kEnding + i];
        ending[i] = ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch - 'A' + 'a') : ch;
    }
    return std::strcmp(ending.data(), ".jpg") == 0   ? PictureKind::kJpeg
           : std::strcmp(ending.data(), ".bmp") == 0 ? PictureKind::kBmp
                                                     : PictureKind::kOther;
}

// Bytes of a file or of memory, one after the other.
class PictureBytes {
public:
    // Leaves the reason in errno.
    explicit PictureBytes(const char* lpszPath) : m_stream(std::fopen(lpszPath, "rbe")) {}
    // Borrows them.
    PictureBytes(const unsigned char* pData, std::size_t nLength)
        : m_nLength(nLength), m_pNext(pData), m_pEnd(pData + nLength) {}
    PictureBytes(const PictureBytes&) = delete;
    PictureBytes& operator=(const PictureBytes&) = delete;
    ~PictureBytes() = default;

    bool IsOpen() const { return m_stream != nullptr || m_pNext != nullptr; }

    // -1 where the bytes end.
    int Next() { return m_pNext != m_pEnd || Fill() ? *m_pNext++ : -1; }

    // Two bytes, the higher one first; -1 where the bytes end.
    int NextPair() {
        const int nHigh = Next();
        const int nLow = Next();
        return nLow < 0 ? -1 : nHigh * 256 + nLow;
    }

    // Goes on behind the next byte of this kind. @return false where the bytes end before one.
    bool SkipBehind(unsigned char nByte) {
        while (m_pNext != m_pEnd || Fill()) {
            const void* pFound = std::memchr(m_pNext, nByte, static_cast<std::size_t>(m_pEnd - m_pNext));
            m_pNext = pFound != nullptr ? static_cast<const unsigned char*>(pFound) + 1 : m_pEnd;
            if (pFound != nullptr) {
                return true;
            }
        }
        return false;
    }

    // Whether there can be more behind so many bytes, which are 0 or more.
    bool Skip(std::size_t nBytes) {
        const auto nHere = static_cast<std::size_t>(m_pEnd - m_pNext);
        if (nBytes <= nHere) {
            m_pNext += nBytes;
            return true;
        }
        m_pNext = m_pEnd;
        return m_stream && std::fseek(m_stream.get(), static_cast<long>(nBytes - nHere), SEEK_CUR) == 0;
    }

    // Nothing may have been read yet.
    std::int64_t Length() {
        if (!m_stream) {
            return static_cast<std::int64_t>(m_nLength);
        }
        const bool bEnd = std::fseek(m_stream.get(), 0, SEEK_END) == 0;
        const std::int64_t nLength = bEnd ? std::ftell(m_stream.get()) : 0;
        std::rewind(m_stream.get());
        return nLength;
    }

private:
    bool Fill() {
        if (!m_stream) {
            return false;
        }
        m_pNext = m_buffer.data();
        m_pEnd = m_pNext + std::fread(m_buffer.data(), 1, m_buffer.size(), m_stream.get());
        return m_pNext != m_pEnd;
    }

    struct Close {
        void operator()(std::FILE* pStream) const { std::fclose(pStream); }
    };
    std::unique_ptr<std::FILE, Close> m_stream;  // null for bytes in memory
    std::array<unsigned char, 4096> m_buffer{};
    const std::size_t m_nLength = 0;         // of bytes in memory
    const unsigned char* m_pNext = nullptr;  // what has been read and not taken lies up to m_pEnd
    const unsigned char* m_pEnd = nullptr;
};

// Walks through the markers of a JPEG.
class JpegLook {
public:
    explicit JpegLook(PictureBytes& bytes) : m_bytes(bytes) {
        constexpr int kStart = 0xFFD8;
        m_bJpeg = m_bytes.NextPair() == kStart;
        while (m_bJpeg && !m_bComplete && Step()) {
        }
    }

    bool IsJpeg() const { return m_bJpeg; }
    // Whether the marker of the end is there.
    bool IsComplete() const { return m_bComplete; }
    bool HasSize() const { return m_nWidth > 0 && m_nHeight > 0; }
    int Width() const { return m_nWidth; }
    int Height() const { return m_nHeight; }
    // Eight bits of grey or of three colours, in the processes that libjpeg knows.
    bool HasCommonForm() const { return m_bCommon; }

private:
    // Pixels lie between markers too: their own bytes of ones are followed by a zero, restarts are marked.
    int NextMarker() {
        while (m_bytes.SkipBehind(0xFF)) {
            int nByte = m_bytes.Next();
            while (nByte == 0xFF) {
                nByte = m_bytes.Next();
            }
            const bool bStandsAlone = nByte <= 0x01 || (nByte >= 0xD0 && nByte <= 0xD8);
            if (!bStandsAlone) {
                return nByte;
            }
        }
        return -1;
    }

    bool Step() {
        constexpr int kEnd = 0xD9;
        const int nMarker = NextMarker();
        m_bComplete = nMarker == kEnd;
        if (nMarker < 0 || m_bComplete) {
            return false;
        }
        const int nLength = m_bytes.NextPair();
        const bool bTables = nMarker == 0xC4 || nMarker == 0xC8 || nMarker == 0xCC;
        if (nMarker >= 0xC0 && nMarker <= 0xCF && !bTables) {
            constexpr int kFrame = 8;
            return nLength >= kFrame && ReadFrame(nMarker) && m_bytes.Skip(static_cast<std::size_t>(nLength - kFrame));
        }
        return nLength >= 2 && m_bytes.Skip(static_cast<std::size_t>(nLength - 2));
    }

    bool ReadFrame(int nMarker) {
        const int nBits = m_bytes.Next();
        m_nHeight = m_bytes.NextPair();
        m_nWidth = m_bytes.NextPair();
        const int nComponents = m_bytes.Next();
        const bool bProcess = nMarker <= 0xC2 || nMarker == 0xC9 || nMarker == 0xCA;
        m_bCommon = bProcess && nBits == 8 && (nComponents == 1 || nComponents == 3);
        return nComponents >= 0;
    }

    PictureBytes& m_bytes;
    bool m_bJpeg = false;
    bool m_bComplete = false;
    bool m_bCommon = false;
    int m_nWidth = 0;
    int m_nHeight = 0;
};

// The header of a BMP, and how long its file is.
class BmpLook {
public:
    explicit BmpLook(PictureBytes& bytes) : m_nLength(bytes.Length()) {
        for (std::size_t i = 0; i < m_head.size() && m_nLength >= static_cast<std::int64_t>(m_head.size()); ++i) {
            m_head[i] = static_cast<unsigned char>(bytes.Next());
        }
    }

    bool HasHeader() const { return m_nLength >= static_cast<std::int64_t>(m_head.size()); }
    bool IsBmp() const { return m_head[0] == 'B' && m_head[1] == 'M'; }
    std::int32_t Width() const { return static_cast<std::int32_t>(Field(18, 4)); }
    std::int32_t Height() const { return static_cast<std::int32_t>(Field(22, 4)); }

    // 24 bits, not compressed, bottom row first, and no padding behind the rows.
    bool HasCommonForm() const { return Field(28, 2) == 24 && Field(30, 4) == 0 && Height() >= 0 && Row() % 4 == 0; }
    bool IsCut() const { return m_nLength < static_cast<std::int64_t>(Field(2, 4)); }
    bool HasAllRows() const {
        const auto nSaid = static_cast<std::int64_t>(Field(34, 4));
        const std::int64_t nRows = Row() * Height();
        return m_nLength - static_cast<std::int64_t>(Field(10, 4)) >= nRows && (nSaid == 0 || nSaid >= nRows);
    }

private:
    std::int64_t Row() const { return std::int64_t{3} * Width(); }

    std::uint32_t Field(std::size_t nOffset, std::size_t nBytes) const {
        std::uint32_t nValue = 0;
        for (std::size_t i = nBytes; i-- > 0;) {
            nValue = nValue << 8U | m_head[nOffset + i];
        }
        return nValue;
    }

    std::int64_t m_nLength;
    std::array<unsigned char, 54> m_head{};
};

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_TN_DETAIL_PICTUREFILES_H_
