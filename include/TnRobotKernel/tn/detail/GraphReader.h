/// @file
/// The archive that objects of a graph are read through. Used by tn/objects.h.

#ifndef TNROBOTKERNEL_TN_DETAIL_GRAPHREADER_H_
#define TNROBOTKERNEL_TN_DETAIL_GRAPHREADER_H_

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "TnRobotKernel/tn/detail/ForwardingArchive.h"
#include "TnRobotKernel/tn/detail/ObjectTables.h"

namespace tn::detail {

// Reads tables and object records through the archive behind it, and holds every counted object until it
// goes itself: whatever a class drops, a later record finds it.
//
// It does so itself because an archive would hand itself to the objects, and neither hold what they read
// nor say why it failed. The records and tables are those of every archive.
//
// An object that nobody counts belongs to whoever reads it, as of every archive, and may be gone at any
// time: a reference to it is refused.
//
// Damage sticks: nothing behind it can be trusted, and nothing more is read. An object of an unexpected
// type, a null and a reference to what is not there (yet) leave the next record where it belongs.
//
// Objects load within each other, 4,096 deep, on a stack of a few MiB: only ReadObject waits there for the
// inner ones, and what else needs room is not inlined into it.
class GraphReader final : public ForwardingArchive, public ReadingReason {
public:
    using ForwardingArchive::ForwardingArchive;

    int ReadObject(CTnRobotObject** ppObject) override {
        const ObjectDepth::Step step(m_depth);
        Record record;
        try {
            record = BeginRecord(ppObject);
            if (record.pNew == nullptr) {
                return record.nResult;
            }
            const bool bLoaded = dynamic_cast<ITnRobotSerialize&>(*record.pNew).Serialize(this) != 0;
            return EndRecord(record, bLoaded, ppObject);
        } catch (...) {
            Damage(errc::object_refused);  // half of it is read
            GiveBack(record.pNew);
            throw;
        }
    }

    long long Read(void* pData, long long nCount) override {
        const long long nRead = ForwardingArchive::Read(pData, nCount);
        if (nRead < nCount) {
            Damage(errc::file_incomplete);
        }
        return nRead;
    }

    // The archive behind takes a text that was cut short for one with zeros at its end.
    const char* ReadString(int& nLength, int* pError) override {
        std::int32_t nCount = 0;
        const bool bOk = Get(nCount) && (nCount >= 0 || Damage(errc::file_damaged)) &&
                         ReadBytes(m_text, static_cast<std::size_t>(nCount));
        nLength = nCount;
        if (pError != nullptr) {
            *pError = bOk ? 0 : -1;
        }
        return bOk && nCount != 0 ? m_text.c_str() : nullptr;
    }

    // The tables have been read once for all objects.
    int ReadMapHeader() override { return 0; }

    std::error_code LastReason() const noexcept override { return m_last; }

    // Why nothing more can be read, if so.
    const std::error_code& DamageReason() const { return m_damage; }

    [[gnu::noinline]] bool Damage(std::error_code reason) {
        if (!m_damage) {
            m_damage = reason;
        }
        m_last = m_damage;
        return false;
    }
    [[gnu::noinline]] bool Damage(errc eReason) { return Damage(make_error_code(eReason)); }

    bool ReadTables() {
        std::uint16_t nClasses = 0;
        std::uint16_t nObjects = 0;
        bool bOk = Get(nClasses);
        while (bOk && m_classes.size() < nClasses) {
            bOk = ReadIdentifier(m_classes.emplace_back());
        }
        bOk = bOk && Get(nObjects);
        while (bOk && m_objects.size() < nObjects) {
            std::uint64_t nIdentity = 0;  // a number of the writer's, of no meaning here
            bOk = Get(nIdentity) && Get(m_objects.emplace_back().nClass);
        }
        return bOk;
    }

private:
    struct Entry {
        std::uint16_t nClass = 0;
        bool bBegun = false;                // its contents have been met
        CTnRobotObject* pObject = nullptr;  // held; null until it is loaded
    };

    // An object record, as far as it has been read: the result, or a new object that has yet to load.
    struct Record {
        std::uint16_t nIndex = 0;
        int nResult = 0;
        CTnRobotObject* pNew = nullptr;
    };

    // A counted object is released, for something that it has loaded may hold it.
    [[gnu::noinline]] static void GiveBack(CTnRobotObject* pObject) {
        if (auto* pCounted = dynamic_cast<ITnUnknown*>(pObject)) {
            pCounted->Release();
        } else {
            delete pObject;
        }
    }

