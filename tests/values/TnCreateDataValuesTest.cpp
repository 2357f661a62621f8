#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <functional>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "TnRobotKernel/values.h"
#include "support/objects/Archives.h"
#include "support/objects/Memory.h"
#include "support/objects/ValuePool.h"
#include "support/objects/Values.h"
#include "support/threads/StartGate.h"
#include "support/threads/Watchdog.h"

using namespace tntest;

namespace {

// A stream that answers a read pass with the pieces it was given, whatever its length says.
class ScriptedStream final : public ITnRobotMemDataStream {
public:
    struct Piece {
        Bytes bytes;
        bool bNull = false;
        unsigned int nClaimed = 0;  // reported in place of the piece's own size, unless 0
    };

    ScriptedStream(unsigned int nLength, std::vector<Piece> pieces) : m_nLength(nLength), m_pieces(std::move(pieces)) {}

    int WriteData(const unsigned char*, unsigned int) override { return -1; }
    int BeginReadData() override {
        ++m_nBegun;
        return 0;
    }
    unsigned char* ReadData(unsigned int& nSize) override {
        ++m_nRead;
        if (m_nNext == m_pieces.size()) {
            nSize = 0;
            return m_bEndless ? m_endless : nullptr;
        }
        Piece& piece = m_pieces[m_nNext++];
        nSize = piece.nClaimed != 0 ? piece.nClaimed : static_cast<unsigned int>(piece.bytes.size());
        return piece.bNull ? nullptr : piece.bytes.data();
    }
    void EndReadData() override { ++m_nEnded; }
    unsigned int GetTotleLength() override { return m_nLength; }
    void Clear() override {}

    /// After the pieces, empty pieces for ever instead of null.
    void GoOnForEver() { m_bEndless = true; }

    int References() const { return m_nRefCount.load(); }
    int m_nBegun = 0;
    int m_nRead = 0;
    int m_nEnded = 0;

private:
    unsigned int m_nLength;
    std::vector<Piece> m_pieces;
    std::size_t m_nNext = 0;
    bool m_bEndless = false;
    unsigned char m_endless[1] = {};
};

struct FromStream {
    int nResult;
    Value value;
};

FromStream MakeFrom(ITnRobotMemDataStream* pStream) {
    ITnRobotDataValue* pValue = nullptr;
    const int nResult = TnCreateRobotBlockData(pStream, &pValue);
    return {nResult, tn::Adopt(pValue)};
}

Bytes BlockOf(ITnRobotDataValue& value) {
    return ReadAs(value, DATA_TYPE_BLOCK).bytes;
}

// Calls every creation function with out-pointers of the caller's choosing.
std::vector<int> CreateOneOfEach(ITnRobotDataValue** ppOut) {
    return {
        TnCreateRobotBoolData(true, ppOut),
        TnCreateRobotCharData('x', ppOut),
        TnCreateRobotByteData(1, ppOut),
        TnCreateRobotShortData(1, ppOut),
        TnCreateRobotUShortData(1, ppOut),
        TnCreateRobotIntData(1, ppOut),
        TnCreateRobotUintData(1, ppOut),
        TnCreateRobotFloatData(1, ppOut),
        TnCreateRobotDoubleData(1, ppOut),
        TnCreateRobotLonglongData(1, ppOut),
        TnCreateRobotULonglongData(1, ppOut),
        TnCreateRobotStringData("x", ppOut),
        TnCreateRobotBlockData("x", 1, ppOut),
        TnCreateRobotBlockData(static_cast<ITnRobotMemDataStream*>(nullptr), ppOut),
    };
}

}  // namespace

TEST(CreateDataValues, AnswerZeroForSuccessWithOneReferenceForTheCaller) {
    const FreshValuePool pool;
    for (const ValueSample& sample : ValueSamples()) {
        ITnRobotDataValue* pValue = sample.create().detach();
        ASSERT_NE(pValue, nullptr) << sample.lpszName;
        EXPECT_EQ(pValue->Release(), 1) << sample.lpszName;
    }
}

