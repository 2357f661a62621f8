// What concerns the whole process: a plug-in that is opened and closed, and children that are forked while the
// other workers are somewhere in the library.

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <exception>

#include "soak/Guest.h"
#include "soak/Shortage.h"
#include "soak/Workshop.h"
#include "support/objects/Archives.h"
#include "support/objects/Groups.h"
#include "support/objects/Memory.h"

using namespace tntest;

namespace tnsoak {

namespace {

constexpr unsigned int kChildSeconds = 60;  // one that hangs is ended

class OpenPlugin {
public:
    // What the loader and static objects need is there: a program cannot go on without it.
    OpenPlugin() {
        const Spared spared;
        m_pPlugin = dlopen(TNROBOT_SOAK_GUEST, RTLD_NOW | RTLD_LOCAL);
        Insist(m_pPlugin != nullptr, "the plug-in does not open");
    }
    OpenPlugin(const OpenPlugin&) = delete;
    OpenPlugin& operator=(const OpenPlugin&) = delete;
    ~OpenPlugin() { dlclose(m_pPlugin); }

    VisitFunction Visitor() const { return reinterpret_cast<VisitFunction>(dlsym(m_pPlugin, kVisit)); }

private:
    void* m_pPlugin;
};

// What a child does with objects of its own.
bool WorksInChild(int nNumber) {
    const Group group = NewGroup();
    if (group->SetValue("number", nNumber) != 0 || group->SetValue("text", "of a child") != 0) {
        return false;
    }
    const Group loaded = NewGroup();
    if (LoadFrom(*loaded, SavedFormOf(*group)) != 1 || SavedFormOf(*loaded) != SavedFormOf(*group)) {
        return false;
    }
    const HeldPool pool = MakePool();
    const HeldBlock block = Query(*pool, 100000);
    if (block == nullptr) {
        return false;
    }
    FillPattern(*block, 7);
    return HasPattern(*block, 7);
}

[[noreturn]] void LiveAsChild(int nNumber) {
    const Spared spared;
    alarm(kChildSeconds);
    bool bWorked = false;
    try {
        bWorked = WorksInChild(nNumber);
    } catch (const std::exception&) {
    }
    _exit(bWorked ? 0 : 1);
}

int AwaitEnd(pid_t nChild) {
    int nStatus = 0;
    while (waitpid(nChild, &nStatus, 0) < 0 && errno == EINTR) {
    }
    return nStatus;
}

}  // namespace

void UsePlugin(Worker& worker) {
    const OpenPlugin plugin;
    const VisitFunction pfnVisit = plugin.Visitor();
    Insist(pfnVisit != nullptr, "the plug-in lacks its function");
    const Visit eVisit = pfnVisit(worker.Number(1, 1000000));
    Insist(eVisit != Visit::kWrong, "the plug-in's object has changed");
    Require(eVisit == Visit::kWorked, "the plug-in's object was not saved and loaded");
}

void UseFork(Worker& worker) {
    const int nNumber = worker.Number(1, 1000000);
    const pid_t nChild = fork();
    if (nChild == 0) {
        LiveAsChild(nNumber);
    }
    Require(nChild > 0, "no child");
    Insist(AwaitEnd(nChild) == 0, "a child did not get through its work");
}

}  // namespace tnsoak
