// Base64 beside OpenSSL's and a plain copy, dumps beside one formatted print for each byte, and
// rectangles beside plain loops.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "utils/TnBase64.h"

#ifdef TNROBOT_BENCH_OPENSSL
#include <openssl/evp.h>
#include <openssl/opensslv.h>
#endif

namespace {

using Bytes = std::vector<unsigned char>;

struct NamedSize {
    const char* m_lpszName;
    std::size_t m_nBytes;
};

constexpr NamedSize kSizes[] = {{"1KiB", 1 << 10}, {"1MiB", 1 << 20}};

Bytes RandomBytes(std::size_t nLength) {
    std::minstd_rand random(1);
    Bytes bytes(nLength);
    for (unsigned char& by : bytes) {
        by = static_cast<unsigned char>(random() >> 8);
    }
    return bytes;
}

// A text and its bytes, with room for a result of either kind.
struct Base64Job {
    explicit Base64Job(std::size_t nBytes)
        : m_bytes(RandomBytes(nBytes)), m_strText((nBytes + 2) / 3 * 4, ' '), m_result(m_strText.size() + 1) {
        tnrobot::EncodeBase64(m_bytes.data(), nBytes, m_strText.data());
    }

    int Length() const { return static_cast<int>(m_bytes.size()); }
    const unsigned char* Text() const { return reinterpret_cast<const unsigned char*>(m_strText.data()); }
    char* TextResult() { return reinterpret_cast<char*>(m_result.data()); }

