// Uses the installed library as an application would: a value into a group, a look at it.

#include <TnRobotKernel/TnRobotKernel.h>

#include <cstdio>

int main() {
    ITnRobotDataValueGroup* pGroup = nullptr;
    if (TnCreateRobotValueDataGroup(&pGroup) != 1) {
        return 1;
    }
    pGroup->SetValue("answer", 42);
    int nError = -1;
    const int nAnswer = pGroup->IntData("answer", &nError);
    pGroup->Release();
    std::printf("answer %d, error %d\n", nAnswer, nError);
    return nAnswer == 42 && nError == 0 ? 0 : 1;
}
