#include "TnLogFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "TnOldFiles.h"

namespace tnrobotlog {

namespace {

constexpr std::size_t kBufferSize = 4096;
constexpr std::chrono::seconds kRotationInterval(1);
constexpr std::chrono::seconds kLongestRotation(1);
constexpr mode_t kMode = 0666;

// Whoever has a log file open holds a shared lock of it. A file system that has no locks tells of
// nobody.
bool IsOpenElsewhere(int nDescriptor) {
    return flock(nDescriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

void TellPresence(int nDescriptor) {
    flock(nDescriptor, LOCK_SH | LOCK_NB);
}

struct stat StatusOf(int nDescriptor) {
    struct stat status = {};
    fstat(nDescriptor, &status);
    return status;
}

// A file that we may not read is taken to be whole.
bool EndsInsideLine(const std::string& strFile, off_t nSize) {
    const CTnDescriptor reader = OpenFile(strFile.c_str(), O_RDONLY | O_NONBLOCK);
    char chLast = '\n';
    const auto read = [&] { return pread(reader.Get(), &chLast, 1, nSize - 1); };
    return nSize > 0 && reader.IsOpen() && Uninterrupted(read) == 1 && chLast != '\n';
}

// One process at a time rotates in a directory. The lock goes with the descriptor. Where there are
// no such locks, or the directory may not be read, everybody may; without a descriptor nobody, who
// would undo what the one that has the lock does.
CTnDescriptor LockDirectory(const std::string& strFile, int& nError) {
    const std::string strDirectory = std::filesystem::path(strFile).parent_path();
    CTnDescriptor directory = OpenFile(strDirectory.c_str(), O_RDONLY | O_DIRECTORY);
    nError = 0;
    if (!directory.IsOpen()) {
        nError = errno == EACCES ? 0 : errno;
    } else if (flock(directory.Get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        nError = EWOULDBLOCK;
    }
    return directory;
}

}  // namespace

CTnLogFile::CTnLogFile(std::string strFile, STnLogLimits limits) : m_strFile(std::move(strFile)), m_limits(limits) {
    m_strBuffer.reserve(2 * kBufferSize);
    std::error_code ignored;  // opening tells
    std::filesystem::create_directories(std::filesystem::path(m_strFile).parent_path(), ignored);
    CTnDescriptor descriptor = _Open();
    if (!descriptor.IsOpen()) {
        throw spdlog::spdlog_ex("Failed opening file " + m_strFile + " for writing", errno);
    }
    // A lock of a device means what its users have agreed on.
    m_bShared = S_ISREG(StatusOf(descriptor.Get()).st_mode) && IsOpenElsewhere(descriptor.Get());
    _Use(std::move(descriptor));
}

unsigned long long CTnLogFile::TakeLostLines() {
    m_strBuffer.clear();
    return std::exchange(m_nWaiting, 0);
}

std::string CTnLogFile::TakeWarning() {
    return std::exchange(m_strWarning, std::string());
}

// Without O_NONBLOCK a FIFO would be waited for, for ever.
CTnDescriptor CTnLogFile::_Open() const {
    CTnDescriptor descriptor =
        OpenFile(m_strFile.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOCTTY | O_NONBLOCK, kMode);
    if (!descriptor.IsOpen()) {
        return descriptor;
    }
    const mode_t nMode = StatusOf(descriptor.Get()).st_mode;
    if (!S_ISREG(nMode) && !S_ISCHR(nMode)) {
        descriptor = CTnDescriptor();
        errno = EINVAL;
        return descriptor;
    }
    fcntl(descriptor.Get(), F_SETFL, O_APPEND);
    return descriptor;
}

// A line without its end was torn when its writer ended; one of a writer that is there is only not whole
// yet.
void CTnLogFile::_Use(CTnDescriptor descriptor) {
    m_descriptor = std::move(descriptor);
    const struct stat status = _LookAgain();
    m_bRegular = S_ISREG(status.st_mode);
    m_bInsideLine = m_bRegular && !IsOpenElsewhere(m_descriptor.Get()) && EndsInsideLine(m_strFile, status.st_size);
    if (m_bRegular) {
        TellPresence(m_descriptor.Get());
    }
}

// Other processes may have made the file longer, or removed it. Some file systems count no names.
struct stat CTnLogFile::_LookAgain() {
    const struct stat status = StatusOf(m_descriptor.Get());
    m_nSize = static_cast<std::size_t>(status.st_size);
    m_bGone = S_ISREG(status.st_mode) && status.st_nlink == 0 && !_IsAtItsPath();
    return status;
}

// An empty file has room for every line: it would not become emptier.
bool CTnLogFile::_HasRoomFor(std::size_t nBytes) const {
    return !m_bRegular || (!m_bGone && (m_nSize == 0 || m_nSize + nBytes <= m_limits.m_nBytes));
}

void CTnLogFile::sink_it_(const spdlog::details::log_msg& msg) {
    ++m_nWaiting;
    spdlog::memory_buf_t line;
    formatter_->format(msg, line);
    const std::size_t nTotal = m_nSize + m_strBuffer.size() + line.size();
    if (nTotal > m_limits.m_nBytes || m_strBuffer.size() + line.size() > kBufferSize) {
        flush_();
    }
    m_strBuffer.append(line.data(), line.size());
    if (nTotal > m_limits.m_nBytes) {
        flush_();
    }
}

void CTnLogFile::flush_() {
    if (m_strBuffer.empty()) {
        return;
    }
    _LookAgain();
    _MakeRoom(m_strBuffer.size());
    _WriteBuffer();
}

// Lines for a file that has no name any more would be lost without a word.
void CTnLogFile::_MakeRoom(std::size_t nBytes) {
    if (_HasRoomFor(nBytes) || (!m_bGone && Clock::now() < m_rotationTime)) {
        return;
    }
    const int nError = _Rotate(nBytes);
    if (m_bGone) {
        throw spdlog::spdlog_ex("Failed making " + m_strFile + " again", nError);
    }
    if (nError == 0) {
        m_bCannotRotate = false;
        m_rotationTime = {};
        return;
    }
    if (nError != EWOULDBLOCK || _HasWaitedLong()) {
        _CannotRotate(nError);
    }
}

// The process that rotates needs no longer: whoever has the lock then does not give it back.
bool CTnLogFile::_HasWaitedLong() {
    if (!std::exchange(m_bWaits, true)) {
        m_waitingTime = Clock::now();
    }
    return Clock::now() - m_waitingTime > kLongestRotation;
}

void CTnLogFile::_CannotRotate(int nError) {
    m_rotationTime = Clock::now() + kRotationInterval;
    if (!std::exchange(m_bCannotRotate, true)) {
        m_strWarning = spdlog::spdlog_ex(m_strFile + " cannot be rotated and may grow beyond its limit", nError).what();
    }
}

// When another process is at it, the lines go to the file as it is, and the next one tries again.
// A file that is gone is nobody's to rotate.
int CTnLogFile::_Rotate(std::size_t nBytes) {
    int nError = 0;
    const CTnDescriptor lock = LockDirectory(m_strFile, nError);
    if (nError != 0) {
        return m_bGone ? _OpenAnother() : nError;
    }
    m_bWaits = false;
    if (!_IsAtItsPath()) {
        nError = _OpenAnother();
    }
    if (nError != 0) {
        return nError;
    }
    // Before the lock was ours, another process may have emptied it.
    _LookAgain();
    return _HasRoomFor(nBytes) ? 0 : _StartAnew();
}

bool CTnLogFile::_IsAtItsPath() const {
    struct stat atPath = {};
    const struct stat ours = StatusOf(m_descriptor.Get());
    return stat(m_strFile.c_str(), &atPath) == 0 && atPath.st_dev == ours.st_dev && atPath.st_ino == ours.st_ino;
}

// The file that cannot be created goes back to where it was, and stays in use.
int CTnLogFile::_StartAnew() {
    if (m_limits.m_nOldFiles == 0) {
        const int nError = _Truncate(0) ? 0 : errno;
        _LookAgain();
        return nError;
    }
    int nError = PushDown(m_strFile, m_limits.m_nOldFiles);
    if (nError == 0) {
        nError = _OpenAnother();
        if (nError != 0) {
            PullUp(m_strFile);
        }
    }
    return nError;
}

int CTnLogFile::_OpenAnother() {
    CTnDescriptor descriptor = _Open();
    if (!descriptor.IsOpen()) {
        return errno;
    }
    _Use(std::move(descriptor));
    return 0;
}

void CTnLogFile::_WriteBuffer() {
    if (m_bInsideLine && _Write("\n", 1) == 1) {
        m_bInsideLine = false;
    }
    const std::size_t nWritten = m_bInsideLine ? 0 : _Write(m_strBuffer.data(), m_strBuffer.size());
    const int nError = errno;
    const bool bWhole = nWritten == m_strBuffer.size();
    const auto end = m_strBuffer.begin() + static_cast<std::ptrdiff_t>(nWritten);
    m_nWaiting -= static_cast<unsigned long long>(std::count(m_strBuffer.begin(), end, '\n'));
    if (!bWhole) {
        _CutTornLine(nWritten);
    }
    m_strBuffer.clear();
    if (!bWhole) {
        throw spdlog::spdlog_ex("Failed flush to file " + m_strFile, nError);
    }
}

std::size_t CTnLogFile::_Write(const char* pData, std::size_t nBytes) {
    std::size_t nDone = 0;
    while (nDone < nBytes) {
        const ssize_t nWritten = write(m_descriptor.Get(), pData + nDone, nBytes - nDone);
        if (nWritten > 0) {
            nDone += static_cast<std::size_t>(nWritten);
        } else if (nWritten == 0 || errno != EINTR) {
            break;
        }
    }
    m_nSize += nDone;
    return nDone;
}

bool CTnLogFile::_Truncate(std::size_t nBytes) {
    return Uninterrupted([=] { return ftruncate(m_descriptor.Get(), static_cast<off_t>(nBytes)); }) == 0;
}

// Unless somebody has written behind it meanwhile.
void CTnLogFile::_CutTornLine(std::size_t nWritten) {
    const std::size_t nWhole = nWritten == 0 ? 0 : m_strBuffer.rfind('\n', nWritten - 1) + 1;
    const std::size_t nTorn = nWritten - nWhole;
    if (nTorn == 0) {
        return;
    }
    const std::size_t nExpected = m_nSize;
    _LookAgain();
    const bool bCut = m_nSize == nExpected && _Truncate(m_nSize - nTorn);
    m_bInsideLine = !bCut;
    _LookAgain();
}

}  // namespace tnrobotlog
