/// @file
/// Static helper classes for applications.

#ifndef TNROBOTKERNEL_UTILITIES_H_
#define TNROBOTKERNEL_UTILITIES_H_

#include <string>
#include <vector>

#include "TnRobotKernel/core.h"
#include "TnRobotKernel/detail/Point.h"

/// @addtogroup utilities
/// @{

/// Integer rectangle with edges along the axes. Its width is right - left and its height
/// bottom - top. Nothing rejects one whose right or bottom edge lies before its left or top.
struct STnNLRect {
    int left;    ///< smallest x
    int right;   ///< largest x
    int top;     ///< smallest y
    int bottom;  ///< largest y
};

/// Rectangle in any position, given by its corners.
struct STnNL2DRect {
    STnNL2DPoint pt[4];  ///< first to fourth corner: around the rectangle from the left top one
};

/// The library's start-up and shut-down, its directories, and whole files.
///
/// Paths are built with "/" and taken apart at "/" and "\\". Every path result goes to a caller
/// buffer of kPathSize bytes. Integer results are 0 for success and -1 for failure. A null text
/// counts as an empty one.
///
/// Threads: Init, Destroy and what has to do with the work, profile and debug directories is
///          externally synchronised: set the directories up before starting threads. The other
///          functions are thread-safe.
class TN_ROBOT_API TnRobotUtils {
public:
    static constexpr unsigned int kPathSize = 256;  ///< bytes of a path buffer, terminator included

    TnRobotUtils() = delete;

    /// Records the current directory as the work directory and creates the process-wide value
    /// pool when there is none. Runs by itself when the library is loaded. Externally
    /// synchronised.
    static void Init();

    /// Destroys the process-wide value pool; values still held survive, cleared. Runs by itself
    /// when the library is unloaded. Externally synchronised with every use of values.
    static void Destroy();

    /// The work directory: the current directory when the library was loaded.
    /// @return borrowed until the next Init; empty when it was longer than 255 bytes. Externally
    ///         synchronised with Init.
    static const char* GetWorkDir();

    /// Builds a path in the work directory: directory, "/", name. The file need not exist.
    /// @param[in]  lpszName  name, borrowed for the call.
    /// @param[out] lpszPath  kPathSize bytes, filled up with zeros; null is ignored. A longer
    ///                       path is cut after 256 bytes, and no terminator follows it then.
    static void MakeWorkFilePath(const char* lpszName, char* lpszPath);

    /// The directory "TnQuellon" under the current directory of the first call, which also
    /// creates it (a failure to create it is ignored).
    /// @return borrowed for the library's life; empty while the current directory cannot be
    ///         read (the next call tries again).
    static const char* GetProfileDir();

    /// Builds a path in the profile directory.
    /// @param[in]  lpszName  name, borrowed for the call.
    /// @param[out] lpszPath  as of MakeWorkFilePath.
    static void MakeProfile(const char* lpszName, char* lpszPath);

    /// The directory set last, or else "Debug" under the work directory, which the first call
    /// creates (a failure to create it is ignored).
    /// @return borrowed until the next SetDebugDir.
    static const char* GetDebugDir();

    /// Replaces the debug directory without creating it.
    /// @param[in] lpszDirectory  path, copied; an empty text brings the default back.
    static void SetDebugDir(const char* lpszDirectory);

    /// Builds a path in the debug directory, as MakeProfile does in its own.
    /// @param[in]  lpszName  name, borrowed for the call.
    /// @param[out] lpszPath  as of MakeWorkFilePath.
    static void MakeDebugFile(const char* lpszName, char* lpszPath);

    /// The directory part: everything before the last separator.
    /// @param[in]  lpszPath       path, borrowed for the call.
    /// @param[out] lpszDirectory  zero-terminated, cut after 255 characters; null is ignored.
    /// @return 0; -1 for a path without a separator, lpszDirectory is untouched then.
    static int GetPurePath(const char* lpszPath, char* lpszDirectory);

    /// The name part: everything after the last separator.
    /// @param[in]  lpszPath  path, borrowed for the call.
    /// @param[out] lpszName  zero-terminated, cut after 255 characters; null is ignored.
    /// @return 0; -1 for a path without a separator (a bare name is not its own name part);
    ///         lpszName is untouched then.
    static int GetPureName(const char* lpszPath, char* lpszName);

    /// Neither text is read.
    /// @param[in] lpszName     ignored.
    /// @param[in] lpszPattern  ignored.
    /// @return always false: wildcards are not supported, not even "*".
    TN_ROBOT_DEPRECATED("always false: wildcards are not supported")
    static bool MatchWildcard(const char* lpszName, const char* lpszPattern);

