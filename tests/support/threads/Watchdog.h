// Fails a test that hangs.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_THREADS_WATCHDOG_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_THREADS_WATCHDOG_H_

namespace tntest {

/// Ends the process, naming the running test, when it lives longer than its seconds. It works by
/// the process's alarm signal, so that it adds no thread; there can be one at a time.
class Watchdog {
public:
    explicit Watchdog(unsigned int nSeconds);
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
    ~Watchdog();

    /// Gives the test more time, from now on.
    static void Extend(unsigned int nSeconds);
};

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_THREADS_WATCHDOG_H_
