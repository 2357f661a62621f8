// The logger's table of operations as a logger library might declare it for itself, without the
// library's headers: what counts between the two is the order of the slots.

#ifndef TNROBOTKERNEL_TESTS_PROGRAMS_LOGGERS_OWNDECLARATIONS_H_
#define TNROBOTKERNEL_TESTS_PROGRAMS_LOGGERS_OWNDECLARATIONS_H_

// Hidden, so that the loader cannot join these classes to the ones of the same names. The names
// must agree for the sanitizer that checks the class of an object at every call.
class __attribute__((visibility("hidden"))) ITnUnknown {
public:
    virtual ~ITnUnknown() = default;
    virtual void AddRef() = 0;
    virtual int Release() = 0;

    int m_nRefCount = 1;
};

class __attribute__((visibility("hidden"))) ITnRobotLogger : public ITnUnknown {
public:
    virtual void SetLogParam(int nFirst, int nSecond) = 0;
    virtual void WriteLog(int nLevel, const char* lpszText) = 0;
    virtual bool IsLevelEnabled(int nLevel) = 0;
};

#endif  // TNROBOTKERNEL_TESTS_PROGRAMS_LOGGERS_OWNDECLARATIONS_H_
