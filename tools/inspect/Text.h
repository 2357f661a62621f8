// Characters of texts that come from files: which bytes are UTF-8, and what may be printed.

#ifndef TNROBOT_INSPECT_TEXT_H_
#define TNROBOT_INSPECT_TEXT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// The code of a byte that begins no UTF-8 character.
constexpr std::uint32_t kNoCharacter = 0xFFFFFFFF;

struct Character {
    std::uint32_t nCode;  ///< kNoCharacter for a byte that is none
    std::size_t nSize;    ///< in bytes, 1 for a byte that is none
};

/// @param[in] text  not empty.
Character FirstCharacter(std::string_view text);

/// @return whether a text is UTF-8 as a whole.
bool IsUtf8(std::string_view text);

/// @return whether a character steers a terminal or the order in which others are shown: controls,
///         line separators, marks and overrides of the writing direction.
bool Steers(std::uint32_t nCode);

/// Replaces what steers, and what is no UTF-8, by \n, \t or \xNN for each byte.
std::string Printable(std::string_view text);

/// @return how many bytes of a text, nMost or up to three less, do not end within a character.
std::size_t WholeCharacters(std::string_view text, std::size_t nMost);

/// Hands over a text of any size in pieces of a size that is worth a copy, cut between characters.
template <typename Function>
void ForEachPiece(std::string_view text, Function function) {
    constexpr std::size_t kPiece = std::size_t{16} * 1024;
    while (!text.empty()) {
        const std::size_t nSize = WholeCharacters(text, kPiece);
        function(text.substr(0, nSize));
        text.remove_prefix(nSize);
    }
}

#endif  // TNROBOT_INSPECT_TEXT_H_
