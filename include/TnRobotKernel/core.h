/// @file
/// The frame every other header builds on: the reference-counted root interface, runtime
/// classes for objects that are saved and created again by identifier, and the logging facade.
///
/// Words that all headers use:
/// - "+1, caller releases": the object comes with one reference, which the caller gives back with
///   one Release.
/// - "borrowed": no reference changes hands. The pointer is good for as long as the text says.
/// - "untouched on failure": the variable keeps what it held, so set it to null before the call.
/// - "thread-safe": any thread may call it at any time, on the same object too.
/// - "externally synchronised": one thread at a time for each object; different objects do not
///   disturb each other.
///
/// Failures are results. Nothing is thrown but std::bad_alloc when memory ends, std::system_error
/// when a mutex or a thread cannot be had, and what an operation names. Out-pointers and references
/// to fill must be there; an operation that accepts null says so.

#ifndef TNROBOTKERNEL_CORE_H_
#define TNROBOTKERNEL_CORE_H_

#if __cplusplus < 201703L
#error "libTnRobotKernel needs C++17: compile with -std=c++17 or a later standard"
#endif

#include <atomic>

/// @addtogroup frame
/// @{

/// Marks what the shared library exports; everything else is hidden.
#define TN_ROBOT_API __attribute__((visibility("default")))

/// Marks what does nothing, or not what its name says, and stays for programs that have it: who calls it
/// is warned. Define TN_ROBOT_SILENCE_DEPRECATED, before the first of these headers, for no warnings.
#ifdef TN_ROBOT_SILENCE_DEPRECATED
#define TN_ROBOT_DEPRECATED(text)
#else
#define TN_ROBOT_DEPRECATED(text) __attribute__((deprecated(text)))
#endif

class CTnRobotObject;
class ITnRobotArchive;

/// Root of every counted interface.
///
/// Lifetime: a new object holds one reference, which belongs to whoever created it; the object
///           destroys itself when its last reference is released.
/// Threads:  AddRef and Release are thread-safe; what a derived interface does says so itself.
class TN_ROBOT_API ITnUnknown {
public:
    ITnUnknown(const ITnUnknown&) = delete;
    ITnUnknown& operator=(const ITnUnknown&) = delete;

    /// Destroys the object. Callers release references instead of calling it.
    virtual ~ITnUnknown();

    /// Adds one reference, which somebody has to release again. Thread-safe.
    virtual void AddRef();

    /// Gives one reference back; the last one destroys the object. Thread-safe.
    /// @return the number of references left, 0 when the object was destroyed. The object must
    ///         not be used after the caller's last Release.
    virtual int Release();

protected:
    /// Starts with the one reference that belongs to whoever creates the object.
    ITnUnknown() noexcept : m_nRefCount(1) {}

    std::atomic<int> m_nRefCount;  ///< references alive; only changed by atomic read-modify-write
};

/// Creates an object of one class. Called by CTnRobotObject::CreateObjectFromGUID and by archives
/// that load, on their thread.
/// @return the new object, owned by the caller (+1 where it is counted), or null when it cannot be
///         made.
using TnCreateObjectFunction = CTnRobotObject* (*)();

/// Describes a class whose objects an archive can create again from a textual identifier.
///
/// The record is static storage of the module that defines the class, is initialised by
/// position, and stays registered for as long as that module is loaded.
/// Threads: thread-safe once it is registered: only its link is written then, by TN_REG_CLASS.
struct STnRuntimeClass {
    const char* m_lpszClassGuid;               ///< 8-4-4-4-12 hexadecimal digits, compared byte for byte
    TnCreateObjectFunction m_pfnCreateObject;  ///< null when the class cannot be created
    void* m_pReserved;                         ///< not read by the library
    STnRuntimeClass* m_pNext;                  ///< link of the registration chain, set by TN_REG_CLASS
};

/// Root of the objects that ITnRobotArchive writes and creates again by class identifier.
///
/// A serialisable class derives from this and from ITnRobotSerialize, and from ITnUnknown too
/// when its objects are shared.
/// Threads: externally synchronised.
class TN_ROBOT_API CTnRobotObject {
public:
    CTnRobotObject() = default;
    /// Copies nothing: the root has no state.
    CTnRobotObject(const CTnRobotObject&) = default;
    /// Copies nothing: the root has no state. @return this object.
    CTnRobotObject& operator=(const CTnRobotObject&) = default;

    /// Destroys the object; an archive calls it for an object that failed to load.
    virtual ~CTnRobotObject();

    /// @return the record of the object's class: borrowed, static storage.
    virtual STnRuntimeClass* GetRuntimeClass() = 0;

    /// Creates an object of a registered class. When two classes share an identifier the one
    /// that was registered last is taken. Thread-safe.
    /// @param[in] lpszGuid  class identifier, compared byte for byte.
    /// @return the new object, owned by the caller, or null for a null, empty or unknown
    ///         identifier and for a class without a creation function.
    static CTnRobotObject* CreateObjectFromGUID(const char* lpszGuid);

    /// Record of the root class, always the last of the registration chain; creates nothing. Its
    /// identifier is 00000000-0000-0000-0000-000000000000.
    static STnRuntimeClass classCTnRobotObject;
};

