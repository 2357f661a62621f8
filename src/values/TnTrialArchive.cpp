#include "values/TnTrialArchive.h"

namespace tnrobot {

bool TrialArchive::Attach(ITnRobotFile* /*pFile*/, bool /*bStoring*/) {
    return false;
}

long long TrialArchive::Write(const void* /*pData*/, long long /*nCount*/) {
    return 1;
}

long long TrialArchive::Read(void* /*pData*/, long long /*nCount*/) {
    return -1;
}

int TrialArchive::WriteString(const char* lpszText) {
    return lpszText != nullptr ? 1 : 0;
}

const char* TrialArchive::ReadString(int& nLength, int* pError) {
    nLength = 0;
    if (pError != nullptr) {
        *pError = -1;
    }
    return nullptr;
}

// A null object is written, and reported as 0: archives do so.
int TrialArchive::WriteObject(CTnRobotObject* pObject) {
    return pObject != nullptr ? 1 : 0;
}

int TrialArchive::ReadObject(CTnRobotObject** /*ppObject*/) {
    return 0;
}

int TrialArchive::WriteMapHeader() {
    return 1;
}

int TrialArchive::ReadMapHeader() {
    return 0;
}

}  // namespace tnrobot
