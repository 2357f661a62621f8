/// @file
/// The archive that objects of a graph are written through. Used by tn/objects.h.

#ifndef TNROBOTKERNEL_TN_DETAIL_GRAPHWRITER_H_
#define TNROBOTKERNEL_TN_DETAIL_GRAPHWRITER_H_

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "TnRobotKernel/tn/detail/ForwardingArchive.h"
#include "TnRobotKernel/tn/detail/ObjectTables.h"

namespace tn::detail {

// Writes object records through the archive behind it, and keeps the tables that explain them.
//
// It does so itself because an archive would hand itself to the objects, and neither hold what they
// write nor say why it failed. The records and tables are those of every archive.
//
// Once something has failed nothing more is written: what follows could not be read.
//
// Objects are written within each other, 4,096 deep, on a stack of a few MiB: only WriteObject waits there
// for the inner ones, and what else needs room is not inlined into it.
class GraphWriter final : public ForwardingArchive {
public:
    using ForwardingArchive::ForwardingArchive;

    int WriteObject(CTnRobotObject* pObject) override {
        const ObjectDepth::Step step(m_depth);
        int nResult = 0;
        try {
            ITnRobotSerialize* pNew = BeginRecord(pObject, nResult);
            return pNew != nullptr ? EndRecord(pNew->Serialize(this) != 0) : nResult;
        } catch (...) {
            Fail(errc::object_refused);  // half of it is written
            throw;
        }
    }

    // Lets an object write its contents where it stands, without a record.
    void WriteContents(ITnRobotSerialize& object) {
        if (m_reason) {
            return;
        }
        try {
            if (object.Serialize(this) != 1 && !m_reason) {
                Fail(errc::object_refused);
            }
        } catch (...) {
            Fail(errc::object_refused);  // half of it is written
            throw;
        }
    }

    // The tables go in front of the objects, and are not complete before the last of them.
    int WriteMapHeader() override { return 0; }

    // Why the objects written so far are of no use, if they are.
    const std::error_code& Reason() const { return m_reason; }

    // Writes the tables of all objects so far.
    bool WriteTables(ITnRobotFile& file) const {
        bool bOk = PutTo(file, static_cast<std::uint16_t>(m_classes.size()));
        for (const std::string& strClass : m_classes) {
            bOk = bOk && PutTo(file, static_cast<std::uint32_t>(strClass.size())) &&
                  (strClass.empty() || file.Write(strClass.data(), static_cast<long long>(strClass.size())) != 0);
        }
        bOk = bOk && PutTo(file, static_cast<std::uint16_t>(m_objectClasses.size()));
        for (std::size_t i = 0; bOk && i < m_objectClasses.size(); ++i) {
            // Readers take the identity for an opaque number: equal graphs make equal files.
            bOk = PutTo(file, std::uint64_t{i + 1}) && PutTo(file, m_objectClasses[i]);
        }
        return bOk;
    }

private:
    template <typename T>
    static bool PutTo(ITnRobotFile& file, T number) {
        return file.Write(&number, sizeof(number)) != 0;
    }

    template <typename T>
    bool Put(T number) {
        return Write(&number, sizeof(number)) != 0 || Fail(std::make_error_code(std::errc::io_error));
    }

    [[gnu::noinline]] bool Fail(std::error_code reason) {
        m_reason = reason;
        return false;
    }
    [[gnu::noinline]] bool Fail(errc eReason) { return Fail(make_error_code(eReason)); }

    // Writes a record up to the contents. @return what writes those; null when the record has none.
    [[gnu::noinline]] ITnRobotSerialize* BeginRecord(CTnRobotObject* pObject, int& nResult) {
        if (m_reason) {
            return nullptr;
        }
        if (pObject == nullptr) {
            Put(std::uint8_t{0});
            return nullptr;  // as every archive reports a null
        }
        const auto it = m_indexes.find(pObject);
        if (it == m_indexes.end()) {
            return BeginContents(*pObject);
        }
        nResult = Put(std::uint8_t{1}) && Put(std::uint8_t{0}) && Put(it->second) ? 1 : 0;
        return nullptr;
    }

    ITnRobotSerialize* BeginContents(CTnRobotObject& object) {
        auto* pSerialize = dynamic_cast<ITnRobotSerialize*>(&object);
        const STnRuntimeClass* pClass = object.GetRuntimeClass();
        if (pSerialize == nullptr || pClass == nullptr || pClass->m_lpszClassGuid == nullptr) {
            Fail(errc::not_serialisable);
            return nullptr;
        }
        if (!m_depth.AllowsContents() || m_objectClasses.size() >= kMostObjects) {
            Fail(m_depth.AllowsContents() ? errc::too_many_objects : errc::too_deep);
            return nullptr;
        }
        const bool bOk =
            Put(std::uint8_t{1}) && Put(std::uint8_t{1}) && Put(AddObject(object, pClass->m_lpszClassGuid));
        return bOk ? pSerialize : nullptr;
    }

    [[gnu::noinline]] int EndRecord(bool bWritten) {
        if (!bWritten && !m_reason) {
            Fail(errc::object_refused);
        }
        return m_reason ? 0 : 1;
    }

    // An object that nobody counts cannot be held, so another one may have its address later: it is not
    // known again, but written in full each time.
    std::uint16_t AddObject(CTnRobotObject& object, const char* lpszClass) {
        const auto nClass = static_cast<std::uint16_t>(m_classes.size());
        const auto [it, bNew] = m_classIndexes.emplace(lpszClass, nClass);
        if (bNew) {
            m_classes.emplace_back(lpszClass);
        }
        const auto nObject = static_cast<std::uint16_t>(m_objectClasses.size());
        m_objectClasses.push_back(it->second);
        if (m_held.Hold(object)) {
            m_indexes.emplace(&object, nObject);
        }
        return nObject;
    }

    ObjectDepth m_depth;
    HeldObjects m_held;
    std::vector<std::string> m_classes;
    std::vector<std::uint16_t> m_objectClasses;  // of each object, by its number
    std::unordered_map<std::string, std::uint16_t> m_classIndexes;
    std::unordered_map<const CTnRobotObject*, std::uint16_t> m_indexes;
    std::error_code m_reason;
};

}  // namespace tn::detail

#endif  // TNROBOTKERNEL_TN_DETAIL_GRAPHWRITER_H_
