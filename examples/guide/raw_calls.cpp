// The same work with the raw interface: every reference that comes in is given back by hand.

#include <TnRobotKernel/TnRobotKernel.h>

#include <cstdio>

// [main]
int main() {
    ITnRobotDataValueGroup* pGroup = nullptr;
    if (TnCreateRobotValueDataGroup(&pGroup) != 1) {  // objects: 1 is success
        return 1;
    }
    ITnRobotDataValue* pNew = nullptr;
    if (TnCreateRobotIntData(42, &pNew) != 0) {  // values: 0 is success
        pGroup->Release();
        return 1;
    }
    pGroup->SetValue("answer", pNew);  // the group takes a reference of its own,
    pNew->Release();                   // so ours is given back

    ITnRobotDataValue* pFound = nullptr;
    if (pGroup->GetValue("answer", &pFound) != 0) {  // a new reference, for us
        pGroup->Release();
        return 1;
    }
    pGroup->Release();  // the group goes, the value stays: we hold it
    int nError = -1;
    const int nAnswer = pFound->IntData(&nError);
    std::printf("answer %d, error %d\n", nAnswer, nError);
    const int nLeft = pFound->Release();
    std::printf("references left: %d, the pool's own\n", nLeft);
    return 0;
}
// [/main]
