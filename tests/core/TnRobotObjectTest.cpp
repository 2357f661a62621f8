#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>

#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "TnRobotKernel/core.h"
#include "support/processes/ChildProcess.h"
#include "support/processes/Sanitizers.h"
#include "support/threads/StartGate.h"
#include "support/threads/ThreadProbe.h"

using namespace tntest;

namespace {

// The chain keeps every record for the rest of the process, so all records here are static and
// each test has identifiers of its own.

template <int nTag>
class CTnTagged : public CTnRobotObject {
public:
    static CTnRobotObject* Create() { return new CTnTagged; }
    STnRuntimeClass* GetRuntimeClass() override { return nullptr; }
};

CTnRobotObject* CreateNothing() {
    return nullptr;
}

template <int nTag>
bool CreatesTag(const char* lpszGuid) {
    const std::unique_ptr<CTnRobotObject> object(CTnRobotObject::CreateObjectFromGUID(lpszGuid));
    return dynamic_cast<CTnTagged<nTag>*>(object.get()) != nullptr;
}

bool CreatesNothing(const char* lpszGuid) {
    return std::unique_ptr<CTnRobotObject>(CTnRobotObject::CreateObjectFromGUID(lpszGuid)) == nullptr;
}

constexpr char kUnknown[] = "FFFFFFFF-0000-4000-8000-00000000FFFF";

}  // namespace

TEST(RuntimeClass, TheBaseRecordIsTheLastOfTheChainAndCreatesNothing) {
    const STnRuntimeClass& base = CTnRobotObject::classCTnRobotObject;
    EXPECT_STREQ(base.m_lpszClassGuid, "00000000-0000-0000-0000-000000000000");
    EXPECT_EQ(base.m_pfnCreateObject, nullptr);
    EXPECT_EQ(base.m_pReserved, nullptr);
    EXPECT_EQ(base.m_pNext, nullptr);
    EXPECT_TRUE(CreatesNothing("00000000-0000-0000-0000-000000000000"));
}

TEST(RuntimeClass, NullEmptyAndUnknownIdentifiersCreateNothing) {
    EXPECT_TRUE(CreatesNothing(nullptr));
    EXPECT_TRUE(CreatesNothing(""));
    EXPECT_TRUE(CreatesNothing(kUnknown));
}

// An empty identifier is refused before the chain is looked at.
TEST(RuntimeClass, AClassRegisteredWithoutTextIsNeverFound) {
    static STnRuntimeClass record = {"", &CTnTagged<0>::Create, nullptr, nullptr};
    const TN_REG_CLASS registration(&record);
    EXPECT_TRUE(CreatesNothing(""));
}

TEST(RuntimeClass, ARegisteredClassIsCreatedByItsIdentifier) {
    static STnRuntimeClass record = {"11111111-AAAA-4000-8000-000000000001", &CTnTagged<1>::Create, nullptr, nullptr};
    const TN_REG_CLASS registration(&record);
    EXPECT_TRUE(CreatesTag<1>("11111111-AAAA-4000-8000-000000000001"));
}

TEST(RuntimeClass, EveryLookupCreatesANewObject) {
    static STnRuntimeClass record = {"11111111-AAAA-4000-8000-000000000002", &CTnTagged<2>::Create, nullptr, nullptr};
    const TN_REG_CLASS registration(&record);
    const std::unique_ptr<CTnRobotObject> first(CTnRobotObject::CreateObjectFromGUID(record.m_lpszClassGuid));
    const std::unique_ptr<CTnRobotObject> second(CTnRobotObject::CreateObjectFromGUID(record.m_lpszClassGuid));
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
}

TEST(RuntimeClass, IdentifiersAreComparedByteForByte) {
    static STnRuntimeClass record = {"11111111-AAAA-4000-8000-000000000003", &CTnTagged<3>::Create, nullptr, nullptr};
    const TN_REG_CLASS registration(&record);
    EXPECT_TRUE(CreatesNothing("11111111-aaaa-4000-8000-000000000003"));
    EXPECT_TRUE(CreatesNothing("11111111-AAAA-4000-8000-00000000000"));
    EXPECT_TRUE(CreatesNothing("11111111-AAAA-4000-8000-0000000000030"));
    EXPECT_TRUE(CreatesNothing(" 11111111-AAAA-4000-8000-000000000003"));
    EXPECT_TRUE(CreatesTag<3>(std::string(record.m_lpszClassGuid).c_str()));
}

