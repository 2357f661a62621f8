#include "Terminal.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

constexpr std::uint32_t kInvalid = 0xFFFFFFFF;

struct Character {
    std::uint32_t nCode;
    std::size_t nSize;
};

std::uint32_t Byte(std::string_view text, std::size_t nAt) {
    return static_cast<unsigned char>(text[nAt]);
}

// @return the length that a first byte announces, 0 for a byte that begins no character.
std::size_t Length(std::uint32_t nFirst) {
    if (nFirst < 0x80) {
        return 1;
    }
    if (nFirst >= 0xC2 && nFirst < 0xE0) {
        return 2;
    }
    if (nFirst >= 0xE0 && nFirst < 0xF0) {
        return 3;
    }
    return nFirst >= 0xF0 && nFirst < 0xF5 ? 4 : 0;
}

// Overlong forms, surrogates and codes beyond Unicode are refused.
bool IsAllowed(std::uint32_t nCode, std::size_t nSize) {
    constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    return nCode >= kSmallest[nSize] && nCode <= 0x10FFFF && (nCode < 0xD800 || nCode > 0xDFFF);
}

Character First(std::string_view text) {
    const std::size_t nSize = Length(Byte(text, 0));
    if (nSize == 0 || nSize > text.size()) {
        return {kInvalid, 1};
    }
    if (nSize == 1) {
        return {Byte(text, 0), 1};
    }
    std::uint32_t nCode = Byte(text, 0) & (0xFFU >> (nSize + 1));
    for (std::size_t i = 1; i < nSize; ++i) {
        if ((Byte(text, i) & 0xC0U) != 0x80) {
            return {kInvalid, 1};
        }
        nCode = nCode << 6U | (Byte(text, i) & 0x3FU);
    }
    return IsAllowed(nCode, nSize) ? Character{nCode, nSize} : Character{kInvalid, 1};
}

bool IsControl(std::uint32_t nCode) {
    return nCode < 0x20 || (nCode >= 0x7F && nCode < 0xA0);
}

std::string Escaped(std::string_view bytes) {
    if (bytes == "\n") {
        return "\\n";
    }
    if (bytes == "\t") {
        return "\\t";
    }
    constexpr char kDigits[] = "0123456789abcdef";
    std::string strText;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        strText += {'\\', 'x', kDigits[Byte(bytes, i) / 16], kDigits[Byte(bytes, i) % 16]};
    }
    return strText;
}

}  // namespace

bool WantsColours(const std::string& strChoice) {
    if (strChoice != "auto") {
        return strChoice == "always";
    }
    const char* lpszNoColour = secure_getenv("NO_COLOR");
    const char* lpszTerminal = secure_getenv("TERM");
    const bool bRefused = lpszNoColour != nullptr && *lpszNoColour != '\0';
    const bool bDumb = lpszTerminal == nullptr || std::strcmp(lpszTerminal, "dumb") == 0;
    return !bRefused && !bDumb && isatty(STDOUT_FILENO) != 0;
}

std::string Printable(std::string_view text) {
    std::string strResult;
    while (!text.empty()) {
        const Character character = First(text);
        const std::string_view bytes = text.substr(0, character.nSize);
        if (character.nCode == kInvalid || IsControl(character.nCode)) {
            strResult += Escaped(bytes);
        } else {
            strResult += bytes;
        }
        text.remove_prefix(character.nSize);
    }
    return strResult;
}

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        const Character character = First(text);
        if (character.nCode == kInvalid) {
            return false;
        }
        text.remove_prefix(character.nSize);
    }
    return true;
}

void Print(const std::string& strText) {
    std::fwrite(strText.data(), 1, strText.size(), stdout);
}

void Complain(const std::string& strText) {
    std::fflush(stdout);
    std::fprintf(stderr, "tnrobot-inspect: %s\n", Printable(strText).c_str());
}

Progress::Progress(std::string strJob, std::size_t nTotal, std::size_t nWorthShowing)
    : m_strJob(std::move(strJob)),
      m_nTotal(nTotal),
      m_bShown(nTotal != 0 && nTotal >= nWorthShowing && isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() {
    if (m_bShown) {
        std::fputs("\r\x1b[K", stderr);
    }
}

void Progress::Show(std::size_t nDone) {
    constexpr std::size_t kWhole = 100;
    const auto nPercent = static_cast<std::size_t>(static_cast<double>(nDone) / static_cast<double>(m_nTotal) * kWhole);
    if (m_bShown && nPercent != m_nShownPercent) {
        m_nShownPercent = nPercent;
        std::fprintf(stderr, "\r%s %zu %%", Printable(m_strJob).c_str(), nPercent);
    }
}
