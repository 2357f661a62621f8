// Serialisers, each a party: it holds named values in its own form, saves them to memory, and loads
// them into a form that a program can use, which is thrown away.

#ifndef TNROBOTKERNEL_BENCH_ARCHIVE_FORMATS_H_
#define TNROBOTKERNEL_BENCH_ARCHIVE_FORMATS_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <istream>
#include <memory>
#include <ostream>
#include <streambuf>
#include <utility>
#include <vector>

#include "archive/Samples.h"

#ifdef TNROBOT_BENCH_CEREAL
#include <cereal/archives/binary.hpp>
#include <cereal/types/memory.hpp>
#include <cereal/types/string.hpp>
#include <cereal/types/unordered_map.hpp>
#include <cereal/types/variant.hpp>
#include <cereal/types/vector.hpp>
#include <cereal/version.hpp>
#endif
#ifdef TNROBOT_BENCH_MSGPACK
#include <msgpack.hpp>
#endif
#ifdef TNROBOT_BENCH_JSON
#include <nlohmann/json.hpp>
#endif

namespace bench {

/// A stream's buffer over memory that is there already, so that a peer pays for no growth.
class MemoryBuffer : public std::streambuf {
public:
    void Write(std::vector<char>& bytes) { setp(bytes.data(), bytes.data() + bytes.size()); }
    void Read(std::vector<char>& bytes, std::size_t nLength) {
        setg(bytes.data(), bytes.data(), bytes.data() + nLength);
    }
    std::size_t Written() const { return static_cast<std::size_t>(pptr() - pbase()); }
};

class OurFormat {
public:
    static constexpr const char* kParty = "ours";

    OurFormat(ITnRobotDataValueGroup& group, std::size_t nRoom) : m_group(group), m_archive(nRoom) {}

    std::size_t Save() { return static_cast<std::size_t>(m_archive.Save(m_group)); }
    bool Load(std::size_t nLength) {
        m_loaded = Make<ITnRobotDataValueGroup>(TnCreateRobotValueDataGroup);
        return m_archive.Load(*m_loaded, static_cast<long long>(nLength)) == 1;
    }
    bool LoadedEquals(const VariantMap&) { return SavedAlike(*m_loaded, m_group); }

private:
    ITnRobotDataValueGroup& m_group;
    ArchiveInMemory m_archive;
    TnRobotPtr<ITnRobotDataValueGroup> m_loaded;
};

#ifdef TNROBOT_BENCH_CEREAL

/// Held = VariantMap: the values lie in the map itself.
template <typename Held>
class CerealFormat {
public:
    CerealFormat(Held held, std::size_t nRoom) : m_held(std::move(held)), m_bytes(nRoom) {}

    std::size_t Save() {
        m_buffer.Write(m_bytes);
        std::ostream stream(&m_buffer);
        cereal::BinaryOutputArchive archive(stream);
        archive(m_held);
        return m_buffer.Written();
    }
    bool Load(std::size_t nLength) {
        m_loaded = Held();
        m_buffer.Read(m_bytes, nLength);
        std::istream stream(&m_buffer);
        cereal::BinaryInputArchive archive(stream);
        archive(m_loaded);
        return true;
    }
    const Held& Loaded() const { return m_loaded; }

private:
    Held m_held;
    Held m_loaded;
    std::vector<char> m_bytes;
    MemoryBuffer m_buffer;
};

class CerealMap : public CerealFormat<VariantMap> {
public:
    static constexpr const char* kParty = "cereal";
    CerealMap(ITnRobotDataValueGroup& group, std::size_t nRoom) : CerealFormat(ToMap(group), nRoom) {}
    bool LoadedEquals(const VariantMap& map) { return Loaded() == map; }
};

/// With values that can be shared, as those of a group can.
class CerealSharedMap : public CerealFormat<std::unordered_map<std::string, std::shared_ptr<Variant>>> {
public:
    static constexpr const char* kParty = "cereal_shared_ptr";
    CerealSharedMap(ITnRobotDataValueGroup& group, std::size_t nRoom) : CerealFormat(Shared(ToMap(group)), nRoom) {}
    bool LoadedEquals(const VariantMap& map) {
        for (const auto& [strName, value] : map) {
            if (*Loaded().at(strName) != value) {
                return false;
            }
        }
        return Loaded().size() == map.size();
    }

private:
    static std::unordered_map<std::string, std::shared_ptr<Variant>> Shared(VariantMap map) {
        std::unordered_map<std::string, std::shared_ptr<Variant>> shared;
        for (auto& [strName, value] : map) {
            shared.emplace(strName, std::make_shared<Variant>(std::move(value)));
        }
        return shared;
    }
};

#endif

#ifdef TNROBOT_BENCH_MSGPACK

/// Maps with a value's position in the variant and the value, so that every type comes back as it was.
class MsgpackFormat {
public:
    static constexpr const char* kParty = "msgpack";

