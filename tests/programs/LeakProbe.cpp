// Ends with library objects alive, or with none, in the way that its argument names. What the
// library says about it goes to the error output.

#include <cstdio>
#include <cstring>
#include <thread>
#include <utility>

#include "TnRobotKernel/TnRobotKernel.h"
#include "TnRobotKernel/ptr.h"
#include "support/objects/Memory.h"

using namespace tntest;

namespace {

// Destroyed before the library's statics, which were made earlier.
TnRobotPtr<ITnRobotMemFile> s_heldByStatic;

// What is left alive is still referred to, unless it is to be lost. Nobody reads it.
ITnUnknown* volatile g_pKept[8];

ITnRobotMemFile* MakeFile() {
    ITnRobotMemFile* pFile = nullptr;
    TnCreateRobotMemFile(&pFile);
    return pFile;
}

ITnRobotDataValue* MakeValue(int nValue) {
    ITnRobotDataValue* pValue = nullptr;
    TnCreateRobotIntData(nValue, &pValue);
    return pValue;
}

constexpr unsigned int kBlockBytes = 100;

// A general pool with one block in use and one that lies free.
void KeepAPool() {
    ITnRobotMemoryBlockPool* pPool = MakePool().detach();
    TnRobotPtr<ITnRobotMemoryBlock> used = Query(*pPool, kBlockBytes);
    Query(*pPool, kBlockBytes).reset();
    g_pKept[0] = pPool;
    g_pKept[1] = used.detach();
}

// The pools go first, the objects that came from them later.
void OutliveThePools() {
    HeldPool pool = MakePool();
    const TnRobotPtr<ITnRobotMemoryBlock> block = Query(*pool, kBlockBytes);
    ITnRobotSurfacePool* pSurfaces = nullptr;
    TnCreateRobotSurfacePool(pool.get(), &pSurfaces);
    ITnRobotSurface::STnSurfaceDesc desc{};
    desc.nWidth = desc.nHeight = 4;
    desc.eImageType = TN_IMAGE_GRAY8;
    ITnRobotSurface* pSurface = nullptr;
    pSurfaces->QuerySurface(desc, &pSurface);
    const TnRobotPtr<ITnRobotDataValue> value = tn::Adopt(MakeValue(1));
    pSurfaces->Release();
    pool.reset();
    TnRobotUtils::Destroy();
    TnRobotUtils::Init();
    pSurface->Release();
}

// In a thread, whose stack goes with it: an address left on this one's would count as a reference.
void LoseAFile() {
    std::thread([] { MakeFile()->OpenWriteFile(100); }).join();
}

bool Run(const char* lpszCase) {
    const struct {
        const char* lpszName;
        void (*pfnRun)();
    } cases[] = {
        {"nothing", [] { tn::Adopt(MakeFile()).reset(); }},
        {"static", [] { s_heldByStatic = tn::Adopt(MakeFile()); }},
        {"outlived pools", OutliveThePools},
        {"two files", [] { g_pKept[0] = MakeFile(), g_pKept[1] = MakeFile(); }},
        {"a value",
         [] {
             g_pKept[0] = MakeValue(1);
             MakeValue(2)->Release();
         }},
        {"a pool", KeepAPool},
        {"a lost file", LoseAFile},
    };
    for (const auto& entry : cases) {
        if (std::strcmp(entry.lpszName, lpszCase) == 0) {
            entry.pfnRun();
            return true;
        }
    }
    return false;
}

}  // namespace

int main(int nArguments, char** arguments) {
    return nArguments == 2 && Run(arguments[1]) ? 0 : 1;
}