TEST(RuntimeClass, RegistrationPutsTheRecordInFrontOfTheOlderOnes) {
    static STnRuntimeClass older = {"11111111-AAAA-4000-8000-000000000004", &CTnTagged<4>::Create, nullptr, nullptr};
    static STnRuntimeClass newer = {"11111111-AAAA-4000-8000-000000000005", &CTnTagged<5>::Create, nullptr, nullptr};
    const TN_REG_CLASS first(&older);
    const TN_REG_CLASS second(&newer);
    EXPECT_EQ(newer.m_pNext, &older);
    EXPECT_TRUE(CreatesTag<4>(older.m_lpszClassGuid));
    EXPECT_TRUE(CreatesTag<5>(newer.m_lpszClassGuid));
}

TEST(RuntimeClass, OfTwoRecordsWithOneIdentifierTheLaterOneCreates) {
    static STnRuntimeClass older = {"11111111-AAAA-4000-8000-000000000006", &CTnTagged<6>::Create, nullptr, nullptr};
    static STnRuntimeClass newer = {"11111111-AAAA-4000-8000-000000000006", &CTnTagged<7>::Create, nullptr, nullptr};
    const TN_REG_CLASS first(&older);
    EXPECT_TRUE(CreatesTag<6>(older.m_lpszClassGuid));
    const TN_REG_CLASS second(&newer);
    EXPECT_TRUE(CreatesTag<7>(older.m_lpszClassGuid));
}

// The search ends at the first record with the identifier, whether that can create or not.
TEST(RuntimeClass, ALaterRecordThatCannotCreateHidesAnOlderOne) {
    static STnRuntimeClass older = {"11111111-AAAA-4000-8000-000000000008", &CTnTagged<8>::Create, nullptr, nullptr};
    static STnRuntimeClass newer = {"11111111-AAAA-4000-8000-000000000008", nullptr, nullptr, nullptr};
    const TN_REG_CLASS first(&older);
    const TN_REG_CLASS second(&newer);
    EXPECT_TRUE(CreatesNothing(older.m_lpszClassGuid));
}

TEST(RuntimeClass, WhatTheCreationFunctionAnswersIsHandedOnEvenNull) {
    static STnRuntimeClass record = {"11111111-AAAA-4000-8000-000000000009", &CreateNothing, nullptr, nullptr};
    const TN_REG_CLASS registration(&record);
    EXPECT_TRUE(CreatesNothing(record.m_lpszClassGuid));
}

// Linking a record twice would close the chain to a ring, and a search for anything else would
// never end.
TEST(RuntimeClass, RegisteringARecordTwiceLeavesTheChainWhole) {
    static STnRuntimeClass below = {"11111111-AAAA-4000-8000-000000000010", &CTnTagged<10>::Create, nullptr, nullptr};
    static STnRuntimeClass twice = {"11111111-AAAA-4000-8000-000000000011", &CTnTagged<11>::Create, nullptr, nullptr};
    static STnRuntimeClass above = {"11111111-AAAA-4000-8000-000000000012", &CTnTagged<12>::Create, nullptr, nullptr};
    const TN_REG_CLASS registerBelow(&below);
    const TN_REG_CLASS registerOnce(&twice);
    const TN_REG_CLASS registerAtTheHead(&twice);
    const TN_REG_CLASS registerAbove(&above);
    const TN_REG_CLASS registerInTheMiddle(&twice);
    EXPECT_TRUE(CreatesNothing(kUnknown));
    EXPECT_TRUE(CreatesTag<10>(below.m_lpszClassGuid));
    EXPECT_TRUE(CreatesTag<11>(twice.m_lpszClassGuid));
    EXPECT_TRUE(CreatesTag<12>(above.m_lpszClassGuid));
}

// The newest registration is found first, also when it is a record's second one.
TEST(RuntimeClass, ARecordRegisteredAgainIsTheNewestAgain) {
    static STnRuntimeClass again = {"11111111-AAAA-4000-8000-000000000015", &CTnTagged<15>::Create, nullptr, nullptr};
    static STnRuntimeClass other = {"11111111-AAAA-4000-8000-000000000015", &CTnTagged<16>::Create, nullptr, nullptr};
    const TN_REG_CLASS registerOnce(&again);
    const TN_REG_CLASS registerOther(&other);
    EXPECT_TRUE(CreatesTag<16>(again.m_lpszClassGuid));
    const TN_REG_CLASS registerAgain(&again);
    EXPECT_TRUE(CreatesTag<15>(again.m_lpszClassGuid));
}