TEST(CreateDataValues, ANullOutPointerFails) {
    for (int nResult : CreateOneOfEach(nullptr)) {
        EXPECT_EQ(nResult, -1);
    }
}

TEST(CreateDataValues, WithoutAPoolFailAndLeaveTheOutPointer) {
    const NoValuePool noPool;
    ITnRobotDataValue* const pUntouched = reinterpret_cast<ITnRobotDataValue*>(&TnCreateRobotIntData);
    ITnRobotDataValue* pOut = pUntouched;
    for (int nResult : CreateOneOfEach(&pOut)) {
        EXPECT_EQ(nResult, -1);
        EXPECT_EQ(pOut, pUntouched);
    }
    for (int nResult : CreateOneOfEach(nullptr)) {
        EXPECT_EQ(nResult, -1);
    }
}

TEST(CreateDataValues, AByteTakesTheLowEightBits) {
    const struct {
        unsigned short nGiven;
        unsigned char byExpected;
    } rows[] = {{0, 0}, {44, 44}, {255, 255}, {256, 0}, {300, 44}, {0xFF80, 0x80}, {65535, 255}};
    for (const auto& row : rows) {
        Value value = Made(TnCreateRobotByteData, row.nGiven);
        EXPECT_EQ(value->ByteData(nullptr), row.byExpected) << row.nGiven;
        EXPECT_EQ(SavedFormOf(*value), SavedValue(DATA_TYPE_BYTE, U8(row.byExpected))) << row.nGiven;
    }
}

TEST(CreateDataValues, ACharacterIsStoredWithAZeroBehindIt) {
    for (int nCharacter = CHAR_MIN; nCharacter <= CHAR_MAX; ++nCharacter) {
        const char ch = static_cast<char>(nCharacter);
        Value value = Made(TnCreateRobotCharData, ch);
        EXPECT_EQ(value->CharData(nullptr), ch);
        EXPECT_EQ(SavedFormOf(*value), SavedValue(DATA_TYPE_CHAR, U8(static_cast<unsigned char>(ch)) + U8(0)));
    }
}

TEST(CreateDataValues, ATextRecordsItsTerminatingZero) {
    for (std::size_t nLength : {0U, 1U, 3U, 7U, 8U, 22U, 23U, 24U, 25U, 255U, 256U, 70000U}) {
        const std::string strText(nLength, 't');
        Value value = TextValue(strText.c_str());
        int nError = 77;
        int nRecorded = 0;
        EXPECT_EQ(value->StringData(nRecorded, &nError), strText);
        EXPECT_EQ(nError, 0);
        EXPECT_EQ(nRecorded, static_cast<int>(nLength) + 1);
        EXPECT_EQ(SavedFormOf(*value), SavedValue(DATA_TYPE_STRING, FromText(strText) + U8(0)));
    }
}

TEST(CreateDataValues, ANullTextIsRefused) {
    ITnRobotDataValue* pOut = nullptr;
    EXPECT_EQ(TnCreateRobotStringData(nullptr, &pOut), -1);
    EXPECT_EQ(pOut, nullptr);
}

TEST(CreateDataValues, ABlockIsACopy) {
    for (std::size_t nLength : {1U, 8U, 24U, 25U, 4096U, 100000U}) {
        Bytes bytes(nLength);
        for (std::size_t i = 0; i < nLength; ++i) {
            bytes[i] = static_cast<unsigned char>(i * 13 + 1);
        }
        const Bytes expected = bytes;
        Value value = BlockValue(bytes);
        std::fill(bytes.begin(), bytes.end(), static_cast<unsigned char>(0xEE));
        EXPECT_EQ(BlockOf(*value), expected);
    }
}

TEST(CreateDataValues, ABlockOfNoBytesHasNoData) {
    for (const void* pData : {static_cast<const void*>(nullptr), static_cast<const void*>("x")}) {
        ITnRobotDataValue* pOut = nullptr;
        ASSERT_EQ(TnCreateRobotBlockData(pData, 0, &pOut), 0);
        Value value(pOut, tn::kAdopt);
        unsigned int nLength = 99;
        EXPECT_EQ(value->GetDataValueType(), DATA_TYPE_BLOCK);
        EXPECT_EQ(value->BlockData(nLength, nullptr), nullptr);
        EXPECT_EQ(nLength, 0U);
        EXPECT_STREQ(value->Convert2String(nullptr), "");
    }
}

