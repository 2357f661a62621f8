// What happens when the library is loaded and unloaded. All of it stands in this file, because
// only within one file is the order fixed: objects are made from top to bottom at load, and go
// from bottom to top at unload and at the end of the process.

#include <ios>

#include "TnRobotKernel/utilities.h"
#include "concurrency/TnWorker.h"
#include "core/TnChecked.h"
#include "core/TnFork.h"
#include "core/TnRobotDirectories.h"

std::string g_strWorkDir;
std::string g_strDebugDir;
std::string g_strProfileDir;

namespace {

void library_init() {
    tnrobot::ForkSafe::Install();
    TnRobotUtils::Init();
}

// Objects that applications still hold may be meant to live on: in statics of theirs that are
// destroyed later, as those of a program are that the library is linked into statically. So what
// a checked build finds alive is reported, and nothing else happens; such objects stay usable.
void library_cleanup() {
    tnrobot::Worker::JoinLast();
    TnRobotUtils::Destroy();
    if constexpr (tnrobot::kChecked) {
        tnrobot::checked::ReportLiveObjects();
        tnrobot::checked::EmptyQuarantine();
    }
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
