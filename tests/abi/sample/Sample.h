// An interface in little, which scripts/check_abi.sh builds once as it shipped and once for each
// kind of change, to show that it notices them all.

#ifndef TNROBOTKERNEL_TESTS_ABI_SAMPLE_SAMPLE_H_
#define TNROBOTKERNEL_TESTS_ABI_SAMPLE_SAMPLE_H_

#define SAMPLE_API __attribute__((visibility("default")))

enum ESampleState : int {
    SAMPLE_STATE_IDLE = 0,
#ifdef SAMPLE_ENUMERATOR_CHANGED
    SAMPLE_STATE_BUSY = 2,
#else
    SAMPLE_STATE_BUSY = 1,
#endif
#ifdef SAMPLE_ENUMERATOR_ADDED
    SAMPLE_STATE_GONE = 3,
#endif
};

struct SSampleRecord {
#ifdef SAMPLE_FIELDS_SWAPPED
    int m_nHeight;
    int m_nWidth;
#else
    int m_nWidth;
    int m_nHeight;
#endif
#ifdef SAMPLE_FIELD_ADDED
    int m_nDepth;
#endif
};

class SAMPLE_API ISample {
public:
    virtual ~ISample();
#ifdef SAMPLE_SLOTS_SWAPPED
    virtual ESampleState GetState() = 0;
    virtual void SetRecord(const SSampleRecord& record) = 0;
#else
    virtual void SetRecord(const SSampleRecord& record) = 0;
    virtual ESampleState GetState() = 0;
#endif
#ifdef SAMPLE_RESULT_CHANGED
    virtual long long GetCount() = 0;
#else
    virtual int GetCount() = 0;
#endif
#ifdef SAMPLE_SLOT_ADDED
    virtual void Reset() = 0;
#endif
};

SAMPLE_API int CreateSample(ISample** ppSample);

#ifdef SAMPLE_ARGUMENT_CHANGED
SAMPLE_API int DestroySample(ISample* pSample, int nReserved);
#elif !defined(SAMPLE_NAME_REMOVED)
SAMPLE_API int DestroySample(ISample* pSample);
#endif

#ifdef SAMPLE_NAME_ADDED
SAMPLE_API int CopySample(ISample* pSample);
#endif

#endif  // TNROBOTKERNEL_TESTS_ABI_SAMPLE_SAMPLE_H_
