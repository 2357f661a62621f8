// What the border tests and their plug-in know of each other: objects that the plug-in makes, and
// what it finds out about objects that it is handed.

#ifndef TNROBOTKERNEL_TESTS_ABI_PLUGIN_PLUGIN_H_
#define TNROBOTKERNEL_TESTS_ABI_PLUGIN_PLUGIN_H_

#include <typeinfo>

#include "TnRobotKernel/TnRobotKernel.h"

namespace tntest {

struct PluginTable {
    // Objects of the plug-in's own classes; one reference each.
    ITnRobotFile* (*pfnCreateFile)();
    ITnRobotMemoryBlockPool* (*pfnCreateBlockPool)();
    ITnElementAlloc* (*pfnCreateElementAlloc)();
    CTnRobotObject* (*pfnCreateNode)(int nNumber);  ///< of a registered class; counted
    int (*pfnNumberOf)(CTnRobotObject* pNode);      ///< -1 when it is not one of the plug-in's nodes
    int (*pfnLiveObjects)();                        ///< of all these classes

    // What the plug-in sees of objects made elsewhere.
    const std::type_info* (*pfnTypeOf)(ITnUnknown* pObject);
    bool (*pfnIsValue)(ITnUnknown* pObject);
    bool (*pfnIsGroup)(ITnUnknown* pObject);
    bool (*pfnIsMemFile)(ITnUnknown* pObject);
    bool (*pfnIsSerialisable)(ITnUnknown* pObject);
    ITnUnknown* (*pfnRootOf)(ITnRobotSerialize* pObject);
    void (*pfnDestroy)(ITnRobotSerialize* pObject);

    // Types of interfaces, as the plug-in has them.
    const std::type_info* pRootType;
    const std::type_info* pFileType;
    const std::type_info* pSerializeType;
    const std::type_info* pObjectType;

    ITnRobotDataValueGroup* (*pfnCreateGroup)();  ///< the library's, with "answer" 42; one reference
    bool (*pfnCatchesWhatTheLibraryThrows)();

    /// Uses the library as far as that goes without a host: a saved and loaded node.
    bool (*pfnRunAlone)();
};

using GetPluginFunction = const PluginTable* (*)();

constexpr char kGetPlugin[] = "TnGetTestPlugin";
constexpr char kPluginNodeGuid[] = "11111111-AAAA-4AAA-8AAA-000000000001";
constexpr int kNodeThatFailsToLoad = 0x0BAD0BAD;

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_ABI_PLUGIN_PLUGIN_H_
