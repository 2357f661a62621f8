/// @file
/// The values of a group as C++ writes them: Set, Get, Items, and BlockBytes for a block's true size.
///
/// Threads: as the group, one thread at a time.

#ifndef TNROBOTKERNEL_TN_GROUPS_H_
#define TNROBOTKERNEL_TN_GROUPS_H_

#include <array>
#include <cstddef>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "TnRobotKernel/tn/detail/StoredBytes.h"

namespace tn {

namespace detail {

template <typename T>
inline constexpr bool kNever = false;

// Whole numbers that are no characters of a text and no truth.
template <typename T>
inline constexpr bool kIsWhole = std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char>;

template <typename T, typename = void>
struct ElementsOf {
    using Type = void;
};

// Containers whose elements lie one behind the other.
template <typename T>
struct ElementsOf<T,
                  std::void_t<decltype(std::declval<const T&>().data()), decltype(std::declval<const T&>().size())>> {
    using Type = std::remove_cv_t<std::remove_pointer_t<decltype(std::declval<const T&>().data())>>;
};

template <typename T>
using Element = typename ElementsOf<T>::Type;

template <typename T>
inline constexpr bool kIsVector = false;
template <typename T, typename A>
inline constexpr bool kIsVector<std::vector<T, A>> = true;

template <typename T>
constexpr void CheckElements() {
    static_assert(!std::is_pointer_v<T>, "tn: addresses mean nothing to whoever reads the bytes");
    static_assert(std::is_trivially_copyable_v<T>, "tn: only elements that are plain bytes can be a block");
}

// A text up to its zero; one with a zero inside would come back shorter.
inline bool SetText(ITnRobotDataValueGroup& group, const char* lpszName, std::string_view text) {
    return text.find('\0') == std::string_view::npos &&
           group.SetValue(lpszName, static_cast<const char*>(std::string(text).c_str())) == 0;
}

inline bool SetBytes(ITnRobotDataValueGroup& group, const char* lpszName, const void* pData, std::size_t nBytes) {
    return nBytes <= std::numeric_limits<unsigned int>::max() &&
           group.SetValue(lpszName, pData, static_cast<unsigned int>(nBytes)) == 0;
}

// The smallest type of value that every number of the C++ type fits into.
template <typename T>
bool SetWhole(ITnRobotDataValueGroup& group, const char* lpszName, T value) {
    static_assert(sizeof(T) <= sizeof(long long), "tn: a value holds whole numbers of up to 64 bits");
    if constexpr (std::is_signed_v<T>) {
        using Stored = std::conditional_t<sizeof(T) <= sizeof(short), short,
                                          std::conditional_t<sizeof(T) == sizeof(int), int, long long>>;
        return group.SetValue(lpszName, static_cast<Stored>(value)) == 0;
    } else {
        using Wide = std::conditional_t<sizeof(T) == sizeof(unsigned int), unsigned int, unsigned long long>;
        using Narrow = std::conditional_t<sizeof(T) == 1, unsigned char, unsigned short>;
        using Stored = std::conditional_t<sizeof(T) <= sizeof(short), Narrow, Wide>;
        return group.SetValue(lpszName, static_cast<Stored>(value)) == 0;
    }
}

// A whole number as another type, if it is the same number there.
template <typename T, typename From>
std::optional<T> FitWhole(From number) {
    const auto result = static_cast<T>(number);
    const bool bSame = static_cast<From>(result) == number && (result < T{}) == (number < From{});
    return bSame ? std::optional<T>(result) : std::nullopt;
}

template <typename T>
std::optional<T> GetWhole(ITnRobotDataValue& value) {
    switch (value.GetDataValueType()) {
        case DATA_TYPE_BYTE:
            return FitWhole<T>(value.ByteData(nullptr));
        case DATA_TYPE_SHORT:
            return FitWhole<T>(value.ShortData(nullptr));
        case DATA_TYPE_USHORT:
            return FitWhole<T>(value.UShortData(nullptr));
        case DATA_TYPE_INT:
            return FitWhole<T>(value.IntData(nullptr));
        case DATA_TYPE_UINT:
            return FitWhole<T>(value.UintData(nullptr));
        case DATA_TYPE_LONGLONG:
            return FitWhole<T>(value.LonglongData(nullptr));
        case DATA_TYPE_ULONGLONG:
            return FitWhole<T>(value.ULonglongData(nullptr));
        default:
            return std::nullopt;
    }
}

// A float is every double's neighbour: only the one that is the same number is taken. What is no number
// stays none.
template <typename T>
std::optional<T> GetReal(ITnRobotDataValue& value) {
    const ETnRobotDataValueType eType = value.GetDataValueType();
    if (eType == DATA_TYPE_FLOAT) {
        return value.FloatData(nullptr);
    }
    if (eType != DATA_TYPE_DOUBLE) {
        return std::nullopt;
    }
    const double dValue = value.DoubleData(nullptr);
    const bool bInRange = !(dValue > std::numeric_limits<T>::max() || dValue < std::numeric_limits<T>::lowest());
    const bool bInfinite =
        dValue > std::numeric_limits<double>::max() || dValue < std::numeric_limits<double>::lowest();
    if (!bInRange && !bInfinite) {
        return std::nullopt;
    }
    const auto result = static_cast<T>(dValue);
    return static_cast<double>(result) == dValue || dValue != dValue ? std::optional<T>(result) : std::nullopt;
}

template <typename T>
std::optional<T> GetElements(ITnRobotDataValue& value) {
    using E = Element<T>;
    CheckElements<E>();
    const BlockView view = ViewOfBlock(value);
    if (!view.bIsBlock || view.nBytes % sizeof(E) != 0) {
        return std::nullopt;
    }
    T elements{};
    if constexpr (kIsVector<T>) {
        elements.resize(view.nBytes / sizeof(E));
    }
    if (elements.size() * sizeof(E) != view.nBytes) {
        return std::nullopt;
    }
    if (view.nBytes != 0) {
        std::memcpy(elements.data(), view.pData, view.nBytes);
    }
    return elements;
}

}  // namespace detail

/// @addtogroup values
/// @{

/// Finds out how many bytes a block has. ITnRobotDataValue::BlockData does not tell that of a loaded
/// one, which keeps the length it had before the load.
/// @param[in] value  borrowed for the call.
/// @return bytes; 0 for a value of another type. A value of an application's own class is taken at the word
///         of its BlockData.
inline std::size_t BlockBytes(ITnRobotDataValue& value) {
    return detail::ViewOfBlock(value).nBytes;
}

/// Stores what a C++ variable holds, as the value type that fits it without loss.
///
/// - bool, char, float and double as such; whole numbers of all other types, std::int64_t, long and
///   std::size_t among them, and enumerations by their size and sign (one signed byte as a short);
/// - std::string, std::string_view, literals and const char* as text;
/// - std::vector, std::array, a span and every container with data() and size(), and built-in arrays, as a
///   block of the elements' bytes, which must be plain bytes (trivially copyable, no pointers);
/// - a TnRobotPtr to a value is shared.
///
/// Everything else does not compile: other pointers above all, which convert to bool.
/// @param[in] group     borrowed for the call.
/// @param[in] lpszName  name, copied.
/// @param[in] value     what is stored, copied.
/// @return whether it is stored. False for a null or empty name, a null text or value, a text with a zero inside, a
/// block
///         of 4 GiB or more, and when no value can be made; the entry is left as it was then.
template <typename T>
bool Set(ITnRobotDataValueGroup& group, const char* lpszName, const T& value) {
    using namespace detail;
    if (lpszName == nullptr || *lpszName == '\0') {
        return false;
    }
    if constexpr (std::is_same_v<T, bool> || std::is_same_v<T, char> || std::is_same_v<T, float> ||
                  std::is_same_v<T, double>) {
        return group.SetValue(lpszName, value) == 0;
    } else if constexpr (kIsWhole<T>) {
        return SetWhole(group, lpszName, value);
    } else if constexpr (std::is_enum_v<T>) {
        return Set(group, lpszName, static_cast<std::underlying_type_t<T>>(value));
    } else if constexpr (std::is_same_v<std::decay_t<T>, char*> || std::is_same_v<std::decay_t<T>, const char*>) {
        if constexpr (std::is_array_v<T>) {
            return SetText(group, lpszName, std::string_view(value, strnlen(value, sizeof(value))));
        } else {
            return value != nullptr && SetText(group, lpszName, value);
        }
    } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
        return SetText(group, lpszName, value);
    } else if constexpr (std::is_convertible_v<const T&, TnRobotPtr<ITnRobotDataValue>>) {
        return group.SetValue(lpszName, TnRobotPtr<ITnRobotDataValue>(value).get()) == 0;
    } else if constexpr (std::is_array_v<T>) {
        CheckElements<std::remove_all_extents_t<T>>();
        return SetBytes(group, lpszName, &value, sizeof(value));
    } else if constexpr (!std::is_void_v<Element<T>>) {
        CheckElements<Element<T>>();
        return SetBytes(group, lpszName, value.data(), value.size() * sizeof(Element<T>));
    } else if constexpr (std::is_pointer_v<T>) {
        static_assert(kNever<T>, "tn::Set: a pointer is no value; pass what it points to, in a span or a vector");
    } else {
        static_assert(kNever<T>, "tn::Set: no value holds this type without loss");
    }
}

