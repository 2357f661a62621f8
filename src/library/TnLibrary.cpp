// The start and the end of the library: the one place that knows every part of it, and that no part
// knows. What has to come and go in a certain order stands in this file, because only within one file
// is the order fixed: objects are made from top to bottom at load, and go from bottom to top at unload
// and at the end of the process.

#include <ios>

#include "TnRobotKernel/utilities.h"
#include "checked/TnChecked.h"
#include "concurrency/TnWorker.h"
#include "core/TnFork.h"
#include "utils/TnRobotDirectories.h"
#include "values/TnRobotDataValuePool.h"

// Part of the interface, and called again by applications.
void TnRobotUtils::Init() {
    g_strWorkDir = tnrobot::CurrentDirectory();
    CTnRobotDataValuePool::MakeProcessWide();
}

void TnRobotUtils::Destroy() {
    CTnRobotDataValuePool::DestroyProcessWide();
}

namespace {

void library_init() {
    tnrobot::ForkSafe::Install();
    TnRobotUtils::Init();
}

// Objects that applications still hold live on, since their holders may go later than the library: the
// statics of a program that it is linked into do. A checked build names what it finds alive.
void library_cleanup() {
    tnrobot::Worker::JoinLeft();
    TnRobotUtils::Destroy();
    tnrobot::EndChecks();
}

struct LibraryHooks {
    LibraryHooks() { library_init(); }
    ~LibraryHooks() { library_cleanup(); }
    LibraryHooks(const LibraryHooks&) = delete;
    LibraryHooks& operator=(const LibraryHooks&) = delete;
};

const LibraryHooks s_hooks;
const std::ios_base::Init s_standardStreams;

}  // namespace
