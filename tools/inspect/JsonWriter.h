// Writes a JSON document to the standard output piece by piece, so that nothing of it is kept.

#ifndef TNROBOT_INSPECT_JSONWRITER_H_
#define TNROBOT_INSPECT_JSONWRITER_H_

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "Bytes.h"

/// Laid out with two blanks for each level. What is begun must be ended in turn.
class JsonWriter {
public:
    JsonWriter() = default;
    JsonWriter(const JsonWriter&) = delete;
    JsonWriter& operator=(const JsonWriter&) = delete;
    ~JsonWriter() { Flush(); }

    void BeginObject() { Begin('{'); }
    void EndObject() { End('}'); }
    void BeginArray() { Begin('['); }
    void EndArray() { End(']'); }

    /// The name of the next value in an object.
    void Key(std::string_view name);

    /// A member with a number, true, false or null.
    void Scalar(std::string_view name, const nlohmann::json& value);
    void Scalar(std::string_view name, std::int64_t nValue);

    /// A member with a text. JSON has UTF-8 only: a text that is not has its bytes as \xNN, and is
    /// followed by a member of the same name with "Hex" behind it that has all bytes as
    /// hexadecimal digits. So no two texts look the same.
    void Text(std::string_view name, std::string_view text);

    /// A member with bytes as hexadecimal digits.
    void Hex(std::string_view name, ByteRange bytes);

private:
    void Begin(char chBracket);
    void End(char chBracket);
    void BeginValue();
    void NewLine();
    void Flush();
    void FlushIfLarge();

    std::string m_strWaiting;    // what is still to be printed; a few KiB
    std::vector<bool> m_levels;  // whether something stands in each level already
    bool m_bAfterKey = false;
};

#endif  // TNROBOT_INSPECT_JSONWRITER_H_