/// Reads a value as a C++ type, if that loses nothing.
///
/// Whole numbers and enumerations come from every whole number that is in their range; float and double from
/// either, where it is the same number; bool, char and text from their own types only; std::vector and
/// std::array from a block that is made of whole elements, the array from one of its own size.
/// @tparam T  as of Set, of what owns its content: no pointers and spans. A std::string_view is borrowed until
///            the value changes or goes.
/// @param[in] value  borrowed for the call.
/// @return what it holds; nothing for another type, and where something would be lost.
template <typename T>
[[nodiscard]] std::optional<T> Get(ITnRobotDataValue& value) {
    using namespace detail;
    if constexpr (std::is_same_v<T, bool>) {
        return value.GetDataValueType() == DATA_TYPE_BOOL ? std::optional<T>(value.BoolData(nullptr)) : std::nullopt;
    } else if constexpr (std::is_same_v<T, char>) {
        return value.GetDataValueType() == DATA_TYPE_CHAR ? std::optional<T>(value.CharData(nullptr)) : std::nullopt;
    } else if constexpr (kIsWhole<T>) {
        return GetWhole<T>(value);
    } else if constexpr (std::is_enum_v<T>) {
        const auto number = Get<std::underlying_type_t<T>>(value);
        return number ? std::optional<T>(static_cast<T>(*number)) : std::nullopt;
    } else if constexpr (std::is_same_v<T, float> || std::is_same_v<T, double>) {
        return GetReal<T>(value);
    } else if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, std::string_view>) {
        int nLength = 0;
        const char* lpszText = value.StringData(nLength, nullptr);
        return lpszText != nullptr ? std::optional<T>(lpszText) : std::nullopt;
    } else if constexpr (std::is_pointer_v<T>) {
        static_assert(kNever<T>, "tn::Get: ask for a std::string, a std::vector or a std::array, not for a pointer");
    } else if constexpr (!std::is_void_v<Element<T>>) {
        return GetElements<T>(value);
    } else {
        static_assert(kNever<T>, "tn::Get: no value is read as this type without loss");
    }
}