TEST(CreateDataValues, NullBytesWithACountAreRefused) {
    ITnRobotDataValue* pOut = nullptr;
    EXPECT_EQ(TnCreateRobotBlockData(static_cast<const void*>(nullptr), 5, &pOut), -1);
    EXPECT_EQ(pOut, nullptr);
}

TEST(CreateDataValues, AReleasedValueComesBackRetyped) {
    const FreshValuePool pool;
    ITnRobotDataValue* pFirst = nullptr;
    for (int nRound = 0; nRound < 3; ++nRound) {
        for (const ValueSample& sample : ValueSamples()) {
            Value value = sample.create();
            if (pFirst == nullptr) {
                pFirst = value.get();
            }
            EXPECT_EQ(value.get(), pFirst) << sample.lpszName;
            EXPECT_EQ(value->GetDataValueType(), sample.eType);
            EXPECT_EQ(value->Convert2String(nullptr), sample.strText) << sample.lpszName;
        }
    }
}

TEST(CreateDataValues, ValuesComeBackInTheOrderOfTheirRelease) {
    const FreshValuePool pool;
    Value a = IntValue(1);
    Value b = IntValue(2);
    Value c = IntValue(3);
    const ITnRobotDataValue* const released[] = {b.get(), c.get(), a.get()};
    b.reset();
    c.reset();
    a.reset();
    std::vector<Value> again;
    for (const ITnRobotDataValue* pExpected : released) {
        again.push_back(IntValue(9));
        EXPECT_EQ(again.back().get(), pExpected);
    }
}

TEST(CreateDataValues, AHeldValueOutlivesThePoolButIsCleared) {
    const FreshValuePool pool;
    Value value = TextValue("soon gone");
    TnRobotUtils::Destroy();
    EXPECT_EQ(value->GetDataValueType(), DATA_TYPE_NONE);
    unsigned int nLength = 99;
    EXPECT_STREQ(value->Convert2String(&nLength), "");
    EXPECT_EQ(nLength, 0U);
    EXPECT_EQ(value.detach()->Release(), 0);
}

TEST(CreateDataValues, AValueWithSeveralHoldersOutlivesThePoolUnchanged) {
    const FreshValuePool pool;
    Value value = TextValue("still here");
    value->AddRef();
    TnRobotUtils::Destroy();
    TnRobotUtils::Init();
    EXPECT_STREQ(value->Convert2String(nullptr), "still here");
    EXPECT_EQ(value->Release(), 1);
    EXPECT_EQ(value.detach()->Release(), 0);
}

TEST(CreateDataValues, ASecondShutDownDoesNothing) {
    const FreshValuePool pool;
    TnRobotUtils::Destroy();
    TnRobotUtils::Destroy();
    TnRobotUtils::Init();
    EXPECT_EQ(IntValue(5)->IntData(nullptr), 5);
}

TEST(CreateDataValues, TakeAWholeStream) {
    const HeldPool blocks = MakePool();
    for (std::size_t nLength : {0U, 1U, 1048575U, 1048576U, 1048577U, 2500000U}) {
        ITnRobotMemDataStream* pStream = nullptr;
        ASSERT_EQ(TnCreateRobotMemDataStream(blocks.get(), &pStream), 1);
        TnRobotPtr<ITnRobotMemDataStream> stream(pStream, tn::kAdopt);
        Bytes bytes(nLength);
        for (std::size_t i = 0; i < nLength; ++i) {
            bytes[i] = static_cast<unsigned char>(i * 11 + (i >> 12));
        }
        ASSERT_EQ(stream->WriteData(bytes.data(), static_cast<unsigned int>(nLength)), 0);
        FromStream made = MakeFrom(stream.get());
        ASSERT_EQ(made.nResult, 0);
        EXPECT_EQ(made.value->GetDataValueType(), DATA_TYPE_BLOCK);
        EXPECT_EQ(ReadAs(*made.value, DATA_TYPE_BLOCK).nError, 0);
        EXPECT_EQ(BlockOf(*made.value), bytes) << nLength;
        // The stream can be read again: nothing was consumed or kept.
        EXPECT_EQ(BlockOf(*MakeFrom(stream.get()).value), bytes) << nLength;
    }
}

