// What the workers of the soak test share, and the kinds of work they do with it. Every piece of
// work checks what it gets and gives back all it has taken.

#ifndef TNROBOTKERNEL_TESTS_SOAK_WORKSHOP_H_
#define TNROBOTKERNEL_TESTS_SOAK_WORKSHOP_H_

#include <array>
#include <filesystem>
#include <random>
#include <stdexcept>
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

/// Ends a worker: something is not as it must be.
inline void Require(bool bHolds, const char* lpszWhat) {
    if (!bHolds) {
        throw std::runtime_error(lpszWhat);
    }
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

struct Kind {
    const char* lpszName;
    void (*pfnWork)(Worker&);
    int nWeight;  ///< how often it is chosen
};

constexpr std::array<Kind, 9> kKinds = {{{"general", UseGeneralPool, 16},
                                         {"circle", UseCirclePool, 16},
                                         {"values", UseValues, 24},
                                         {"groups", UseGroups, 16},
                                         {"archive", UseArchive, 8},
                                         {"bmp", UseBmp, 6},
                                         {"jpeg", UseJpeg, 6},
                                         {"tasks", UseTasks, 8},
                                         {"thread", UseThread, 1}}};

/// @return objects of the test's own that the library was to give back, and has not.
int LiveObjects();

}  // namespace tnsoak

#endif  // TNROBOTKERNEL_TESTS_SOAK_WORKSHOP_H_