    template <typename T>
    bool Get(T& number) {
        return Read(&number, sizeof(number)) == static_cast<long long>(sizeof(number));
    }

    // A file may end where no object has begun.
    bool GetPresent(std::uint8_t& byPresent) {
        if (!m_depth.IsOutermost()) {
            return Get(byPresent);
        }
        return ForwardingArchive::Read(&byPresent, sizeof(byPresent)) > 0 || Damage(errc::end_of_file);
    }

    [[gnu::noinline]] Record BeginRecord(CTnRobotObject** ppObject) {
        Record record;
        std::uint8_t byPresent = 0;
        std::uint8_t byNew = 0;
        m_last = m_damage;
        if (m_damage || ppObject == nullptr || !GetPresent(byPresent) || byPresent == 0 || !Get(byNew) ||
            !Get(record.nIndex)) {
            return record;
        }
        if (record.nIndex >= m_objects.size()) {
            Damage(errc::file_damaged);
        } else if (byNew == 0) {
            record.nResult = Refer(m_objects[record.nIndex], ppObject) ? 1 : 0;
        } else {
            *ppObject = nullptr;
            record.pNew = Begin(m_objects[record.nIndex]);
        }
        return record;
    }

    // Takes over an object whose contents have been read.
    [[gnu::noinline]] int EndRecord(const Record& record, bool bLoaded, CTnRobotObject** ppObject) {
        if (!bLoaded) {
            Damage(errc::object_refused);
        }
        m_last = m_damage;  // that of the object, not of the last one within it
        if (m_damage) {
            GiveBack(record.pNew);
            return 0;
        }
        m_objects[record.nIndex].pObject = m_held.Hold(*record.pNew) ? record.pNew : nullptr;
        *ppObject = record.pNew;
        return 1;
    }

    bool ReadIdentifier(std::string& strClass) {
        std::uint32_t nLength = 0;
        return Get(nLength) && ReadBytes(strClass, nLength);
    }

    // A length from a file asks for no more memory than there are bytes, but for one step.
    bool ReadBytes(std::string& strBytes, std::size_t nLength) {
        constexpr std::size_t kStep = 4096;
        strBytes.clear();
        bool bOk = true;
        while (bOk && strBytes.size() < nLength) {
            const std::size_t nDone = strBytes.size();
            const std::size_t nStep = std::min(nLength - nDone, std::max(kStep, nDone));
            strBytes.resize(nDone + nStep);
            bOk = Read(strBytes.data() + nDone, static_cast<long long>(nStep)) == static_cast<long long>(nStep);
        }
        return bOk;
    }

    // Each number stands for one object: all of them are held, so that a file which makes one again and
    // again would fill the memory.
    CTnRobotObject* Begin(Entry& entry) {
        if (std::exchange(entry.bBegun, true)) {
            Damage(errc::file_damaged);
            return nullptr;
        }
        return Create(entry);
    }

    // An object that can load itself, or null.
    CTnRobotObject* Create(const Entry& entry) {
        if (!m_depth.AllowsContents() || entry.nClass >= m_classes.size()) {
            Damage(m_depth.AllowsContents() ? errc::file_damaged : errc::too_deep);
            return nullptr;
        }
        CTnRobotObject* pObject = CTnRobotObject::CreateObjectFromGUID(m_classes[entry.nClass].c_str());
        if (dynamic_cast<ITnRobotSerialize*>(pObject) != nullptr) {
            return pObject;
        }
        Damage(pObject != nullptr ? errc::not_serialisable : errc::class_not_registered);
        GiveBack(pObject);
        return nullptr;
    }

    bool Refer(const Entry& entry, CTnRobotObject** ppObject) {
        *ppObject = entry.pObject;
        if (entry.pObject == nullptr) {
            m_last = errc::not_loaded_yet;
            return false;
        }
        dynamic_cast<ITnUnknown&>(*entry.pObject).AddRef();
        return true;
    }

    ObjectDepth m_depth;
    HeldObjects m_held;
    std::string m_text;  // that ReadString returned last
    std::vector<std::string> m_classes;
    std::vector<Entry> m_objects;
    std::error_code m_damage;
    std::error_code m_last;
};

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_TN_DETAIL_GRAPHREADER_H_
