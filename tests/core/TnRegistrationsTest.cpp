#include "core/TnRegistrations.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <utility>

using tnrobot::ForgottenRegistrations;
using tnrobot::Registration;
using tnrobot::Registrations;
using tnrobot::RememberRecord;

namespace {

const char* const kGuid = "33333333-CCCC-4CCC-8CCC-000000000001";
const char* const kOtherGuid = "33333333-CCCC-4CCC-8CCC-000000000002";

CTnRobotObject* CreateNothing() {
    return nullptr;
}

CTnRobotObject* CreateNothingElse() {
    return nullptr;
}

// What stands in a module's file where an address belongs: the distance from the module's begin.
template <typename Pointer>
Pointer Uncorrected() {
    return reinterpret_cast<Pointer>(std::uintptr_t{64});
}

// One record, in a module that may be closed.
class RegistrationsTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(m_pModule, nullptr) << dlerror();
        m_pRecord = static_cast<STnRuntimeClass*>(dlsym(m_pModule, "g_record"));
        ASSERT_NE(m_pRecord, nullptr);
    }
    void TearDown() override {
        m_registrations.ForgetAll(m_forgotten);
        CloseModule();
    }

    void CloseModule() {
        if (m_pModule != nullptr) {
            dlclose(std::exchange(m_pModule, nullptr));
        }
    }

    void Register(const char* lpszGuid, TnCreateObjectFunction pfnCreate) {
        *m_pRecord = {lpszGuid, pfnCreate, nullptr, nullptr};
        m_registrations.Add(RememberRecord(m_pRecord), m_forgotten);
    }

    // Whether the record is still counted as registered, now that it says this.
    bool StaysAs(const char* lpszGuid, TnCreateObjectFunction pfnCreate) {
        *m_pRecord = {lpszGuid, pfnCreate, nullptr, nullptr};
        return Stays();
    }

    bool Stays() {
        tnrobot::WhileModulesStay([this](unsigned long long) { m_registrations.ForgetClosedModules(m_forgotten); });
        return m_registrations.Newest() != nullptr;
    }

    void* m_pModule = dlopen(TNROBOT_TEST_RECORD_MODULE, RTLD_NOW | RTLD_LOCAL);
    STnRuntimeClass* m_pRecord = nullptr;
    Registrations m_registrations;
    ForgottenRegistrations m_forgotten;
};

}  // namespace

TEST_F(RegistrationsTest, ARecordStaysWithItsModule) {
    Register(kGuid, &CreateNothing);
    EXPECT_TRUE(m_registrations.Newest()->m_bInModule);
    EXPECT_TRUE(StaysAs(kGuid, &CreateNothing));
    CloseModule();
    EXPECT_FALSE(Stays());
}

TEST_F(RegistrationsTest, ARecordThatSaysSomethingElseIsAnotherModules) {
    Register(kGuid, &CreateNothing);
    EXPECT_FALSE(StaysAs(kOtherGuid, &CreateNothingElse));
}

TEST_F(RegistrationsTest, OneFieldMayChangeAfterTheRegistration) {
    Register(kGuid, nullptr);
    EXPECT_TRUE(StaysAs(kGuid, &CreateNothing));
    EXPECT_FALSE(StaysAs(kOtherGuid, nullptr));
}

TEST_F(RegistrationsTest, TheIdentifierMayChangeAfterTheRegistration) {
    Register(nullptr, &CreateNothing);
    EXPECT_TRUE(StaysAs(kGuid, &CreateNothing));
}

// Where a module was closed, another one's zeros may lie now.
TEST_F(RegistrationsTest, FieldsThatAreNullProveNothing) {
    Register(kGuid, nullptr);
    EXPECT_FALSE(StaysAs(nullptr, nullptr));
}

TEST_F(RegistrationsTest, ARecordOfNothingIsNotFoundAgain) {
    Register(nullptr, nullptr);
    EXPECT_FALSE(Stays());
}

// Another module that is being opened lies there: its identifier must not be read yet.
TEST_F(RegistrationsTest, AnIdentifierThatIsNoAddressYetIsAnotherModules) {
    Register(kGuid, &CreateNothing);
    EXPECT_FALSE(StaysAs(Uncorrected<const char*>(), &CreateNothing));
}

TEST_F(RegistrationsTest, AFunctionThatIsNoAddressYetIsAnotherModules) {
    Register(kGuid, &CreateNothing);
    EXPECT_FALSE(StaysAs(kGuid, Uncorrected<TnCreateObjectFunction>()));
}

// Statics of the program cannot go, and other memory is its owner's affair.
TEST_F(RegistrationsTest, ARecordOutsideModulesStaysWhateverItSays) {
    const auto own = std::make_unique<STnRuntimeClass>();
    static STnRuntimeClass s_program;
    for (STnRuntimeClass* pClass : {own.get(), &s_program}) {
        *pClass = {kGuid, &CreateNothing, nullptr, nullptr};
        m_registrations.Add(RememberRecord(pClass), m_forgotten);
        EXPECT_FALSE(m_registrations.Newest()->m_bInModule);
        *pClass = {};
        EXPECT_TRUE(Stays());
        m_registrations.ForgetAll(m_forgotten);
    }
}

TEST_F(RegistrationsTest, EachRecordIsThereOnceAndTheLastOneIsTheNewest) {
    STnRuntimeClass other = {kOtherGuid, &CreateNothing, nullptr, nullptr};
    Register(kGuid, &CreateNothing);
    m_registrations.Add(RememberRecord(&other), m_forgotten);
    Register(kGuid, &CreateNothing);
    const Registration* pNewest = m_registrations.Newest();
    EXPECT_EQ(pNewest->m_pClass, m_pRecord);
    ASSERT_NE(pNewest->m_pOlder, nullptr);
    EXPECT_EQ(pNewest->m_pOlder->m_pClass, &other);
    EXPECT_EQ(pNewest->m_pOlder->m_pOlder, nullptr);
    CloseModule();
    EXPECT_TRUE(Stays());  // the other one, which is in no module
    EXPECT_EQ(m_registrations.Newest()->m_pClass, &other);
}

// Work that looks something up may call what looks something up.
TEST_F(RegistrationsTest, ModulesStayInNestedWorkToo) {
    unsigned long long nOuter = 0;
    unsigned long long nInner = 1;
    tnrobot::WhileModulesStay([&](unsigned long long nClosed) {
        nOuter = nClosed;
        tnrobot::WhileModulesStay([&](unsigned long long nAgain) { nInner = nAgain; });
    });
    EXPECT_EQ(nOuter, nInner);
    CloseModule();
    unsigned long long nAfter = 0;
    tnrobot::WhileModulesStay([&](unsigned long long nClosed) { nAfter = nClosed; });
    EXPECT_EQ(nAfter, nOuter + 1);
}