TEST(RuntimeClass, RegisteringTheBaseRecordOrNothingLeavesTheChainWhole) {
    const TN_REG_CLASS registerBase(&CTnRobotObject::classCTnRobotObject);
    const TN_REG_CLASS registerNull(nullptr);
    EXPECT_TRUE(CreatesNothing(kUnknown));
    EXPECT_EQ(CTnRobotObject::classCTnRobotObject.m_pNext, nullptr);
}

// A plug-in that is opened at run time registers its classes while other threads load archives.
TEST(RuntimeClass, ClassesAreFoundWhileOthersAreRegistered) {
    constexpr int kRecords = 500;
    static STnRuntimeClass known = {"11111111-AAAA-4000-8000-000000000013", &CTnTagged<13>::Create, nullptr, nullptr};
    static std::vector<std::string> guids;
    static std::vector<STnRuntimeClass> records;
    const TN_REG_CLASS registerKnown(&known);
    if (records.empty()) {
        guids.reserve(kRecords);
        records.reserve(kRecords);
        for (int n = 0; n < kRecords; ++n) {
            guids.push_back("22222222-BBBB-4000-8000-" + std::to_string(100000000000 + n));
            records.push_back({guids.back().c_str(), &CTnTagged<14>::Create, nullptr, nullptr});
        }
    }
    std::atomic<int> nRegistered{0};
    StartGate gate(4);
    const auto registerHalf = [&](int nFirst) {
        gate.ArriveAndWait();
        for (int n = nFirst; n < kRecords; n += 2) {
            const TN_REG_CLASS registration(&records[static_cast<std::size_t>(n)]);
            ++nRegistered;
        }
    };
    const auto lookUp = [&] {
        gate.ArriveAndWait();
        bool bDone = false;
        while (!bDone) {
            bDone = nRegistered == kRecords;
            EXPECT_TRUE(CreatesTag<13>(known.m_lpszClassGuid));
            EXPECT_TRUE(CreatesNothing(kUnknown));
            CreatesTag<14>(guids[kRecords / 2].c_str());
        }
    };
    std::vector<std::thread> threads;
    threads.emplace_back(registerHalf, 0);
    threads.emplace_back(registerHalf, 1);
    threads.emplace_back(lookUp);
    threads.emplace_back(lookUp);
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::string& guid : guids) {
        EXPECT_TRUE(CreatesTag<14>(guid.c_str())) << guid;
    }
}

// It is out of the chain for a moment while it moves to the front.
TEST(RuntimeClass, AClassIsFoundWhileItIsRegisteredAgain) {
    constexpr int kRounds = 3000;
    static STnRuntimeClass first = {"11111111-AAAA-4000-8000-000000000017", &CTnTagged<17>::Create, nullptr, nullptr};
    static STnRuntimeClass second = {"11111111-AAAA-4000-8000-000000000018", &CTnTagged<18>::Create, nullptr, nullptr};
    const TN_REG_CLASS registerFirst(&first);
    const TN_REG_CLASS registerSecond(&second);
    std::atomic<bool> bDone{false};
    std::atomic<int> nLost{0};
    StartGate gate(3);
    const auto lookUp = [&] {
        gate.ArriveAndWait();
        while (!bDone) {
            nLost += CreatesTag<17>(first.m_lpszClassGuid) ? 0 : 1;
            nLost += CreatesTag<18>(second.m_lpszClassGuid) ? 0 : 1;
        }
    };
    std::thread readers[] = {std::thread(lookUp), std::thread(lookUp)};
    gate.ArriveAndWait();
    for (int n = 0; n < kRounds; ++n) {
        const TN_REG_CLASS firstAgain(&first);
        const TN_REG_CLASS secondAgain(&second);
    }
    bDone = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(nLost.load(), 0);
}

// While the newer record moves to the front, the search could come upon the older one.
TEST(RuntimeClass, AnOlderRecordIsNeverTakenWhileTheNewerOneIsRegisteredAgain) {
    constexpr int kRounds = 3000;
    static STnRuntimeClass older = {"11111111-AAAA-4000-8000-000000000031", &CTnTagged<31>::Create, nullptr, nullptr};
    static STnRuntimeClass newer = {"11111111-AAAA-4000-8000-000000000031", &CTnTagged<32>::Create, nullptr, nullptr};
    static STnRuntimeClass other = {"11111111-AAAA-4000-8000-000000000033", &CTnTagged<33>::Create, nullptr, nullptr};
    const TN_REG_CLASS registerOlder(&older);
    const TN_REG_CLASS registerNewer(&newer);
    std::atomic<bool> bDone{false};
    std::atomic<int> nWrong{0};
    StartGate gate(3);
    const auto lookUp = [&] {
        gate.ArriveAndWait();
        while (!bDone) {
            nWrong += CreatesTag<32>(newer.m_lpszClassGuid) ? 0 : 1;
        }
    };
    std::thread readers[] = {std::thread(lookUp), std::thread(lookUp)};
    gate.ArriveAndWait();
    for (int n = 0; n < kRounds; ++n) {
        const TN_REG_CLASS otherAgain(&other);
        const TN_REG_CLASS newerAgain(&newer);
    }
    bDone = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(nWrong.load(), 0);
}

