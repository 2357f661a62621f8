// A plug-in that is opened and closed over and over: it registers a class, which is gone with it.

#include "soak/Guest.h"

#include <new>

#include "support/objects/Archives.h"

using namespace tntest;

namespace {

using tnsoak::Visit;

// Saved as its number.
class Guest final : public ITnUnknown, public CTnRobotObject, public ITnRobotSerialize {
public:
    static STnRuntimeClass s_class;

    explicit Guest(int nNumber = 0) : m_nNumber(nNumber) {}
    int Number() const { return m_nNumber; }

    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }
    int Serialize(ITnRobotArchive* pArchive) override {
        const bool bWhole = pArchive->IsStoring() ? pArchive->Write(&m_nNumber, sizeof(m_nNumber)) != 0
                                                  : pArchive->Read(&m_nNumber, sizeof(m_nNumber)) == sizeof(m_nNumber);
        return bWhole ? 1 : 0;
    }

private:
    int m_nNumber;
};

STnRuntimeClass Guest::s_class = {"22222222-BBBB-4BBB-8BBB-000000000001", []() -> CTnRobotObject* { return new Guest; },
                                  nullptr, nullptr};
const TN_REG_CLASS s_registerGuest(&Guest::s_class);

Visit SaveAndLoad(int nNumber) {
    const auto guest = tn::Adopt(new Guest(nNumber));
    const Channel storing = Storing();
    const bool bStored = storing->WriteObject(guest.get()) == 1;
    const Bytes records = storing.file->TakeNew();
    if (!bStored || storing->WriteMapHeader() != 1) {
        return Visit::kRefused;
    }
    const Channel loading = Loading(storing.file->TakeNew() + records);
    CTnRobotObject* pLoaded = nullptr;
    if (loading->ReadMapHeader() != 1 || loading->ReadObject(&pLoaded) != 1) {
        return Visit::kRefused;
    }
    const auto loaded = tn::Adopt(dynamic_cast<Guest*>(pLoaded));
    return loaded != nullptr && loaded->Number() == nNumber ? Visit::kWorked : Visit::kWrong;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) Visit TnSoakVisit(int nNumber) {
    try {
        return SaveAndLoad(nNumber);
    } catch (const std::bad_alloc&) {
        return Visit::kRefused;
    }
}
