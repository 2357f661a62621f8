/// @file
/// The archive that objects of a graph are read through. Used by tn/objects.h.

#ifndef TNROBOTKERNEL_TN_DETAIL_GRAPHREADER_H_
#define TNROBOTKERNEL_TN_DETAIL_GRAPHREADER_H_

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
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
class GraphReader final : public ForwardingArchive, public ReadingReason {
public:
    using ForwardingArchive::ForwardingArchive;

    int ReadObject(CTnRobotObject** ppObject) override {
        const ObjectDepth::Step step(m_depth);
        m_last = m_damage;
        if (m_damage || ppObject == nullptr) {
            return 0;
        }
        try {
            return ReadRecord(ppObject) ? 1 : 0;
        } catch (...) {
            Damage(errc::object_refused);  // half of it is read
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

    const char* ReadString(int& nLength, int* pError) override {
        int nError = 0;
        const char* lpszText = ForwardingArchive::ReadString(nLength, &nError);
        if (nError != 0) {
            Damage(errc::file_damaged);
        }
        if (pError != nullptr) {
            *pError = nError;
        }
        return lpszText;
    }

    // The tables have been read once for all objects.
    int ReadMapHeader() override { return 0; }

    std::error_code LastReason() const noexcept override { return m_last; }

    // Why nothing more can be read, if so.
    const std::error_code& DamageReason() const { return m_damage; }

    bool Damage(std::error_code reason) {
        if (!m_damage) {
            m_damage = reason;
        }
        m_last = m_damage;
        return false;
    }

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
        CTnRobotObject* pObject = nullptr;  // held; null until it is loaded
    };

    // An object on its way in. A counted one is released, for something that it has loaded may hold it.
    struct GiveBack {
        void operator()(CTnRobotObject* pObject) const {
            if (auto* pCounted = dynamic_cast<ITnUnknown*>(pObject)) {
                pCounted->Release();
            } else {
                delete pObject;
            }
        }
    };
    using NewObject = std::unique_ptr<CTnRobotObject, GiveBack>;

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

    bool ReadRecord(CTnRobotObject** ppObject) {
        std::uint8_t byPresent = 0;
        std::uint8_t byNew = 0;
        std::uint16_t nIndex = 0;
        if (!GetPresent(byPresent) || byPresent == 0 || !Get(byNew) || !Get(nIndex)) {
            return false;
        }
        if (nIndex >= m_objects.size()) {
            return Damage(errc::file_damaged);
        }
        return byNew != 0 ? ReadContents(m_objects[nIndex], ppObject) : Refer(m_objects[nIndex], ppObject);
    }

    // A length from a file asks for no more memory than there are bytes, but for one step.
    bool ReadIdentifier(std::string& strClass) {
        constexpr std::size_t kStep = 4096;
        std::uint32_t nLength = 0;
        bool bOk = Get(nLength);
        while (bOk && strClass.size() < nLength) {
            const std::size_t nDone = strClass.size();
            const std::size_t nStep = std::min(nLength - nDone, std::max(kStep, nDone));
            strClass.resize(nDone + nStep);
            bOk = Read(strClass.data() + nDone, static_cast<long long>(nStep)) == static_cast<long long>(nStep);
        }
        return bOk;
    }

    bool ReadContents(Entry& entry, CTnRobotObject** ppObject) {
        *ppObject = nullptr;
        if (!m_depth.AllowsContents() || entry.nClass >= m_classes.size()) {
            return Damage(m_depth.AllowsContents() ? errc::file_damaged : errc::too_deep);
        }
        NewObject object(CTnRobotObject::CreateObjectFromGUID(m_classes[entry.nClass].c_str()));
        auto* pSerialize = dynamic_cast<ITnRobotSerialize*>(object.get());
        if (pSerialize == nullptr) {
            return Damage(object ? errc::not_serialisable : errc::class_not_registered);
        }
        if (pSerialize->Serialize(this) == 0) {
            Damage(errc::object_refused);
        }
        m_last = m_damage;  // that of the object, not of the last one within it
        if (m_damage) {
            return false;
        }
        entry.pObject = m_held.Hold(*object) ? object.get() : nullptr;
        *ppObject = object.release();
        return true;
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
    std::vector<std::string> m_classes;
    std::vector<Entry> m_objects;
    std::error_code m_damage;
    std::error_code m_last;
};

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_TN_DETAIL_GRAPHREADER_H_