    /// @param[in] lpszName  path, borrowed for the call.
    /// @return bytes of the file, 0 when there is none.
    static long long GetFileSize(const char* lpszName);

    /// @param[in] lpszName  path, borrowed for the call.
    /// @param[in] nMode     0, or access bits as of access(): R_OK, W_OK, X_OK.
    /// @return 0 when the path is a regular file that may be accessed that way, else -1. A directory
    ///         is not a file.
    static int IsFileExist(const char* lpszName, int nMode);

    /// Makes up a file name from the time that no regular file has yet:
    /// "directory/name_YYYY_MM_DD_milliseconds.extension", with the milliseconds since local
    /// midnight, without leading zeros: the names of a day grow with the time as numbers, not as
    /// texts. Nothing is created. The time zone is read at each call, from TZ where it is set: no
    /// other thread may change the environment meanwhile.
    /// @param[in]  lpszDirectory  null stands for the work directory.
    /// @param[in]  lpszName       beginning of the name.
    /// @param[in]  lpszExtension  without its dot.
    /// @param[out] lpszPath       zero-terminated; empty when the name takes more than 255
    ///                            characters; null is ignored.
    static void MakeValidFile(const char* lpszDirectory, const char* lpszName, const char* lpszExtension,
                              char* lpszPath);

    /// Reads a whole file, or asks for its size.
    /// @param[in]  lpszName    path, borrowed for the call.
    /// @param[out] lpszBuffer  room for the whole file; null only asks for its size.
    /// @param[out] pnLength    the file's size; may be null. Untouched on failure.
    /// @return -1 for a file that is missing, empty, or of 2 GiB or more; else 0, even when the
    ///         file cannot be opened or read, which leaves lpszBuffer as it was.
    static int ReadFile(const char* lpszName, char* lpszBuffer, int* pnLength);

    /// Writes a whole file, in place of what it held: the old content is gone from the start. When the disk is
    /// full, a write fails, or the process ends meanwhile, the file is empty or the beginning of the new content,
    /// and nothing tells. tn::SaveTo replaces a file whole.
    /// @param[in] lpszName  path, borrowed for the call.
    /// @param[in] lpszData  nLength bytes, borrowed for the call.
    /// @param[in] nLength   bytes.
    /// @param[in] bAppend   ignored: the file is always rewritten from its start.
    /// @return -1 for no data or a null name; else 0, even when the file cannot be written.
    static int WriteFile(const char* lpszName, const char* lpszData, unsigned int nLength, bool bAppend);

    /// Lists the regular files directly inside a directory, in the order the system gives them.
    /// @param[in]     lpszDirectory  path, borrowed for the call; may be the text of an element of
    ///                               files.
    /// @param[in]     lpszPattern    ignored: nothing is filtered.
    /// @param[in,out] files          paths (directory, "/", name) are appended; nothing is when
    ///                               the directory cannot be opened.
    static void FindFile(const char* lpszDirectory, const char* lpszPattern, std::vector<std::string>& files);
};

/// Named settings. No settings file is behind it: nothing is read or stored, the two texts that
/// name the entry are not looked at, and every result is fixed. Applications rely on the getters
/// treating the default differently.
///
/// Threads: thread-safe.
class TN_ROBOT_API TN_ROBOT_DEPRECATED("no settings file is behind it: nothing is read or stored") TnRobotIniFileUtils {
public:
    TnRobotIniFileUtils() = delete;

    /// @param[in] lpszSection  ignored.
    /// @param[in] lpszKey      ignored.
    /// @param[in] lpszDefault  ignored.
    /// @return always an empty text.
    static std::string GetStringValue(const char* lpszSection, const char* lpszKey, const char* lpszDefault);

    /// @param[in] lpszSection  ignored.
    /// @param[in] lpszKey      ignored.
    /// @param[in] nDefault     ignored.
    /// @return always 0.
    static int GetIntValue(const char* lpszSection, const char* lpszKey, int nDefault);

    /// @param[in] lpszSection   ignored.
    /// @param[in] lpszKey       ignored.
    /// @param[in] defaultValue  the result.
    /// @return defaultValue.
    static short GetShortValue(const char* lpszSection, const char* lpszKey, short defaultValue);
    /// @copydoc GetShortValue
    static bool GetBoolValue(const char* lpszSection, const char* lpszKey, bool defaultValue);
    /// @copydoc GetShortValue
    static float GetFloatValue(const char* lpszSection, const char* lpszKey, float defaultValue);