/// Registers a class: define one static object of this type with the class's record.
///
/// Threads: thread-safe.
class TN_ROBOT_API TN_REG_CLASS {
public:
    /// Puts the record at the head of the registration chain, so that it is found before older
    /// ones with the same identifier; a record that is registered already moves there. Null is
    /// ignored. Thread-safe; throws std::bad_alloc when the system has no memory left.
    /// A class is never unregistered while its module is loaded. When a plug-in is closed, the
    /// classes whose records are part of it are forgotten. Others may be looked up and registered
    /// meanwhile; whoever closes it sees to it that nobody makes or has objects of the plug-in's own.
    /// @param[in] pClass  borrowed until its module is closed, for memory outside of modules for the
    ///            rest of the process's life; its link is written.
    explicit TN_REG_CLASS(STnRuntimeClass* pClass);
};

/// Contract of everything that saves itself to and loads itself from an archive.
///
/// Lifetime: not counted: a second base of objects that somebody holds by another one.
/// Threads:  externally synchronised.
class TN_ROBOT_API ITnRobotSerialize {
public:
    ITnRobotSerialize() = default;
    /// Copies nothing: the contract has no state.
    ITnRobotSerialize(const ITnRobotSerialize&) = default;
    /// Copies nothing: the contract has no state. @return this object.
    ITnRobotSerialize& operator=(const ITnRobotSerialize&) = default;
    virtual ~ITnRobotSerialize();

    /// Loads the object when the archive is loading, saves it otherwise.
    /// @param[in] pArchive  borrowed for the call.
    /// @return 1 on success, 0 on failure; a failed load may leave the object half loaded. The
    ///         library's own values and groups answer 1 for every save: they do not look at the
    ///         single writes. The file knows: ITnRobotFile::Flush, then GetPos, which is -1 after a failure.
    virtual int Serialize(ITnRobotArchive* pArchive) = 0;
};

/// What the logging facade expects of the object made by the logger library. Logger libraries
/// implement it; applications log through TnRobotLogUtils.
///
/// Lifetime: destroyed through its virtual destructor by the last TnRobotLogUtils::Destroy;
///           its reference count is not used.
/// Threads:  thread-safe: WriteLog, IsLevelEnabled and SetLogParam are called from any thread, also
///           at the same time; the destruction runs alone.
class TN_ROBOT_API ITnRobotLogger : public ITnUnknown {
public:
    ~ITnRobotLogger() override;

    /// Receives both arguments of TnRobotLogUtils::SetLogParam unchanged; what they mean is the
    /// logger library's.
    /// @param[in] nFirst   the first of them.
    /// @param[in] nSecond  the second.
    virtual void SetLogParam(int nFirst, int nSecond) = 0;

    /// Receives a finished line of a level that IsLevelEnabled has just accepted.
    /// @param[in] nLevel    the line's level.
    /// @param[in] lpszText  zero-terminated, at most 1023 characters, without a line end of the
    ///            library's; borrowed for the call.
    virtual void WriteLog(int nLevel, const char* lpszText) = 0;

    /// Asked before each line.
    /// @param[in] nLevel  the line's level.
    /// @return false to drop the line before it is formatted.
    virtual bool IsLevelEnabled(int nLevel) = 0;
};

/// Creation function that a logger library exports as "TnCreateRobotLogger" with C linkage.
/// @param[out] ppLogger  where the facade keeps its logger, the same place at every call: what is
///             stored there is used even when the result is not 0. From then on the calling thread
///             may log, and call TnRobotLogUtils::Init, which counts; other threads have the logger
///             once one of the two Inits has returned.
/// @return 0 on success; any other value is handed to the caller of TnRobotLogUtils::Init.
using TnCreateRobotLoggerFunction = int (*)(ITnRobotLogger** ppLogger);

/// Forwards log lines to the logger library "libTnRobotLog.so", which is opened on request.
/// The meaning of levels and parameters belongs to the logger library.
///
/// Threads: SetLogParam and PrintLog are thread-safe; Init and Destroy are externally synchronised.
class TN_ROBOT_API TnRobotLogUtils {
public:
    TnRobotLogUtils() = delete;

    /// Opens the logger library and creates its logger; further calls only count.
    /// Externally synchronised with itself and Destroy.
    /// @return 0 on success, -1 when the library or its creation function is missing, otherwise
    ///         the creation function's own result. Only a result of 0 needs a Destroy.
    static int Init();

    /// Hands two values to the logger; does nothing without one. Thread-safe.
    /// @param[in] nFirst   meant for the logger; "which setting" for the one of this project.
    /// @param[in] nSecond  meant for the logger; the setting's value for the one of this project.
    static void SetLogParam(int nFirst, int nSecond);

    /// Formats a line and hands it to the logger, if there is one and it wants the level.
    /// A line of more than 1023 characters aborts the process. Thread-safe.
    /// @param[in] nLevel      level of the line; its meaning is the logger library's.
    /// @param[in] lpszFormat  format and arguments as of printf, borrowed for the call.
    static void PrintLog(int nLevel, const char* lpszFormat, ...) __attribute__((format(printf, 2, 3)));

    /// Takes back one successful Init; the last one destroys the logger and closes its library.
    /// Does nothing without a matching Init. Externally synchronised with Init and with every
    /// thread that still logs.
    static void Destroy();
};

/// @}

#endif  // TNROBOTKERNEL_CORE_H_
