// Values as people and programs read them.

#ifndef TNROBOT_INSPECT_VALUES_H_
#define TNROBOT_INSPECT_VALUES_H_

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "Groups.h"
#include "Text.h"

/// @return bytes as lower-case hexadecimal digits.
std::string HexDigits(std::string_view bytes);

/// The text form of a value, as the library makes it; the bytes in hexadecimal when it has none.
/// Texts and blocks are not copied, whatever their size: their forms lie in the file.
class ValueText {
public:
    explicit ValueText(const Entry& entry);

    /// @return whether Source() is to be shown as hexadecimal digits, not as it is.
    bool IsHex() const { return m_bHex; }
    std::string_view Source() const { return m_bMade ? std::string_view(m_strMade) : m_stored; }
    std::size_t Size() const { return m_bHex ? 2 * Source().size() : Source().size(); }

    /// @return a piece of Source() as the form shows it.
    std::string Shown(std::string_view piece) const { return m_bHex ? HexDigits(piece) : std::string(piece); }

private:
    bool m_bHex = false;
    bool m_bMade = false;
    std::string m_strMade;
    std::string_view m_stored;
};

/// @return a number or truth value as JSON has it; null for what is not readable, is not finite, or is none.
nlohmann::json ScalarJson(const Entry& entry);

/// @return whether a value's JSON form is its text.
bool IsTextInJson(const Entry& entry);

#endif  // TNROBOT_INSPECT_VALUES_H_
