#include "TnLogText.h"

#include <algorithm>

namespace tnrobotlog {

namespace {

constexpr char kDelete = 0x7f;

// Bytes above 0x7f belong to UTF-8 text and stay as they are.
bool IsControl(char ch) {
    const auto byCharacter = static_cast<unsigned char>(ch);
    return (byCharacter < ' ' && ch != '\t') || ch == kDelete;
}

void AppendEscaped(std::string& strText, char ch) {
    constexpr char kDigits[] = "0123456789abcdef";
    const auto byCharacter = static_cast<unsigned char>(ch);
    if (ch == '\n') {
        strText += "\\n";
    } else if (ch == '\r') {
        strText += "\\r";
    } else {
        strText += "\\x";
        strText += kDigits[byCharacter / 16];
        strText += kDigits[byCharacter % 16];
    }
}

}  // namespace

std::string_view OneLine(const char* lpszText, std::string& strRoom) {
    std::string_view text = lpszText != nullptr ? lpszText : "";
    if (!text.empty() && text.back() == '\n') {
        text.remove_suffix(1);
    }
    if (std::none_of(text.begin(), text.end(), IsControl)) {
        return text;
    }
    strRoom.clear();
    for (const char ch : text) {
        if (IsControl(ch)) {
            AppendEscaped(strRoom, ch);
        } else {
            strRoom += ch;
        }
    }
    return strRoom;
}

}  // namespace tnrobotlog