/// Reads the named value as a C++ type, as above.
/// @tparam T  as above.
/// @param[in] group     borrowed for the call.
/// @param[in] lpszName  name.
/// @return what it holds; nothing also for a name that is null, empty or not there.
template <typename T>
[[nodiscard]] std::optional<T> Get(ITnRobotDataValueGroup& group, const char* lpszName) {
    TnRobotPtr<ITnRobotDataValue> value;
    const bool bFound = group.GetValue(lpszName, value.put()) == 0 && value;
    return bFound ? Get<T>(*value) : std::nullopt;
}

/// A name and its value: `for (const auto& [name, value] : tn::Items(group))`.
using GroupItem = std::pair<std::string, TnRobotPtr<ITnRobotDataValue>>;

/// Lists the entries of a group. The list stands on its own: the group may change meanwhile.
/// @param[in] group  borrowed for the call.
/// @return names and values, shared with the group, in the group's order, which is not specified. Entries without a
///         value, and one under the empty name, which cannot be asked for, are left out.
[[nodiscard]] inline std::vector<GroupItem> Items(ITnRobotDataValueGroup& group) {
    std::vector<std::pair<std::string, ETnRobotDataValueType>> names;
    group.GetAllDataName(names);
    std::vector<GroupItem> items;
    items.reserve(names.size());
    for (auto& [strName, eType] : names) {
        TnRobotPtr<ITnRobotDataValue> value;
        if (group.GetValue(strName.c_str(), value.put()) == 0 && value) {
            items.emplace_back(std::move(strName), std::move(value));
        }
    }
    return items;
}

/// @}

}  // namespace tn

#endif  // TNROBOTKERNEL_TN_GROUPS_H_
