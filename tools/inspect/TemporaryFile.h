// A file that goes with the object that made it, or with the program.

#ifndef TNROBOT_INSPECT_TEMPORARYFILE_H_
#define TNROBOT_INSPECT_TEMPORARYFILE_H_

#include <array>
#include <csignal>
#include <string>

/// Keeps signals waiting as long as it lives.
class BlockedSignals {
public:
    BlockedSignals();
    ~BlockedSignals();
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t m_before{};
};

/// A new file, which nobody but its owner can read. It is removed with the object, and when a signal
/// ends the program: the signals that users and systems send for that are handled as long as the
/// object lives, unless they are ignored. There may be one object at a time.
class TemporaryFile {
public:
    /// @param[in] strTemplate  path that ends in XXXXXX. @param[in] strEnding  follows it.
    TemporaryFile(const std::string& strTemplate, const std::string& strEnding);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    /// @return below 0 when there is no file.
    int Descriptor() const { return m_nFile; }
    /// @return why there is no file, as in errno.
    int Error() const { return m_nError; }
    const std::string& Path() const { return m_strPath; }

    /// The file has another name by now and stays. Signals must be blocked around the change of its
    /// name and this call.
    void Keep();

private:
    static constexpr std::array<int, 7> kSignals = {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGALRM, SIGTERM, SIGXCPU};

    void Create(const std::string& strTemplate, const std::string& strEnding);
    void HandleSignals();

    std::string m_strPath;
    int m_nFile = -1;
    int m_nError = 0;
    std::array<struct sigaction, kSignals.size()> m_before{};
};

#endif  // TNROBOT_INSPECT_TEMPORARYFILE_H_
