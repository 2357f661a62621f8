// Who holds a reference, and how it changes hands.

#include <TnRobotKernel/make.h>

#include <cstdio>
#include <utility>

namespace {

// [count]
// A reference more and one less: the second call tells how many there are.
int Count(ITnUnknown* pObject) {
    pObject->AddRef();
    return pObject->Release();
}
// [/count]

// [borrow]
// A borrowed pointer: used during the call, not kept, not released.
void Rename(ITnRobotDataValueGroup* pGroup, const char* lpszName) {
    pGroup->SetValue("name", lpszName);
}
// [/borrow]

}  // namespace

int main() {
    // [own]
    TnRobotPtr<ITnRobotDataValueGroup> first = tn::MakeValueDataGroup();
    std::printf("created: %d\n", Count(first.get()));

    TnRobotPtr<ITnRobotDataValueGroup> second = first;
    std::printf("copied: %d\n", Count(first.get()));

    second.reset();
    std::printf("reset: %d\n", Count(first.get()));

    second = std::move(first);  // first is empty now
    std::printf("moved: %d\n", Count(second.get()));

    Rename(second.get(), "gripper");
    std::printf("lent to a call: %d\n", Count(second.get()));
    // [/own]

    // [cross]
    ITnRobotDataValueGroup* pRaw = second.detach();  // ours to release from here on
    TnRobotPtr<ITnRobotDataValueGroup> third;
    third.attach(pRaw);  // and no longer
    std::printf("out and in: %d\n", Count(third.get()));

    TnRobotPtr<ITnRobotDataValue> name;
    const int nResult = third->GetValue("name", name.put());  // put: the call stores a new reference
    std::printf("GetValue answers %d: \"%s\"\n", nResult, name->Convert2String(nullptr));

    third.reset();  // the group goes, the value stays: somebody holds it
    std::printf("the group is gone: \"%s\"\n", name->Convert2String(nullptr));
    // [/cross]
}
