// What differs between a terminal and a file as output: colours and progress.

#ifndef TNROBOT_INSPECT_TERMINAL_H_
#define TNROBOT_INSPECT_TERMINAL_H_

#include <cstddef>
#include <string>
#include <string_view>

/// Exit codes of the program.
enum ExitCode : int {
    kGood = 0,     ///< good, equal, done
    kDiffers = 1,  ///< damaged, or different
    kTrouble = 2,  ///< wrong usage, a file that cannot be read, recognised or written
};

/// Colours for the standard output.
class Style {
public:
    explicit Style(bool bColours) : m_bColours(bColours) {}

    /// For texts that are printed piece by piece. End() closes both.
    std::string BeginGood() const { return m_bColours ? "\x1b[32m" : ""; }
    std::string BeginBad() const { return m_bColours ? "\x1b[31m" : ""; }
    std::string End() const { return m_bColours ? "\x1b[0m" : ""; }

    std::string Good(const std::string& strText) const { return Wrap("32", strText); }
    std::string Bad(const std::string& strText) const { return Wrap("31", strText); }
    std::string Weak(const std::string& strText) const { return Wrap("2", strText); }
    std::string Strong(const std::string& strText) const { return Wrap("1", strText); }

private:
    std::string Wrap(const char* lpszCode, const std::string& strText) const {
        return m_bColours ? "\x1b[" + std::string(lpszCode) + "m" + strText + "\x1b[0m" : strText;
    }

    bool m_bColours;
};

/// @param[in] strChoice  "always", "never", or "auto": on a terminal that is not dumb, unless
///                       NO_COLOR is set.
bool WantsColours(const std::string& strChoice);

/// Prints to the standard output.
void Print(std::string_view text);

/// Prints a message to the standard error output.
void Complain(const std::string& strText);

/// Shows on the standard error output how far a long job has come. Does nothing unless that is a
/// terminal and the job is long enough.
class Progress {
public:
    Progress(std::string strJob, std::size_t nTotal, std::size_t nWorthShowing);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// @param[in] nDone  out of the total.
    void Show(std::size_t nDone);

private:
    std::string m_strJob;
    std::size_t m_nTotal;
    std::size_t m_nShownPercent = 0;
    bool m_bShown;
};

#endif  // TNROBOT_INSPECT_TERMINAL_H_
