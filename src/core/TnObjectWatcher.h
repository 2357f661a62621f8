// Tells those who keep plain pointers to serialisable objects when such an object goes.

#ifndef TNROBOTKERNEL_SRC_CORE_TNOBJECTWATCHER_H_
#define TNROBOTKERNEL_SRC_CORE_TNOBJECTWATCHER_H_

#include <mutex>

class CTnRobotObject;

namespace tnrobot {

/// Is told of every CTnRobotObject that is destroyed, by whatever thread, once it has asked for it.
///
/// An archive refers to objects that it does not hold. Whoever drops one of them must not make the
/// archive hand out memory that is gone, and no holder knows which archives refer to it.
///
/// Invariant: a watcher is in the list of watchers from its first Watch until StopWatching, which its
///            own destructor calls before anything of it goes.
/// Threads: _ObjectGone comes from any thread, under the lock that LockObjects gives, which guards
///          whatever a watcher knows of objects. Nothing else may be locked, called or destroyed
///          under it.
class ObjectWatcher {
public:
    ObjectWatcher(const ObjectWatcher&) = delete;
    ObjectWatcher& operator=(const ObjectWatcher&) = delete;

    /// Tells all watchers. Costs one look at a counter while there is none.
    static void Tell(const CTnRobotObject* pObject) noexcept;

    /// Takes the lock, so that it is not lost in a child; called before a fork.
    static void LockForFork();

    /// Gives it back, in the parent and in the child.
    static void UnlockAfterFork();

protected:
    ObjectWatcher() = default;
    ~ObjectWatcher() = default;

    /// Asks to be told from now on; more calls change nothing. Under the lock.
    void Watch();

    /// Nothing is told when it returns. Not under the lock.
    void StopWatching();

    /// @return the lock under which objects are remembered and forgotten.
    static std::unique_lock<std::mutex> LockObjects();

private:
    virtual void _ObjectGone(const CTnRobotObject* pObject) noexcept = 0;

    ObjectWatcher* m_pNext = nullptr;    // guarded by the lock, like the next
    ObjectWatcher** m_ppThis = nullptr;  // what points to this one in the list
    bool m_bWatches = false;             // changed by the watcher's own thread alone
};

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CORE_TNOBJECTWATCHER_H_