TEST(CreateDataValues, ReadAStreamInOnePassAndDoNotKeepIt) {
    TnRobotPtr<ScriptedStream> stream = tn::Adopt(new ScriptedStream(5, {{FromHex("0102")}, {FromHex("030405")}}));
    FromStream made = MakeFrom(stream.get());
    EXPECT_EQ(BlockOf(*made.value), FromHex("0102030405"));
    EXPECT_EQ(stream->m_nBegun, 1);
    EXPECT_EQ(stream->m_nEnded, 1);
    EXPECT_EQ(stream->m_nRead, 2);
    EXPECT_EQ(stream->References(), 1);
}

TEST(CreateDataValues, DoNotReadAnEmptyStream) {
    TnRobotPtr<ScriptedStream> stream = tn::Adopt(new ScriptedStream(0, {{FromHex("01")}}));
    FromStream made = MakeFrom(stream.get());
    ASSERT_EQ(made.nResult, 0);
    EXPECT_EQ(made.value->GetDataValueType(), DATA_TYPE_BLOCK);
    unsigned int nLength = 99;
    EXPECT_EQ(made.value->BlockData(nLength, nullptr), nullptr);
    EXPECT_EQ(nLength, 0U);
    EXPECT_EQ(stream->m_nBegun + stream->m_nRead + stream->m_nEnded, 0);
}

TEST(CreateDataValues, ANullStreamGivesAnEmptyBlock) {
    const FreshValuePool pool;
    for (int nRound = 0; nRound < 2; ++nRound) {  // a new value, then a recycled one
        FromStream made = MakeFrom(nullptr);
        ASSERT_EQ(made.nResult, 0);
        EXPECT_EQ(made.value->GetDataValueType(), DATA_TYPE_BLOCK);
        unsigned int nLength = 99;
        EXPECT_EQ(made.value->BlockData(nLength, nullptr), nullptr);
        EXPECT_EQ(nLength, 0U);
        EXPECT_EQ(SavedFormOf(*made.value), SavedValue(DATA_TYPE_BLOCK, {}));
    }
}

TEST(CreateDataValues, StopAtAStreamThatDoesNotKeepItsWord) {
    const struct {
        const char* lpszName;
        std::vector<ScriptedStream::Piece> pieces;
        const char* lpszStored;
    } rows[] = {
        {"null at once", {{{}, true}}, "0000000000000000"},
        {"null after a piece", {{FromHex("0102")}, {{}, true}, {FromHex("03")}}, "0102000000000000"},
        {"null that claims bytes", {{FromHex("0102")}, {{}, true, 6}}, "0102000000000000"},
        {"more than remains", {{FromHex("0102")}, {FromHex("03040506070809")}}, "0102000000000000"},
        {"far more than remains", {{FromHex("0102")}, {FromHex("03"), false, 0xFFFFFFFFU}}, "0102000000000000"},
        {"too few pieces", {{FromHex("0102")}, {FromHex("0304")}}, "0102030400000000"},
        {"one piece more than needed",
         {{FromHex("01020304")}, {FromHex("05060708")}, {FromHex("09")}},
         "0102030405060708"},
    };
    for (const auto& row : rows) {
        TnRobotPtr<ScriptedStream> stream = tn::Adopt(new ScriptedStream(8, row.pieces));
        FromStream made = MakeFrom(stream.get());
        ASSERT_EQ(made.nResult, 0) << row.lpszName;
        EXPECT_EQ(BlockOf(*made.value), FromHex(row.lpszStored)) << row.lpszName;
        EXPECT_EQ(stream->m_nBegun, 1) << row.lpszName;
        EXPECT_EQ(stream->m_nEnded, 1) << row.lpszName;
    }
}