    Bytes m_bytes;
    std::string m_strText;
    Bytes m_result;
};

using Base64Function = void (*)(Base64Job&);

void EncodeOurs(Base64Job& job) {
    TnRobotTextCodec::Base64Encode(job.m_bytes.data(), job.Length(), job.TextResult());
}

void EncodePortable(Base64Job& job) {
    tnrobot::EncodeBase64(job.m_bytes.data(), job.m_bytes.size(), job.TextResult());
}

void DecodeOurs(Base64Job& job) {
    TnRobotTextCodec::Base64Decode(job.m_strText.c_str(), job.m_result.data());
}

void DecodePortable(Base64Job& job) {
    tnrobot::DecodeBase64(job.m_strText.data(), job.m_strText.size() / 4, job.m_result.data());
}

#ifdef TNROBOT_BENCH_OPENSSL
void EncodeOpenSsl(Base64Job& job) {
    EVP_EncodeBlock(job.m_result.data(), job.m_bytes.data(), job.Length());
}

void DecodeOpenSsl(Base64Job& job) {
    EVP_DecodeBlock(job.m_result.data(), job.Text(), static_cast<int>(job.m_strText.size()));
}
#endif

// The text's characters, which both directions have to move at least.
void CopyText(Base64Job& job) {
    std::memcpy(job.m_result.data(), job.m_strText.data(), job.m_strText.size());
}

void RegisterBase64(const std::string& strCase, const std::string& strParty, Base64Function function) {
    for (const NamedSize& size : kSizes) {
        bench::Register(strCase + "/" + strParty + "/" + size.m_lpszName, 1,
                        [nBytes = size.m_nBytes, function](benchmark::State& state) {
                            Base64Job job(nBytes);
                            for (auto _ : state) {
                                function(job);
                                benchmark::ClobberMemory();
                            }
                        });
    }
}

// Every party must have written what the others write.
void CheckBase64(Base64Function encode, Base64Function decode) {
    for (const NamedSize& size : kSizes) {
        Base64Job job(size.m_nBytes);
        encode(job);
        bench::Require(std::memcmp(job.TextResult(), job.m_strText.data(), job.m_strText.size()) == 0,
                       "the texts differ");
        decode(job);
        bench::Require(std::memcmp(job.m_result.data(), job.m_bytes.data(), job.m_bytes.size()) == 0,
                       "the bytes differ");
    }
}

void RegisterBase64Cases(bench::Program& program) {
    const auto party = [](const std::string& strParty, Base64Function encode, Base64Function decode,
                          const std::string& strKind) {
        RegisterBase64("Base64Encode" + strKind, strParty, encode);
        RegisterBase64("Base64Decode" + strKind, strParty, decode);
    };
    CheckBase64(EncodeOurs, DecodeOurs);
    CheckBase64(EncodePortable, DecodePortable);
    party("ours", EncodeOurs, DecodeOurs, "");
    party("ours", EncodePortable, DecodePortable, "Portable");
    for (const char* lpszKind : {"", "Portable"}) {
#ifdef TNROBOT_BENCH_OPENSSL
        CheckBase64(EncodeOpenSsl, DecodeOpenSsl);
        party("openssl", EncodeOpenSsl, DecodeOpenSsl, lpszKind);
#endif
        party("limit_memcpy", CopyText, CopyText, lpszKind);
    }
#ifdef TNROBOT_BENCH_OPENSSL
    program.AddPeer(OPENSSL_VERSION_TEXT);
#else
    program.AddAbsentPeer("OpenSSL");
#endif
}

std::string DumpByPrinting(const Bytes& bytes, const char* lpszFormat) {
    std::string strDump;
    char szByte[16] = {};
    for (const unsigned char by : bytes) {
        std::snprintf(szByte, sizeof(szByte), lpszFormat, static_cast<unsigned int>(by));
        strDump += szByte;
    }
    strDump.pop_back();
    return strDump;
}

template <typename Dump>
void RegisterDump(const std::string& strName, Dump dump) {
    bench::Register(strName + "/64KiB", 1, [dump](benchmark::State& state) {
        const Bytes bytes = RandomBytes(1 << 16);
        for (auto _ : state) {
            std::string strDump = dump(bytes);
            benchmark::DoNotOptimize(strDump.data());
        }
    });
}

void RegisterDumps() {
    RegisterDump("HexDump/ours", [](const Bytes& bytes) {
        return TnRobotStringUtils::Hex2String(bytes.data(), static_cast<unsigned int>(bytes.size()));
    });
    RegisterDump("HexDump/snprintf", [](const Bytes& bytes) { return DumpByPrinting(bytes, "%02x "); });
    RegisterDump("DecDump/ours", [](const Bytes& bytes) {
        return TnRobotStringUtils::Dec2String(bytes.data(), static_cast<unsigned int>(bytes.size()));
    });
    RegisterDump("DecDump/snprintf", [](const Bytes& bytes) { return DumpByPrinting(bytes, "%02d "); });
}

void CheckDumps() {
    const Bytes bytes = RandomBytes(1000);
    const auto nLength = static_cast<unsigned int>(bytes.size());
    bench::Require(TnRobotStringUtils::Hex2String(bytes.data(), nLength) == DumpByPrinting(bytes, "%02x ") &&
                       TnRobotStringUtils::Dec2String(bytes.data(), nLength) == DumpByPrinting(bytes, "%02d "),
                   "the dumps differ");
}

using Rects = std::vector<STnNLRect>;

Rects RandomRects() {
    std::minstd_rand random(1);
    const auto upTo = [&random](unsigned int nLimit) { return static_cast<int>(random() % nLimit); };
    Rects rects(100000);
    for (STnNLRect& rect : rects) {
        const int nLeft = upTo(10000000);
        const int nTop = upTo(10000);
        rect = {nLeft, nLeft + upTo(100), nTop, nTop + upTo(100)};
    }
    return rects;
}

Rects MergeByPlainLoop(const Rects& rects) {
    Rects sorted = rects;
    std::sort(sorted.begin(), sorted.end(), [](const STnNLRect& a, const STnNLRect& b) { return a.left < b.left; });
    Rects merged = {sorted[0]};
    for (std::size_t i = 1; i < sorted.size(); ++i) {
        const STnNLRect& r = sorted[i];
        STnNLRect& m = merged.back();
        if (m.right >= r.left && (m.bottom >= r.top || m.top <= r.bottom)) {
            m = {std::min(m.left, r.left), std::max(m.right, r.right), std::min(m.top, r.top),
                 std::max(m.bottom, r.bottom)};
        } else {
            merged.push_back(r);
        }
    }
    return merged;
}

std::size_t LargestByPlainLoop(const Rects& rects) {
    std::size_t nLargest = 0;
    int nLargestArea = 0;
    for (std::size_t i = 0; i < rects.size(); ++i) {
        const int nArea = (rects[i].right - rects[i].left) * (rects[i].bottom - rects[i].top);
        if (i == 0 || nArea > nLargestArea) {
            nLargest = i;
            nLargestArea = nArea;
        }
    }
    return nLargest;
}

void CheckRects() {
    const Rects rects = RandomRects();
    const auto nCount = static_cast<unsigned int>(rects.size());
    STnNLRect largest = {};
    TnRobotRectUtils::findLargestRect(rects.data(), nCount, largest);
    bench::Require(std::memcmp(&largest, &rects[LargestByPlainLoop(rects)], sizeof(largest)) == 0 &&
                       TnRobotRectUtils::mergeRects(rects.data(), nCount).size() == MergeByPlainLoop(rects).size(),
                   "the rectangles differ");
}

template <typename Work>
void RegisterRects(const std::string& strName, Work work) {
    bench::Register(strName + "/100000", 1, [work](benchmark::State& state) {
        const Rects rects = RandomRects();
        for (auto _ : state) {
            auto result = work(rects);
            benchmark::DoNotOptimize(result);
        }
    });
}

void RegisterRectCases() {
    RegisterRects("MergeRects/ours", [](const Rects& rects) {
        return TnRobotRectUtils::mergeRects(rects.data(), static_cast<unsigned int>(rects.size())).size();
    });
    RegisterRects("MergeRects/plain_loop", [](const Rects& rects) { return MergeByPlainLoop(rects).size(); });
    RegisterRects("LargestRect/ours", [](const Rects& rects) {
        STnNLRect largest = {};
        return TnRobotRectUtils::findLargestRect(rects.data(), static_cast<unsigned int>(rects.size()), largest);
    });
    RegisterRects("LargestRect/plain_loop", [](const Rects& rects) { return LargestByPlainLoop(rects); });
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    bench::Program program(nArguments, ppszArguments, "utils", "Utilities");
    CheckDumps();
    CheckRects();
    RegisterBase64Cases(program);
    RegisterDumps();
    RegisterRectCases();
    return program.Run();
}
