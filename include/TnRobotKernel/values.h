/// @file
/// Typed data values, the functions that create them, and named groups of values.

#ifndef TNROBOTKERNEL_VALUES_H_
#define TNROBOTKERNEL_VALUES_H_

#include <string>
#include <utility>
#include <vector>

#include "TnRobotKernel/core.h"
#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/pool.h"

/// @addtogroup values
/// @{

/// Type of a data value; saved as its number.
enum ETnRobotDataValueType : int {
    DATA_TYPE_NONE = 0,       ///< no value
    DATA_TYPE_BOOL = 1,       ///< one byte, 0 or 1
    DATA_TYPE_SHORT = 2,      ///< signed, 2 bytes
    DATA_TYPE_USHORT = 3,     ///< unsigned, 2 bytes
    DATA_TYPE_INT = 4,        ///< signed, 4 bytes
    DATA_TYPE_UINT = 5,       ///< unsigned, 4 bytes
    DATA_TYPE_FLOAT = 6,      ///< IEEE 754, 4 bytes
    DATA_TYPE_DOUBLE = 7,     ///< IEEE 754, 8 bytes
    DATA_TYPE_LONGLONG = 8,   ///< signed, 8 bytes
    DATA_TYPE_ULONGLONG = 9,  ///< unsigned, 8 bytes
    DATA_TYPE_STRING = 10,    ///< characters and their terminating zero
    DATA_TYPE_BLOCK = 11,     ///< any bytes
    DATA_TYPE_CHAR = 12,      ///< the character and one zero byte
    DATA_TYPE_BYTE = 13,      ///< one unsigned byte
};

/// One value of one type. A value is read as exactly the type it has; it converts to text only.
///
/// The typed readers share one rule: on a match *pError is 0 and the result is the value;
/// otherwise *pError is -1, the result is 0 (null for pointers) and a length is not written.
/// pError may be null. A value that was saved and loaded again keeps the length it had before
/// the load (8 for a new one, as in a loaded group); its bytes are followed by zeros as far as
/// that length reaches.
///
/// Lifetime: values come from the process-wide pool and return to it, cleared, with their last
///           holder's Release.
/// Threads:  AddRef and Release are thread-safe; the rest is externally synchronised.
class TN_ROBOT_API ITnRobotDataValue : public ITnPoolElement, public ITnRobotSerialize {
public:
    ~ITnRobotDataValue() override;

    /// @return the value's type; DATA_TYPE_NONE for one that holds nothing.
    virtual ETnRobotDataValueType GetDataValueType() = 0;

    /// Reads a value of the type in the operation's name: CharData a DATA_TYPE_CHAR.
    /// @param[out] pError  0 when the type matches, else -1; may be null.
    /// @return the value, or 0 (false) when its type is another.
    virtual bool BoolData(int* pError) = 0;

    /// @copydoc BoolData(int*)
    virtual char CharData(int* pError) = 0;
    /// @copydoc BoolData(int*)
    virtual unsigned char ByteData(int* pError) = 0;
    /// @copydoc BoolData(int*)
    virtual short ShortData(int* pError) = 0;
    /// @copydoc BoolData(int*)
    virtual unsigned short UShortData(int* pError) = 0;
    /// @copydoc BoolData(int*)
    virtual int IntData(int* pError) = 0;
    /// @copydoc BoolData(int*)
    virtual unsigned int UintData(int* pError) = 0;
    /// @copydoc BoolData(int*)
    virtual float FloatData(int* pError) = 0;
    /// @copydoc BoolData(int*)
    virtual double DoubleData(int* pError) = 0;
    /// @copydoc BoolData(int*)
    virtual long long LonglongData(int* pError) = 0;
    /// @copydoc BoolData(int*)
    virtual unsigned long long ULonglongData(int* pError) = 0;

    /// Reads a DATA_TYPE_STRING.
    /// @param[out] nLength  recorded length in bytes, terminating zero included; untouched when the
    ///                      type is another.
    /// @param[out] pError   0 when the type matches, else -1; may be null.
    /// @return the characters, borrowed until the value is copied to, loaded or released; null when
    ///         the type is another.
    virtual const char* StringData(int& nLength, int* pError) = 0;