namespace {

// An application's own stream of one piece, that does something of its own as it is read.
class BusyStream final : public ITnRobotMemDataStream {
public:
    explicit BusyStream(std::function<void()> work) : m_work(std::move(work)) {}

    int WriteData(const unsigned char*, unsigned int) override { return -1; }
    int BeginReadData() override { return 0; }
    unsigned char* ReadData(unsigned int& nSize) override {
        m_work();
        nSize = sizeof(m_bytes);
        return m_bytes;
    }
    void EndReadData() override {}
    unsigned int GetTotleLength() override { return sizeof(m_bytes); }
    void Clear() override {}

private:
    std::function<void()> m_work;
    unsigned char m_bytes[3] = {1, 2, 3};
};

}  // namespace

TEST(CreateDataValues, AStreamMayUseValuesWhileItIsRead) {
    const Watchdog watchdog(30);
    int nOwn = 0;
    int nOther = 0;
    TnRobotPtr<BusyStream> stream = tn::Adopt(new BusyStream([&] {
        nOwn = IntValue(5)->IntData(nullptr);
        std::thread other([&] { nOther = IntValue(6)->IntData(nullptr); });
        other.join();
    }));
    FromStream made = MakeFrom(stream.get());
    ASSERT_EQ(made.nResult, 0);
    EXPECT_EQ(BlockOf(*made.value), FromHex("010203"));
    EXPECT_EQ(nOwn, 5);
    EXPECT_EQ(nOther, 6);
}

TEST(CreateDataValues, AStreamThatThrowsLeavesThePoolAsItWas) {
    const FreshValuePool pool;
    Value first = IntValue(1);
    const ITnRobotDataValue* const pFirst = first.get();
    first.reset();
    const Value held = IntValue(2);
    const Value second = IntValue(3);
    EXPECT_EQ(held.get(), pFirst) << "one lies free at most";
    TnRobotPtr<BusyStream> stream = tn::Adopt(new BusyStream([] { throw std::runtime_error("no bytes"); }));
    ITnRobotDataValue* pOut = nullptr;
    EXPECT_THROW(TnCreateRobotBlockData(stream.get(), &pOut), std::runtime_error);
    EXPECT_EQ(pOut, nullptr);
    EXPECT_EQ(held->IntData(nullptr), 2);
    EXPECT_EQ(second->IntData(nullptr), 3);
}

TEST(CreateDataValues, AStreamIsNotReadWithoutAnOutPointerOrAPool) {
    int nReads = 0;
    TnRobotPtr<BusyStream> stream = tn::Adopt(new BusyStream([&] { ++nReads; }));
    EXPECT_EQ(TnCreateRobotBlockData(stream.get(), nullptr), -1);
    const NoValuePool noPool;
    ITnRobotDataValue* pOut = nullptr;
    EXPECT_EQ(TnCreateRobotBlockData(stream.get(), &pOut), -1);
    EXPECT_EQ(nReads, 0);
}

