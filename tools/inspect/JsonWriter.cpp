#include "JsonWriter.h"

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "Terminal.h"
#include "Text.h"
#include "Values.h"

namespace {

constexpr std::size_t kBlanks = 2;

std::string CodeEscape(std::uint32_t nCode) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "\\u%04x", nCode);
    return text.data();
}

std::string Escape(std::uint32_t nCode) {
    switch (nCode) {
        case '"':
            return "\\\"";
        case '\\':
            return "\\\\";
        case '\b':
            return "\\b";
        case '\f':
            return "\\f";
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default:
            return CodeEscape(nCode);
    }
}

// A JSON file may be shown on a terminal, too: what would steer it is escaped, which changes nothing
// for a reader of JSON.
std::string Escaped(std::string_view text) {
    std::string strResult;
    while (!text.empty()) {
        const Character character = FirstCharacter(text);
        if (character.nCode == '"' || character.nCode == '\\' || Steers(character.nCode)) {
            strResult += Escape(character.nCode);
        } else {
            strResult += text.substr(0, character.nSize);
        }
        text.remove_prefix(character.nSize);
    }
    return strResult;
}

}  // namespace

void JsonWriter::Begin(char chBracket) {
    BeginValue();
    m_strWaiting += chBracket;
    m_levels.push_back(false);
}

void JsonWriter::End(char chBracket) {
    const bool bAny = m_levels.back();
    m_levels.pop_back();
    if (bAny) {
        NewLine();
    }
    m_strWaiting += chBracket;
    if (m_levels.empty()) {
        m_strWaiting += '\n';
    }
}

void JsonWriter::BeginValue() {
    FlushIfLarge();
    if (!m_bAfterKey && !m_levels.empty()) {
        if (m_levels.back()) {
            m_strWaiting += ',';
        }
        m_levels.back() = true;
        NewLine();
    }
    m_bAfterKey = false;
}

void JsonWriter::NewLine() {
    m_strWaiting += '\n';
    m_strWaiting.append(kBlanks * m_levels.size(), ' ');
}

void JsonWriter::FlushIfLarge() {
    constexpr std::size_t kWorthPrinting = std::size_t{16} * 1024;
    if (m_strWaiting.size() > kWorthPrinting) {
        Flush();
    }
}

void JsonWriter::Flush() {
    Print(m_strWaiting);
    m_strWaiting.clear();
}

void JsonWriter::Key(std::string_view name) {
    BeginValue();
    m_strWaiting += '"';
    m_strWaiting += name;
    m_strWaiting += "\": ";
    m_bAfterKey = true;
}

void JsonWriter::Scalar(std::string_view name, const nlohmann::json& value) {
    Key(name);
    BeginValue();
    m_strWaiting += value.dump();
}

void JsonWriter::Scalar(std::string_view name, std::int64_t nValue) {
    Key(name);
    BeginValue();
    m_strWaiting += std::to_string(nValue);
}

void JsonWriter::Text(std::string_view name, std::string_view text) {
    const bool bUtf8 = IsUtf8(text);
    Key(name);
    BeginValue();
    m_strWaiting += '"';
    ForEachPiece(text, [this, bUtf8](std::string_view piece) {
        m_strWaiting += bUtf8 ? Escaped(piece) : Escaped(Printable(piece));
        FlushIfLarge();
    });
    m_strWaiting += '"';
    if (!bUtf8) {
        Hex(std::string(name) + "Hex", {reinterpret_cast<const unsigned char*>(text.data()), text.size()});
    }
}

void JsonWriter::Hex(std::string_view name, ByteRange bytes) {
    Key(name);
    BeginValue();
    m_strWaiting += '"';
    ForEachPiece(bytes.View(), [this](std::string_view piece) {
        m_strWaiting += HexDigits(piece);
        FlushIfLarge();
    });
    m_strWaiting += '"';
}