    /// Reads a DATA_TYPE_BLOCK.
    /// @param[out] nLength  recorded length in bytes; untouched when the type is another.
    /// @param[out] pError   0 when the type matches, else -1; may be null.
    /// @return the bytes, borrowed until the value is copied to, loaded or released; null for an
    ///         empty block and when the type is another.
    virtual const void* BlockData(unsigned int& nLength, int* pError) = 0;

    /// The value as text: numbers as printf's %d, %u, %f and %lld would (an unsigned 64-bit
    /// number too, so that the upper half prints as negative), blocks as lower-case hexadecimal.
    /// @param[out] pLength  length of the text plus one, 0 for a value without data; may be null.
    /// @return text owned by the value, borrowed until the value is copied to or released. It is made
    ///         once: a value that is loaded afterwards keeps its old text.
    virtual const char* Convert2String(unsigned int* pLength) = 0;

    /// Makes this value an independent copy.
    /// @param[in] pSource  borrowed for the call; null and values of another implementation are
    ///            ignored.
    virtual void Copy(ITnRobotDataValue* pSource) = 0;

    /// Copies the value into a new one.
    /// @return a copy from the process-wide pool: +1, caller releases; null without a pool.
    virtual ITnRobotDataValue* Clone() = 0;
};

/// A dictionary of data values by name. Names are compared byte for byte; their order in
/// enumeration and in files is not specified.
///
/// Typed getters follow the readers of ITnRobotDataValue; a name that is missing reads as an
/// error. Typed setters replace a value of any type, return 0 on success and -1 when no value
/// can be made (the entry is left as it was), and accept the empty name; so do typed getters.
/// In both, and in GetDataValueType, a null name throws std::logic_error.
///
/// Loading (Serialize with an archive that is loading) merges: entries are added, and those already
/// there win over loaded ones of the same name. Storing answers 0 and writes nothing when a value has
/// 2 GiB or more; otherwise 1, whatever the single writes and an application's own values answer.
///
/// Lifetime: holds one reference to each of its values.
/// Threads:  externally synchronised.
class TN_ROBOT_API ITnRobotDataValueGroup : public ITnUnknown, public ITnRobotSerialize {
public:
    ~ITnRobotDataValueGroup() override;

    /// Stores a value under a name; the one it held is released.
    /// @param[in] lpszName  name, copied.
    /// @param[in] pValue    one reference is taken: caller and group share the value.
    /// @return 0, or -1 for a null or empty name or a null value.
    virtual int SetValue(const char* lpszName, ITnRobotDataValue* pValue) = 0;

    /// Finds a value.
    /// @param[in]  lpszName  name.
    /// @param[out] ppValue   +1, caller releases; shared with the group. Untouched on failure.
    /// @return 0, or -1 for a null or empty name or one that is not there.
    virtual int GetValue(const char* lpszName, ITnRobotDataValue** ppValue) = 0;

    /// @param[in] lpszName  name.
    /// @return whether the name is there; false for a null or empty name.
    virtual bool HasValue(const char* lpszName) = 0;

    /// Removes an entry and releases its value.
    /// @param[in] lpszName  name.
    /// @return 0, or -1 for a null or empty name or one that is not there.
    virtual int RemoveValue(const char* lpszName) = 0;

    /// Removes every entry and releases the values.
    /// @return always 0.
    virtual int ClearAllValues() = 0;

    /// Appends a (name, type) pair for each entry.
    /// @param[in,out] names  not cleared first.
    /// @return the number of pairs now in the list.
    virtual int GetAllDataName(std::vector<std::pair<std::string, ETnRobotDataValueType>>& names) = 0;

    /// @param[in] lpszName  name; may be empty.
    /// @return the type of the named value, DATA_TYPE_NONE when it is not there.
    virtual ETnRobotDataValueType GetDataValueType(const char* lpszName) = 0;

    /// Stores a value of the type that the argument has; unsigned char makes a DATA_TYPE_BYTE.
    /// @param[in] lpszName  name, copied; may be empty.
    /// @param[in] value     what it holds.
    /// @return 0 on success, -1 on failure.
    virtual int SetValue(const char* lpszName, bool value) = 0;

    /// Reads the named value as the type in the operation's name: CharData as DATA_TYPE_CHAR.
    /// @param[in]  lpszName  name; may be empty.
    /// @param[out] pError    0 when it is there and of that type, else -1; may be null.
    /// @return the value, or 0 (false) when it is missing or of another type.
    virtual bool BoolData(const char* lpszName, int* pError) = 0;

