// What the workers of the soak test share, and the kinds of work they do with it. Every piece of
// work checks what it gets and gives back all it has taken.

#ifndef TNROBOTKERNEL_TESTS_SOAK_WORKSHOP_H_
#define TNROBOTKERNEL_TESTS_SOAK_WORKSHOP_H_

#include <array>
#include <exception>
#include <filesystem>
#include <random>
#include <string>

#include "TnRobotKernel/TnRobotKernel.h"
#include "TnRobotKernel/ptr.h"

namespace tnsoak {

/// The pools that all workers use at once.
class Workshop {
public:
    explicit Workshop(const std::filesystem::path& directory);
    Workshop(const Workshop&) = delete;
    Workshop& operator=(const Workshop&) = delete;

    /// Gives the pools back. @return whether that was the end of each: nothing holds them any more.
    bool Close();

    TnRobotPtr<ITnRobotMemoryBlockPool> blocks;
    TnRobotPtr<ITnRobotMemoryBlockPool> circle;
    TnRobotPtr<ITnRobotSurfacePool> surfaces;
    TnRobotPtr<ITnRobotTaskPool> tasks;
    std::filesystem::path directory;

private:
    void TouchWholeCircle();
};

/// One thread's view of the workshop.
struct Worker {
    Workshop& shop;
    int nNumber;
    std::mt19937 random;

    int Number(int nFirst, int nLast) { return std::uniform_int_distribution<int>(nFirst, nLast)(random); }
    unsigned int Size(unsigned int nFirst, unsigned int nLast) {
        return std::uniform_int_distribution<unsigned int>(nFirst, nLast)(random);
    }
    /// @return the path of a file that is this worker's alone.
    std::string Path(const std::string& name) const {
        return (shop.directory / (std::to_string(nNumber) + name)).string();
    }
};

/// Something is not as it must be. It takes no memory, of which there may be none.
class Failure : public std::exception {
public:
    explicit Failure(const char* lpszWhat) : m_lpszWhat(lpszWhat) {}
    const char* what() const noexcept override { return m_lpszWhat; }

private:
    const char* m_lpszWhat;  // a literal
};

/// The same where no shortage is an excuse.
class GraveFailure final : public Failure {
public:
    using Failure::Failure;
};

/// Ends a piece of work, and the run, unless the machine had too little meanwhile.
inline void Require(bool bHolds, const char* lpszWhat) {
    if (!bHolds) {
        throw Failure(lpszWhat);
    }
}

/// Ends the run: a content has changed, or what was promised has not come.
inline void Insist(bool bHolds, const char* lpszWhat) {
    if (!bHolds) {
        throw GraveFailure(lpszWhat);
    }
}

/// @return what was made, which is there.
template <typename Pointer>
Pointer Have(Pointer made) {
    Require(made != nullptr, "nothing was made");
    return made;
}

void UseGeneralPool(Worker& worker);
void UseCirclePool(Worker& worker);
void UseValues(Worker& worker);
void UseGroups(Worker& worker);
void UseArchive(Worker& worker);
void UseBmp(Worker& worker);
void UseJpeg(Worker& worker);
void UseTasks(Worker& worker);
void UseThread(Worker& worker);
void UsePlugin(Worker& worker);
void UseFork(Worker& worker);

struct Kind {
    const char* lpszName;
    void (*pfnWork)(Worker&);
    int nWeight;  ///< how often it is chosen
    bool bRough;  ///< only in a rough run
};

constexpr std::array<Kind, 11> kKinds = {{{"general", UseGeneralPool, 16, false},
                                          {"circle", UseCirclePool, 16, false},
                                          {"values", UseValues, 24, false},
                                          {"groups", UseGroups, 16, false},
                                          {"archive", UseArchive, 8, false},
                                          {"bmp", UseBmp, 6, false},
                                          {"jpeg", UseJpeg, 6, false},
                                          {"tasks", UseTasks, 8, false},
                                          {"thread", UseThread, 1, false},
                                          {"plug-in", UsePlugin, 2, true},
                                          {"fork", UseFork, 1, true}}};

/// @return objects of the test's own that the library was to give back, and has not.
int LiveObjects();

}  // namespace tnsoak

#endif  // TNROBOTKERNEL_TESTS_SOAK_WORKSHOP_H_