namespace {

// A page that cannot be read at first. The first to try makes another thread create a value, and goes on
// when that one has it.
class GuardedPage {
public:
    GuardedPage() {
        s_pPage = mmap(nullptr, kSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        s_bWanted = false;
        s_bDone = false;
        struct sigaction action = {};
        action.sa_handler = OnFirstAccess;
        sigaction(SIGSEGV, &action, &m_before);
    }
    GuardedPage(const GuardedPage&) = delete;
    GuardedPage& operator=(const GuardedPage&) = delete;
    ~GuardedPage() {
        sigaction(SIGSEGV, &m_before, nullptr);
        munmap(s_pPage, kSize);
    }

    static const void* Data() { return s_pPage; }

    /// Waits for the first access, creates a value and lets the reader go on.
    static void ServeOnce() {
        while (!s_bWanted) {
            std::this_thread::yield();
        }
        const Value value = IntValue(5);
        s_bDone = value != nullptr;
    }

    static constexpr std::size_t kSize = 65536;

private:
    static void OnFirstAccess(int /*nSignal*/) {
        s_bWanted = true;
        while (!s_bDone) {
            sched_yield();
        }
        mprotect(s_pPage, kSize, PROT_READ);
    }

    static void* s_pPage;
    static std::atomic<bool> s_bWanted;
    static std::atomic<bool> s_bDone;
    struct sigaction m_before = {};
};

void* GuardedPage::s_pPage = nullptr;
std::atomic<bool> GuardedPage::s_bWanted{false};
std::atomic<bool> GuardedPage::s_bDone{false};

}  // namespace

TEST(CreateDataValues, NobodyWaitsWhileALongBlockIsCopied) {
    const Watchdog watchdog(30);
    const GuardedPage page;
    std::thread other([] { GuardedPage::ServeOnce(); });
    ITnRobotDataValue* pValue = nullptr;
    const int nResult = TnCreateRobotBlockData(GuardedPage::Data(), GuardedPage::kSize, &pValue);
    other.join();
    ASSERT_EQ(nResult, 0);
    const Value value(pValue, tn::kAdopt);
    EXPECT_EQ(BlockOf(*value), Bytes(GuardedPage::kSize));
}

TEST(CreateDataValues, EndWithAStreamOfEmptyPieces) {
    TnRobotPtr<ScriptedStream> stream = tn::Adopt(new ScriptedStream(8, {{FromHex("0102")}}));
    stream->GoOnForEver();
    FromStream made = MakeFrom(stream.get());
    ASSERT_EQ(made.nResult, 0);
    EXPECT_EQ(BlockOf(*made.value), FromHex("0102000000000000"));
    EXPECT_EQ(stream->m_nEnded, 1);
}

namespace {

// Makes a random value, checks it, passes it through a copy or not, and lets it go.
bool MakeCheckAndRelease(const std::vector<ValueSample>& samples, std::mt19937& random) {
    const ValueSample& sample = samples[random() % samples.size()];
    Value value = sample.create();
    Value shown = random() % 2 == 0 ? tn::Adopt(value->Clone()) : std::move(value);
    return shown->GetDataValueType() == sample.eType && shown->Convert2String(nullptr) == sample.strText;
}

}  // namespace

TEST(CreateDataValues, ThreadsMakeAndReleaseValues) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 3000;
    const FreshValuePool pool;
    StartGate gate(kThreads);
    std::atomic<int> nWrong{0};
    std::vector<std::thread> threads;
    for (unsigned int nThread = 0; nThread < kThreads; ++nThread) {
        threads.emplace_back([&, nThread] {
            std::mt19937 random(1000 + nThread);
            const std::vector<ValueSample> samples = ValueSamples();
            gate.ArriveAndWait();
            for (int i = 0; i < kRounds; ++i) {
                if (!MakeCheckAndRelease(samples, random)) {
                    ++nWrong;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(nWrong.load(), 0);
}

TEST(CreateDataValues, AValueMayBeReleasedOnAnotherThread) {
    const FreshValuePool pool;
    std::mutex mutex;
    std::condition_variable changed;
    Value handed;
    bool bDone = false;
    std::atomic<int> nSum{0};
    std::thread consumer([&] {
        std::unique_lock<std::mutex> lock(mutex);
        while (true) {
            changed.wait(lock, [&] { return handed != nullptr || bDone; });
            if (handed == nullptr) {
                return;
            }
            nSum += handed->IntData(nullptr);
            handed.reset();
            changed.notify_all();
        }
    });
    for (int i = 1; i <= 1000; ++i) {
        Value value = IntValue(i);
        std::unique_lock<std::mutex> lock(mutex);
        handed = std::move(value);
        changed.notify_all();
        changed.wait(lock, [&] { return handed == nullptr; });
    }
    {
        std::lock_guard<std::mutex> lock(mutex);
        bDone = true;
        changed.notify_all();
    }
    consumer.join();
    EXPECT_EQ(nSum.load(), 500500);
}