    /// @copydoc SetValue(const char*,bool)
    virtual int SetValue(const char* lpszName, char value) = 0;
    /// @copydoc BoolData(const char*,int*)
    virtual char CharData(const char* lpszName, int* pError) = 0;
    /// @copydoc SetValue(const char*,bool)
    virtual int SetValue(const char* lpszName, unsigned char value) = 0;
    /// @copydoc BoolData(const char*,int*)
    virtual unsigned char ByteData(const char* lpszName, int* pError) = 0;
    /// @copydoc SetValue(const char*,bool)
    virtual int SetValue(const char* lpszName, short value) = 0;
    /// @copydoc BoolData(const char*,int*)
    virtual short ShortData(const char* lpszName, int* pError) = 0;
    /// @copydoc SetValue(const char*,bool)
    virtual int SetValue(const char* lpszName, unsigned short value) = 0;
    /// @copydoc BoolData(const char*,int*)
    virtual unsigned short UShortData(const char* lpszName, int* pError) = 0;
    /// @copydoc SetValue(const char*,bool)
    virtual int SetValue(const char* lpszName, int value) = 0;
    /// @copydoc BoolData(const char*,int*)
    virtual int IntData(const char* lpszName, int* pError) = 0;
    /// @copydoc SetValue(const char*,bool)
    virtual int SetValue(const char* lpszName, unsigned int value) = 0;
    /// @copydoc BoolData(const char*,int*)
    virtual unsigned int UintData(const char* lpszName, int* pError) = 0;
    /// @copydoc SetValue(const char*,bool)
    virtual int SetValue(const char* lpszName, float value) = 0;
    /// @copydoc BoolData(const char*,int*)
    virtual float FloatData(const char* lpszName, int* pError) = 0;
    /// @copydoc SetValue(const char*,bool)
    virtual int SetValue(const char* lpszName, double value) = 0;
    /// @copydoc BoolData(const char*,int*)
    virtual double DoubleData(const char* lpszName, int* pError) = 0;
    /// @copydoc SetValue(const char*,bool)
    virtual int SetValue(const char* lpszName, long long value) = 0;
    /// @copydoc BoolData(const char*,int*)
    virtual long long LonglongData(const char* lpszName, int* pError) = 0;
    /// @copydoc SetValue(const char*,bool)
    virtual int SetValue(const char* lpszName, unsigned long long value) = 0;
    /// @copydoc BoolData(const char*,int*)
    virtual unsigned long long ULonglongData(const char* lpszName, int* pError) = 0;

    /// Stores a DATA_TYPE_STRING value.
    /// @param[in] lpszName   name, copied; may be empty.
    /// @param[in] lpszValue  text, copied.
    /// @return 0 on success, -1 on failure, which includes a null text.
    virtual int SetValue(const char* lpszName, const char* lpszValue) = 0;

    /// Reads the named value as DATA_TYPE_STRING.
    /// @param[in]  lpszName  name; may be empty.
    /// @param[out] pError    0 when it is there and of that type, else -1; may be null.
    /// @return the text, borrowed until the entry or its value changes; null when it is missing or of
    ///         another type.
    virtual const char* StringData(const char* lpszName, int* pError) = 0;

    /// Stores a DATA_TYPE_BLOCK value.
    /// @param[in] lpszName  name, copied; may be empty.
    /// @param[in] pData     nSize bytes, copied.
    /// @param[in] nSize     bytes.
    /// @return 0 on success, -1 on failure, which includes null pData with a size above 0.
    virtual int SetValue(const char* lpszName, const void* pData, unsigned int nSize) = 0;

    /// Reads the named value as DATA_TYPE_BLOCK.
    /// @param[in]  lpszName  name; may be empty.
    /// @param[out] nLength   recorded length in bytes; untouched when the result is an error.
    /// @param[out] pError    0 when it is there and of that type, else -1; may be null.
    /// @return the bytes, borrowed until the entry or its value changes; null for an empty block and
    ///         when the value is missing or of another type.
    virtual const void* BlockData(const char* lpszName, unsigned int& nLength, int* pError) = 0;

    /// Replaces all entries by copies of another group's. A group copied onto itself ends empty.
    /// @param[in] pSource  borrowed for the call; null and groups of another implementation are
    ///            ignored.
    virtual void Copy(ITnRobotDataValueGroup* pSource) = 0;