namespace {

// A record whose writer is stopped: its page must not be written to until it goes on.
class StoppedWriter {
public:
    static STnRuntimeClass& Record() { return s_page.m_record; }

    StoppedWriter() {
        s_bStopped = false;
        s_bGoesOn = false;
        struct sigaction action {};
        action.sa_flags = SA_SIGINFO;
        action.sa_sigaction = [](int nSignal, siginfo_t* pInfo, void* /*pContext*/) {
            if (!IsHere(pInfo->si_addr)) {
                std::signal(nSignal, SIG_DFL);  // another defect, which ends the program as it should
                return;
            }
            s_bStopped = true;
            while (!s_bGoesOn) {
                poll(nullptr, 0, 1);
            }
            Protect(PROT_READ | PROT_WRITE);
        };
        sigaction(SIGSEGV, &action, &m_before);
        Protect(PROT_READ);
    }
    StoppedWriter(const StoppedWriter&) = delete;
    StoppedWriter& operator=(const StoppedWriter&) = delete;
    ~StoppedWriter() {
        GoOn();
        Protect(PROT_READ | PROT_WRITE);
        sigaction(SIGSEGV, &m_before, nullptr);
    }

    bool AwaitStop() const {
        return Eventually([] { return s_bStopped.load(); });
    }
    void GoOn() { s_bGoesOn = true; }

private:
    static constexpr std::size_t kPage = 4096;
    struct alignas(kPage) Page {
        STnRuntimeClass m_record = {"11111111-AAAA-4000-8000-000000000034", &CTnTagged<35>::Create, nullptr, nullptr};
    };

    static bool IsHere(const void* pAddress) {
        const auto nPage = reinterpret_cast<std::uintptr_t>(&s_page);
        return reinterpret_cast<std::uintptr_t>(pAddress) - nPage < kPage;
    }
    static void Protect(int nRights) { mprotect(&s_page, sizeof(s_page), nRights); }

    static Page s_page;
    static std::atomic<bool> s_bStopped;
    static std::atomic<bool> s_bGoesOn;
    struct sigaction m_before {};
};

StoppedWriter::Page StoppedWriter::s_page;
std::atomic<bool> StoppedWriter::s_bStopped{false};
std::atomic<bool> StoppedWriter::s_bGoesOn{false};

}  // namespace

// The same, with the registration stopped where it has taken the newer record out and not yet put it back.
TEST(RuntimeClass, ALookUpAwaitsTheEndOfARegistrationThatMovesItsRecord) {
    if (kSanitizerOwnsMemory || IsEmulated()) {
        GTEST_SKIP() << "a write is stopped by a signal, which others handle here";
    }
    static STnRuntimeClass older = {"11111111-AAAA-4000-8000-000000000034", &CTnTagged<34>::Create, nullptr, nullptr};
    static STnRuntimeClass other = {"11111111-AAAA-4000-8000-000000000036", &CTnTagged<36>::Create, nullptr, nullptr};
    STnRuntimeClass& newer = StoppedWriter::Record();
    for (int nRound = 0; nRound < 3; ++nRound) {  // the counter of moves has other remainders each time
        const TN_REG_CLASS registerOlder(&older);
        const TN_REG_CLASS registerNewer(&newer);
        const TN_REG_CLASS registerOther(&other);
        StoppedWriter stopped;
        Caller registering([&newer] { const TN_REG_CLASS again(&newer); });
        ASSERT_TRUE(stopped.AwaitStop());
        std::atomic<bool> bNewer{false};
        Caller lookingUp([&bNewer, &newer] { bNewer = CreatesTag<35>(newer.m_lpszClassGuid); });
        EXPECT_TRUE(lookingUp.AwaitBlocked());
        stopped.GoOn();
        registering.Join();
        lookingUp.Join();
        EXPECT_TRUE(bNewer);
    }
}
