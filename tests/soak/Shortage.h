// Times at which the process gets too little: its allocations or its threads are refused, as on a machine that
// has no more. It replaces the operators new and delete, and pthread_create, of the whole program.

#ifndef TNROBOTKERNEL_TESTS_SOAK_SHORTAGE_H_
#define TNROBOTKERNEL_TESTS_SOAK_SHORTAGE_H_

namespace tnsoak {

enum class Shortage {
    kNone,
    kSomeMemory,  ///< one allocation of many is refused
    kMemory,      ///< every allocation is refused
    kThreads      ///< no thread can be started
};

constexpr const char* NameOf(Shortage eShortage) {
    constexpr const char* kNames[] = {"calm", "some memory", "no memory", "no threads"};
    return kNames[static_cast<int>(eShortage)];
}

/// @return whether memory can be refused in this build: a sanitizer has operators of its own, and the objects
///         that checked builds keep books about are made with the library's.
bool CanRefuseMemory();

/// Begins a shortage, or ends it. One thread calls it.
void SetShortage(Shortage eShortage);

/// @return what has been refused so far.
long long Refused();

/// While it lives, the calling thread is refused nothing.
class Spared {
public:
    Spared();
    Spared(const Spared&) = delete;
    Spared& operator=(const Spared&) = delete;
    ~Spared();
};

/// Remembers when a piece of work was begun.
class Weather {
public:
    Weather();
    /// @return whether there has been a shortage since.
    bool WasShort() const;

private:
    unsigned int m_nAtBegin;
};

}  // namespace tnsoak

#endif  // TNROBOTKERNEL_TESTS_SOAK_SHORTAGE_H_