    /// Copies the group and its values.
    /// @return a copy of the group: +1, caller releases. Values are copies too, not shared.
    virtual ITnRobotDataValueGroup* Clone() = 0;
};

/// Creates a value of the type in the function's name, TnCreateRobotBoolData a DATA_TYPE_BOOL. Thread-safe.
/// @param[in]  value    what the value holds.
/// @param[out] ppValue  +1, caller releases; untouched on failure.
/// @return 0 on success, -1 without a value pool or for a null ppValue.
TN_ROBOT_API int TnCreateRobotBoolData(bool value, ITnRobotDataValue** ppValue);

/// @copydoc TnCreateRobotBoolData
TN_ROBOT_API int TnCreateRobotCharData(char value, ITnRobotDataValue** ppValue);

/// Creates a DATA_TYPE_BYTE value. Thread-safe.
/// @param[in]  nValue   what the value holds; bits above the lowest 8 are dropped.
/// @param[out] ppValue  +1, caller releases; untouched on failure.
/// @return 0 on success, -1 without a value pool or for a null ppValue.
TN_ROBOT_API int TnCreateRobotByteData(unsigned short nValue, ITnRobotDataValue** ppValue);

/// @copydoc TnCreateRobotBoolData
TN_ROBOT_API int TnCreateRobotShortData(short value, ITnRobotDataValue** ppValue);
/// @copydoc TnCreateRobotBoolData
TN_ROBOT_API int TnCreateRobotUShortData(unsigned short value, ITnRobotDataValue** ppValue);
/// @copydoc TnCreateRobotBoolData
TN_ROBOT_API int TnCreateRobotIntData(int value, ITnRobotDataValue** ppValue);
/// @copydoc TnCreateRobotBoolData
TN_ROBOT_API int TnCreateRobotUintData(unsigned int value, ITnRobotDataValue** ppValue);
/// @copydoc TnCreateRobotBoolData
TN_ROBOT_API int TnCreateRobotFloatData(float value, ITnRobotDataValue** ppValue);
/// @copydoc TnCreateRobotBoolData
TN_ROBOT_API int TnCreateRobotDoubleData(double value, ITnRobotDataValue** ppValue);
/// @copydoc TnCreateRobotBoolData
TN_ROBOT_API int TnCreateRobotLonglongData(long long value, ITnRobotDataValue** ppValue);
/// @copydoc TnCreateRobotBoolData
TN_ROBOT_API int TnCreateRobotULonglongData(unsigned long long value, ITnRobotDataValue** ppValue);

/// Creates a text value. Thread-safe.
/// @param[in]  lpszValue  text, copied with its terminating zero.
/// @param[out] ppValue    +1, caller releases; untouched on failure.
/// @return 0 on success, -1 without a value pool or for a null argument.
TN_ROBOT_API int TnCreateRobotStringData(const char* lpszValue, ITnRobotDataValue** ppValue);

/// Creates a block value. Thread-safe.
/// @param[in]  pData    nSize bytes, copied; may be null when nSize is 0.
/// @param[in]  nSize    bytes.
/// @param[out] ppValue  +1, caller releases; untouched on failure.
/// @return 0 on success, -1 without a value pool, for a null ppValue, or null pData with bytes.
TN_ROBOT_API int TnCreateRobotBlockData(const void* pData, unsigned int nSize, ITnRobotDataValue** ppValue);

/// Creates a block value from everything in a stream. Thread-safe as far as the stream is, which is
/// read on the calling thread before anything is locked: an application's own may use values.
/// @param[in]  pStream  borrowed for the call, read from its beginning; null gives an empty block.
/// @param[out] ppValue  +1, caller releases; untouched on failure.
/// @return 0 on success, -1 without a value pool or for a null ppValue.
TN_ROBOT_API int TnCreateRobotBlockData(ITnRobotMemDataStream* pStream, ITnRobotDataValue** ppValue);

/// Creates an empty group. Thread-safe.
/// @param[out] ppGroup  +1, caller releases; untouched on failure; must not be null.
/// @return 1, or 0 without a value pool.
TN_ROBOT_API int TnCreateRobotValueDataGroup(ITnRobotDataValueGroup** ppGroup);

/// @}

#endif  // TNROBOTKERNEL_VALUES_H_