    /// @param[in] lpszSection  ignored.
    /// @param[in] lpszKey      ignored.
    /// @param[in] value        ignored.
    /// @return always 0.
    static int SetIntValue(const char* lpszSection, const char* lpszKey, int value);
    /// @copydoc SetIntValue
    static int SetBoolValue(const char* lpszSection, const char* lpszKey, bool value);
};

/// Dumps of bytes, and text that is taken apart.
///
/// Threads: thread-safe.
class TN_ROBOT_API TnRobotStringUtils {
public:
    TnRobotStringUtils() = delete;

    /// Parses bytes of one or two hexadecimal digits each, separated by blanks.
    /// @param[in]  lpszText  text, borrowed for the call.
    /// @param[out] pBytes  room for as many bytes as there are tokens; null only counts them.
    /// @return number of bytes; -1 for a null text, a token of three digits, or any other
    ///         character. What was parsed up to there stays in pBytes.
    static int String2Hex(const char* lpszText, unsigned char* pBytes);

    /// @param[in] pData    nLength bytes, borrowed for the call.
    /// @param[in] nLength  bytes.
    /// @return the bytes as two lower-case hexadecimal digits each, separated by one blank.
    ///         Empty for null data.
    static std::string Hex2String(const unsigned char* pData, unsigned int nLength);

    /// @param[in] pData    nLength bytes, borrowed for the call.
    /// @param[in] nLength  bytes.
    /// @return the bytes as decimal numbers of two or three digits, separated by one blank.
    ///         Empty for null data.
    static std::string Dec2String(const unsigned char* pData, unsigned int nLength);

    /// @param[in] lpszText  text, borrowed for the call.
    /// @return a copy of the text, byte for byte: character sets are not converted.
    /// Throws std::logic_error for a null text.
    TN_ROBOT_DEPRECATED("copies the text: character sets are not converted")
    static std::string GbkToUtf8(const char* lpszText);
    /// @copydoc GbkToUtf8
    TN_ROBOT_DEPRECATED("copies the text: character sets are not converted")
    static std::string UtfToGbk(const char* lpszText);

    /// @param[in] lpszText  ignored.
    /// @return always an empty text.
    TN_ROBOT_DEPRECATED("always an empty text")
    static std::string WStringToString(const wchar_t* lpszText);

    /// Splits a text at a separator; empty parts are dropped.
    /// @param[in]     lpszText     text, borrowed for the call.
    /// @param[in]     chSeparator  belongs to no part.
    /// @param[in,out] parts        the parts are appended to what it holds.
    /// @return number of elements of parts afterwards, -1 for a null text.
    static int SplitString(const char* lpszText, char chSeparator, std::vector<std::string>& parts);
};

/// Base64 with the alphabet of RFC 4648, section 4, without line breaks.
///
/// Threads: thread-safe.
class TN_ROBOT_API TnRobotTextCodec {
public:
    TnRobotTextCodec() = delete;

    /// Encodes bytes, with "=" up to a whole group of four characters.
    /// @param[in]  pData     nLength bytes, borrowed for the call.
    /// @param[in]  nLength   bytes.
    /// @param[out] lpszText  room for 4 characters for every 3 bytes or part of them; not
    ///                       zero-terminated.
    /// @return characters written; 0 for a null pointer or a length below 1.
    static int Base64Encode(const unsigned char* pData, int nLength, char* lpszText);

    /// Decodes groups of four characters up to the end of the text, or up to a "=" in third or
    /// fourth place of a group. Nothing is ever refused: any other character that the alphabet
    /// does not have, white space included, counts as "/".
    /// @param[in]  lpszText  a rest of less than four characters at its end is ignored.
    /// @param[out] pData     room for 3 bytes for each whole group.
    /// @return bytes written; nothing is written beyond them. 0 for a null pointer.
    static int Base64Decode(const char* lpszText, unsigned char* pData);
};

/// Rectangles with edges along the axes.
///
/// Threads: thread-safe.
class TN_ROBOT_API TnRobotRectUtils {
public:
    TnRobotRectUtils() = delete;

    /// @param[in] a  one rectangle.
    /// @param[in] b  the other.
    /// @return whether the rectangles overlap or touch.
    static bool CheckInter(const STnNLRect& a, const STnNLRect& b);

    /// @param[in]  a    one rectangle.
    /// @param[in]  b    the other.
    /// @param[out] out  the common part, possibly without area; untouched when there is none.
    /// @return whether the rectangles overlap or touch.
    static bool GetInterRect(const STnNLRect& a, const STnNLRect& b, STnNLRect& out);

