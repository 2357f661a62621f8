#include "Sample.h"

ISample::~ISample() = default;

int CreateSample(ISample** ppSample) {
    *ppSample = nullptr;
    return 0;
}

#ifdef SAMPLE_ARGUMENT_CHANGED
int DestroySample(ISample* pSample, int nReserved) {
    return pSample != nullptr && nReserved == 0 ? 1 : 0;
}
#elif !defined(SAMPLE_NAME_REMOVED)
int DestroySample(ISample* pSample) {
    return pSample != nullptr ? 1 : 0;
}
#endif

#ifdef SAMPLE_NAME_ADDED
int CopySample(ISample* pSample) {
    return pSample != nullptr ? 1 : 0;
}
#endif