    MsgpackFormat(ITnRobotDataValueGroup& group, std::size_t nRoom) : m_held(ToMap(group)), m_buffer(nRoom) {}

    std::size_t Save() {
        m_buffer.clear();
        msgpack::packer<msgpack::sbuffer> packer(m_buffer);
        packer.pack_map(static_cast<std::uint32_t>(m_held.size()));
        for (const auto& [strName, value] : m_held) {
            packer.pack(strName);
            packer.pack_array(2);
            packer.pack(value.index());
            std::visit([&packer](const auto& held) { packer.pack(held); }, value);
        }
        return m_buffer.size();
    }
    bool Load(std::size_t nLength) {
        m_loaded.clear();
        const msgpack::object_handle handle = msgpack::unpack(m_buffer.data(), nLength);
        const msgpack::object_map& map = handle.get().via.map;
        for (std::uint32_t i = 0; i < map.size; ++i) {
            const msgpack::object_array& pair = map.ptr[i].val.via.array;
            m_loaded.emplace(map.ptr[i].key.as<std::string>(), Value<0>(pair.ptr[0].as<std::size_t>(), pair.ptr[1]));
        }
        return true;
    }
    bool LoadedEquals(const VariantMap& map) { return m_loaded == map; }

private:
    template <std::size_t kIndex>
    static Variant Value(std::size_t nIndex, const msgpack::object& object) {
        if constexpr (kIndex < std::variant_size_v<Variant>) {
            return nIndex == kIndex
                       ? Variant(std::in_place_index<kIndex>, object.as<std::variant_alternative_t<kIndex, Variant>>())
                       : Value<kIndex + 1>(nIndex, object);
        }
        return false;
    }

    VariantMap m_held;
    VariantMap m_loaded;
    msgpack::sbuffer m_buffer;
};

#endif

#ifdef TNROBOT_BENCH_JSON

inline nlohmann::json ToJson(const Variant& value) {
    if (const auto* pBlock = std::get_if<std::vector<unsigned char>>(&value)) {
        return nlohmann::json::binary(*pBlock);
    }
    return std::visit(
        [](const auto& held) -> nlohmann::json {
            if constexpr (std::is_same_v<std::decay_t<decltype(held)>, char>) {
                return static_cast<int>(held);
            } else {
                return held;
            }
        },
        value);
}

class CborFormat {
public:
    static constexpr const char* kParty = "json_cbor";

    CborFormat(ITnRobotDataValueGroup& group, std::size_t nRoom) {
        for (const auto& [strName, value] : ToMap(group)) {
            m_held[strName] = ToJson(value);
        }
        m_bytes.reserve(nRoom);
    }

    std::size_t Save() {
        m_bytes.clear();
        nlohmann::json::to_cbor(m_held, m_bytes);
        return m_bytes.size();
    }
    bool Load(std::size_t) {
        m_loaded = nlohmann::json::from_cbor(m_bytes);
        return true;
    }
    bool LoadedEquals(const VariantMap&) { return m_loaded == m_held; }

private:
    nlohmann::json m_held;
    nlohmann::json m_loaded;
    std::vector<std::uint8_t> m_bytes;
};

#endif

/// What cannot be undercut: one copy of the bytes that ours writes, from and to warm memory.
class CopyOfBytes {
public:
    static constexpr const char* kParty = "limit_memcpy";

    CopyOfBytes(ITnRobotDataValueGroup& group, std::size_t nRoom)
        : m_nLength(static_cast<std::size_t>(ArchiveInMemory(nRoom).Save(group))),
          m_from(m_nLength, 1),
          m_to(m_nLength, 2) {}

    std::size_t Save() {
        std::memcpy(m_to.data(), m_from.data(), m_nLength);
        benchmark::DoNotOptimize(m_to.data());
        return m_nLength;
    }
    bool Load(std::size_t) { return Save() == m_nLength; }
    bool LoadedEquals(const VariantMap&) { return m_to == m_from; }

private:
    std::size_t m_nLength;
    std::vector<unsigned char> m_from;
    std::vector<unsigned char> m_to;
};

/// Calls function(type) with a pointer to each party's type.
template <typename Function>
void ForEachFormat(Function function) {
    function(static_cast<OurFormat*>(nullptr));
#ifdef TNROBOT_BENCH_CEREAL
    function(static_cast<CerealMap*>(nullptr));
    function(static_cast<CerealSharedMap*>(nullptr));
#endif
#ifdef TNROBOT_BENCH_MSGPACK
    function(static_cast<MsgpackFormat*>(nullptr));
#endif
#ifdef TNROBOT_BENCH_JSON
    function(static_cast<CborFormat*>(nullptr));
#endif
    function(static_cast<CopyOfBytes*>(nullptr));
}

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_ARCHIVE_FORMATS_H_