    /// @param[in] a  one rectangle.
    /// @param[in] b  the other.
    /// @return the common part. Rectangles apart from each other give one of zero width or
    ///         height at the larger of the two left or top edges, never a negative one.
    static STnNLRect getOverlapRect(const STnNLRect& a, const STnNLRect& b);

    /// @param[in] pRects  nCount rectangles, borrowed for the call; may be null.
    /// @param[in] nCount  number of rectangles.
    /// @return the smallest rectangle around all nCount, all zero for none or null.
    static STnNLRect getBoundingBox(const STnNLRect* pRects, unsigned int nCount);

    /// @param[in] quad  the corners.
    /// @return left and top: the smaller x of corners 1 and 4 and the smaller y of corners 1 and
    ///         2; right and bottom: also the smaller one, of the x of corners 2 and 3 and of the
    ///         y of corners 3 and 4. The box of a tilted rectangle does not enclose it.
    static STnNLRect GetBoundBox(const STnNL2DRect& quad);

    /// Finds the rectangle of the largest area, computed in 32 bits (a larger one wraps); of
    /// equal ones the first.
    /// @param[in]  pRects  nCount rectangles, borrowed for the call; may be null.
    /// @param[in]  nCount  number of rectangles.
    /// @param[out] out     the rectangle found; untouched on failure.
    /// @return its index, -1 for none or null.
    static int findLargestRect(const STnNLRect* pRects, unsigned int nCount, STnNLRect& out);

    /// Covers what lies outside the overlap: for a, then for b, the strips to the left, right,
    /// above and below getOverlapRect(a, b), each over the rectangle's full height or width.
    /// Strips of one rectangle share its corners: the result is a cover, not a partition.
    /// @param[in] a  one rectangle.
    /// @param[in] b  the other.
    /// @return none to eight rectangles.
    static std::vector<STnNLRect> rectXor(const STnNLRect& a, const STnNLRect& b);

    /// Merges rectangles from left to right: one that meets the x range of the last result is
    /// joined to it, whatever lies between them vertically; any other starts a new result.
    /// @param[in] pRects  nCount rectangles, borrowed for the call; may be null.
    /// @param[in] nCount  number of rectangles.
    /// @return the merged rectangles, none for null.
    static std::vector<STnNLRect> mergeRects(const STnNLRect* pRects, unsigned int nCount);
};

/// Angles.
///
/// Threads: thread-safe.
class TN_ROBOT_API TnRobotGeometryUtils {
public:
    TnRobotGeometryUtils() = delete;

    /// Radians to degrees with pi taken as 3.1415926: callers compare with values computed that
    /// way, which differ from exact ones in the seventh significant digit.
    /// @param[in] fRadians  angle in radians.
    /// @return the angle in degrees.
    static float Rad2Angle(float fRadians);
    /// As above, in double precision.
    /// @param[in] dRadians  angle in radians.
    /// @return the angle in degrees.
    static double Rad2Angle(double dRadians);
};

/// Texts of single conditions of a WHERE clause. Values are copied as they are: nothing is
/// escaped, so a text that comes from outside must not reach them unchecked. Both functions
/// throw std::logic_error for a null text that they read.
///
/// Threads: thread-safe.
class TN_ROBOT_API TnRobotSQLUtils {
public:
    /// Comparison of a field with a value; any other number gives no filter.
    enum ETnRobotSQLOpera : int {
        SQL_OPERA_NONE = 0,     ///< no comparison: the filter is empty
        SQL_OPERA_GREATER = 1,  ///< " > "
        SQL_OPERA_LESS = 2,     ///< " < "
    };

    TnRobotSQLUtils() = delete;

    /// Builds the condition of a pattern.
    /// @param[in] lpszField  name of the field, copied.
    /// @param[in] lpszValue  pattern, copied between single quotes.
    /// @return field LIKE 'value', without wildcards of its own.
    static std::string CreateFilter(const char* lpszField, const char* lpszValue);

    /// Builds the condition of a comparison.
    /// @param[in] lpszField  name of the field, copied.
    /// @param[in] eOpera     the comparison.
    /// @param[in] lpszValue  value, copied without quotes: a number.
    /// @return the field, the comparison and the unquoted value; empty for any other comparison,
    ///         and neither text is read then.
    static std::string CreateFilter(const char* lpszField, ETnRobotSQLOpera eOpera, const char* lpszValue);
};

/// @}

#endif  // TNROBOTKERNEL_UTILITIES_H_
