#include "Terminal.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "Text.h"

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

void Print(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
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
