// Files that nobody wrote, that were cut short or changed, and files whose reads and writes fail.
// Every such load ends with a documented result, quickly and in little memory, and leaves nothing
// behind; what it did load can be read, copied and saved.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "TnRobotKernel/archive.h"
#include "TnRobotKernel/values.h"
#include "support/fakes/TestObjects.h"
#include "support/objects/Archives.h"
#include "support/objects/Groups.h"
#include "support/objects/Values.h"
#include "support/processes/ChildProcess.h"
#include "support/processes/ResourceUse.h"

using namespace tntest;

namespace {

// Wide enough for sanitizers: what it stands against would take minutes.
constexpr double kMostSeconds = 5.0;
constexpr long long kMostMemory = 64 * kMiB;

// An object of a hostile file: released when it is counted, deleted when it is not.
struct Dispose {
    void operator()(CTnRobotObject* pObject) const {
        if (ITnUnknown* pCounted = dynamic_cast<ITnUnknown*>(pObject)) {
            pCounted->Release();
        } else {
            delete pObject;
        }
    }
};

// An object that is always at the same place; there is one at a time.
class OnePlace final : public CTnRobotObject, public ITnRobotSerialize {
public:
    static STnRuntimeClass s_class;

    static void* operator new(std::size_t /*nSize*/) { return s_place; }
    static void operator delete(void* /*pPlace*/) {}
    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }
    int Serialize(ITnRobotArchive* /*pArchive*/) override { return 1; }

private:
    alignas(std::max_align_t) static unsigned char s_place[64];
};

alignas(std::max_align_t) unsigned char OnePlace::s_place[64];
STnRuntimeClass OnePlace::s_class = {"11111111-AAAA-4AAA-8AAA-0000000000B2",
                                     []() -> CTnRobotObject* { return new OnePlace; }, nullptr, nullptr};
static_assert(sizeof(OnePlace) <= 64);
const TN_REG_CLASS s_registerOnePlace(&OnePlace::s_class);

// Everything that a good file holds, in the order in which it is read.
struct Loaded {
    int nHeader = 0;
    std::vector<int> objectResults;
    std::vector<CTnRobotObject*> objects;
    int nGroup = 0;
    Group group;
    int nValue = 0;
    Value value;
    int nTextError = 77;
    std::string strText;
};

constexpr int kRecords = 4;

// An archive file with everything in it: header, objects with a shared one, a group, a value, a text.
Bytes GoodFile() {
    TnRobotPtr<TestNode> parent = TestNode::Create(1);
    TnRobotPtr<TestNode> child = TestNode::Create(2);
    parent->Add(child.get());
    parent->Add(child.get());
    TnRobotPtr<TolerantNode> ring = TolerantNode::Create(3);
    ring->Add(ring.get());
    Channel channel = Storing();
    channel->WriteObject(parent.get());
    channel->WriteObject(child.get());
    channel->WriteObject(ring.get());
    channel->WriteObject(nullptr);
    ring->DropChildren();
    FullGroup()->Serialize(channel.Get());
    BlockValue(Bytes(40, 0x5A))->Serialize(channel.Get());
    channel->WriteString("the end");
    const Bytes body = channel.file->TakeNew();
    channel->WriteMapHeader();
    return channel.file->TakeNew() + body;
}

// Uses what a value claims to hold, up to the length that it reports.
void Exercise(ITnRobotDataValue& value) {
    for (int nType = DATA_TYPE_BOOL; nType <= DATA_TYPE_BYTE; ++nType) {
        ReadAs(value, static_cast<ETnRobotDataValueType>(nType));
    }
    unsigned int nLength = 0;
    const std::string strText = value.Convert2String(&nLength);
    EXPECT_TRUE(nLength == 0 || nLength == strText.size() + 1);
    SavedFormOf(value);
    Value clone(value.Clone(), tn::kAdopt);
    if (clone != nullptr) {
        EXPECT_EQ(SavedFormOf(*clone), SavedFormOf(value));
    }
}

void Exercise(ITnRobotDataValueGroup& group) {
    std::vector<std::pair<std::string, ETnRobotDataValueType>> names;
    const int nNames = group.GetAllDataName(names);
    EXPECT_EQ(nNames, static_cast<int>(names.size()));
    for (const auto& [strName, eType] : names) {
        EXPECT_EQ(group.GetDataValueType(strName.c_str()), eType);
        ITnRobotDataValue* pValue = nullptr;
        if (group.GetValue(strName.c_str(), &pValue) == 0) {
            Value value(pValue, tn::kAdopt);
            Exercise(*value);
        }
    }
    Group clone(group.Clone(), tn::kAdopt);
    EXPECT_EQ(SavedFormOf(*clone).size(), SavedFormOf(group).size());
}

// Reads a whole file as its reader would, ignoring failures, and uses what came out of it.
Loaded LoadEverything(const Channel& channel) {
    Loaded loaded;
    loaded.nHeader = channel->ReadMapHeader();
    for (int i = 0; i < kRecords; ++i) {
        CTnRobotObject* pObject = nullptr;
        loaded.objectResults.push_back(channel->ReadObject(&pObject));
        if (pObject != nullptr) {
            loaded.objects.push_back(pObject);
        }
    }
    loaded.group = NewGroup();
    loaded.nGroup = loaded.group->Serialize(channel.Get());
    loaded.value = IntValue(5);
    loaded.nValue = loaded.value->Serialize(channel.Get());
    int nLength = 0;
    const char* lpszText = channel->ReadString(nLength, &loaded.nTextError);
    if (lpszText != nullptr) {
        EXPECT_GT(nLength, 0);
        loaded.strText.assign(lpszText, static_cast<std::size_t>(nLength));
    }
    return loaded;
}

// An uncounted object may have come back several times; each object goes once per reference.
void Release(Loaded& loaded) {
    std::vector<CTnRobotObject*> uncounted;
    for (CTnRobotObject* pObject : loaded.objects) {
        if (dynamic_cast<ITnUnknown*>(pObject) != nullptr) {
            Dispose()(pObject);
        } else if (std::find(uncounted.begin(), uncounted.end(), pObject) == uncounted.end()) {
            uncounted.push_back(pObject);
        }
    }
    for (CTnRobotObject* pObject : uncounted) {
        Dispose()(pObject);
    }
    loaded.objects.clear();
}

bool IsResult(int nResult) {
    return nResult == 0 || nResult == 1;
}

// Loads a file that may be anything, checks that every result is a documented one and that nothing
// stays behind.
void SurviveChannel(const Channel& channel) {
    Loaded loaded = LoadEverything(channel);
    EXPECT_TRUE(IsResult(loaded.nHeader));
    for (int nResult : loaded.objectResults) {
        EXPECT_TRUE(IsResult(nResult));
    }
    EXPECT_TRUE(IsResult(loaded.nGroup));
    EXPECT_TRUE(IsResult(loaded.nValue));
    EXPECT_TRUE(loaded.nTextError == 0 || loaded.nTextError == -1);
    Exercise(*loaded.group);
    Exercise(*loaded.value);
    Release(loaded);
    EXPECT_EQ(LiveObject::Count(), 0);
}

void Survive(const Bytes& bytes) {
    const Channel channel = Loading(bytes);
    SurviveChannel(channel);
}

// Quick, and modest with memory.
void SurviveWithinLimits(const std::function<void()>& work, const std::string& strWhat) {
    EXPECT_LT(SecondsFor(work), kMostSeconds) << strWhat;
    const long long nGrowth = PeakGrowth(work);
    EXPECT_GE(nGrowth, 0) << strWhat;
    EXPECT_LE(nGrowth, kMostMemory) << strWhat;
}

}  // namespace

TEST(ArchiveHostile, TheGoodFileItselfLoadsWhole) {
    const Bytes good = GoodFile();
    const Channel channel = Loading(good);
    Loaded loaded = LoadEverything(channel);
    EXPECT_EQ(loaded.nHeader, 1);
    EXPECT_EQ(loaded.objectResults, (std::vector<int>{1, 1, 1, 0}));
    EXPECT_EQ(loaded.objects.size(), 3U);
    EXPECT_EQ(loaded.nGroup, 1);
    EXPECT_EQ(loaded.nValue, 1);
    EXPECT_EQ(loaded.nTextError, 0);
    EXPECT_EQ(loaded.strText, std::string("the end\0", 8));
    EXPECT_EQ(channel.file->Position(), good.size());
    Release(loaded);
    EXPECT_EQ(LiveObject::Count(), 0);
}

TEST(ArchiveHostile, EveryPrefixEndsWithADocumentedResult) {
    const Bytes good = GoodFile();
    for (std::size_t nLength = 0; nLength < good.size(); ++nLength) {
        const Bytes prefix(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(nLength));
        EXPECT_LT(SecondsFor([&] { Survive(prefix); }), kMostSeconds) << nLength;
        if (::testing::Test::HasFailure()) {
            FAIL() << "prefix of " << nLength << " bytes";
        }
    }
    EXPECT_EQ(TestFile::LiveCount(), 0);
}

TEST(ArchiveHostile, AThousandSingleByteChangesEndWithADocumentedResult) {
    const Bytes good = GoodFile();
    std::mt19937 random(20240607);
    for (int i = 0; i < RandomTries(1000); ++i) {
        Bytes changed = good;
        const std::size_t nPosition = random() % changed.size();
        const unsigned char byMask = static_cast<unsigned char>(1 + random() % 255);
        changed[nPosition] = static_cast<unsigned char>(changed[nPosition] ^ byMask);
        EXPECT_LT(SecondsFor([&] { Survive(changed); }), kMostSeconds);
        if (::testing::Test::HasFailure()) {
            FAIL() << "byte " << nPosition << " changed by " << static_cast<int>(byMask);
        }
    }
    EXPECT_EQ(TestFile::LiveCount(), 0);
}

TEST(ArchiveHostile, PrefixesAndChangesStayWithinMemory) {
    const Bytes good = GoodFile();
    const long long nGrowth = PeakGrowth([&good] {
        std::mt19937 random(977);
        for (int i = 0; i < RandomTries(1000); ++i) {
            Bytes changed = good;
            changed.resize(1 + random() % changed.size());
            changed[random() % changed.size()] = static_cast<unsigned char>(random());
            Survive(changed);
        }
    });
    EXPECT_GE(nGrowth, 0);
    EXPECT_LE(nGrowth, kMostMemory);
}

TEST(ArchiveHostile, SeededNoiseEndsWithADocumentedResult) {
    std::mt19937 random(4711);
    for (int i = 0; i < RandomTries(500); ++i) {
        Bytes noise(random() % 400);
        for (unsigned char& by : noise) {
            // Small numbers and zeros get further than evenly spread bytes.
            by = static_cast<unsigned char>(random() % 4 == 0 ? random() : random() % 3);
        }
        EXPECT_LT(SecondsFor([&] { Survive(noise); }), kMostSeconds) << i;
    }
}

TEST(ArchiveHostile, AbsurdCountsOfAText) {
    for (std::uint32_t nCount : {0x7FFFFFFFU, 0x40000000U, 0x00200000U}) {
        for (std::size_t nThere : {0U, 1U, 20U}) {
            SurviveWithinLimits(
                [&] {
                    Channel channel = Loading(U32(nCount) + Bytes(nThere, 'x'));
                    int nLength = 0;
                    int nError = 77;
                    const char* lpszText = channel->ReadString(nLength, &nError);
                    EXPECT_LE(channel.file->LargestRead(), kMiB) << "memory grows as bytes arrive";
                    if (nThere == 0) {
                        EXPECT_EQ(lpszText, nullptr);
                        EXPECT_EQ(nError, -1);
                    } else {
                        // A short but positive read is a success; the length says what is there.
                        ASSERT_NE(lpszText, nullptr);
                        EXPECT_EQ(nError, 0);
                        ASSERT_EQ(nLength, static_cast<int>(nThere));
                        EXPECT_EQ(std::string(lpszText), std::string(nThere, 'x'));
                    }
                },
                std::to_string(nCount));
        }
    }
}

TEST(ArchiveHostile, ALongTextThatWasCutShortCountsWhatArrived) {
    for (const long long nArrived : {kMiB - 1, kMiB, kMiB + 1, 2 * kMiB + 7, 5 * kMiB}) {
        const auto nThere = static_cast<std::size_t>(nArrived);
        Channel channel = Loading(U32(6 * kMiB) + Bytes(nThere, 'x'));
        int nLength = 0;
        int nError = 77;
        const char* lpszText = channel->ReadString(nLength, &nError);
        ASSERT_NE(lpszText, nullptr);
        EXPECT_EQ(nError, 0);
        EXPECT_EQ(nLength, static_cast<int>(nThere));
        EXPECT_EQ(std::strlen(lpszText), nThere) << "a zero byte follows";
    }
}

// A failed read may answer any number below zero, and the next one may work again.
TEST(ArchiveHostile, AFileThatFailsWithinALongTextHasSentWhatCameBefore) {
    for (const long long nAnswer : {0LL, -1LL, -5LL, LLONG_MIN}) {
        Channel channel = Loading(U32(6 * kMiB) + Bytes(6 * kMiB, 'x'));
        channel.file->FailRead(4, nAnswer);  // the count, two steps, and then nothing
        int nLength = 0;
        int nError = 77;
        const char* lpszText = channel->ReadString(nLength, &nError);
        ASSERT_NE(lpszText, nullptr) << nAnswer;
        EXPECT_EQ(nError, 0) << nAnswer;
        EXPECT_EQ(nLength, 2 * kMiB) << nAnswer;
        EXPECT_EQ(channel.file->ReadCalls(), 4) << nAnswer;
        EXPECT_EQ(lpszText[2 * kMiB - 1], 'x') << nAnswer;
    }
}

TEST(ArchiveHostile, AFileThatFailsAtOnceHasSentNothing) {
    for (const long long nAnswer : {0LL, -1LL, -5LL, LLONG_MIN}) {
        for (const int nCall : {1, 2}) {
            Channel channel = Loading(U32(4) + Bytes(4, 'x'));
            channel.file->FailRead(nCall, nAnswer);
            int nLength = 7;
            int nError = 77;
            EXPECT_EQ(channel->ReadString(nLength, &nError), nullptr) << nAnswer;
            EXPECT_EQ(nError, -1) << nAnswer;
        }
    }
}

TEST(ArchiveHostile, AFileThatFailsWithinAValueHasSentWhatCameBefore) {
    for (const long long nAnswer : {0LL, -1LL, -5LL, LLONG_MIN}) {
        Channel channel = Loading(SavedValue(DATA_TYPE_BLOCK, Bytes(6 * kMiB, 'x')));
        channel.file->FailRead(6, nAnswer);  // version, type and count, two steps, and then nothing
        const Value value = IntValue(5);
        EXPECT_EQ(value->Serialize(channel.Get()), 0) << nAnswer;
        EXPECT_EQ(channel.file->ReadCalls(), 6) << nAnswer;
        EXPECT_EQ(SavedFormOf(*value), SavedValue(DATA_TYPE_BLOCK, Bytes(2 * kMiB, 'x'))) << nAnswer;
    }
}

// Where memory cannot be extended in place each step moves all that is there: their number must not grow
// with the content.
TEST(ArchiveHostile, LongContentsTakeFewSteps) {
    constexpr int kMostReads = 12;
    constexpr std::uint32_t kSize = 64 * kMiB;
    Channel text = Loading(U32(kSize) + Bytes(kSize, 'x'));
    int nLength = 0;
    ASSERT_NE(text->ReadString(nLength, nullptr), nullptr);
    EXPECT_EQ(nLength, static_cast<int>(kSize));
    EXPECT_LE(text.file->ReadCalls(), kMostReads);

    Channel bytes = Loading(SavedValue(DATA_TYPE_BLOCK, Bytes(kSize, 'x')));
    EXPECT_EQ(IntValue(5)->Serialize(bytes.Get()), 1);
    EXPECT_LE(bytes.file->ReadCalls(), kMostReads);
}

TEST(ArchiveHostile, MemoryStaysBelowTwiceWhatArrivedAndOneMiB) {
    if (IsEmulated()) {
        GTEST_SKIP() << "an emulator takes the place to which memory moves twice";
    }
    constexpr long long kThere = 33 * kMiB;
    // What the library takes for everything else.
    constexpr long long kBeside = kMiB;
    const Bytes there(kThere, 'x');
    Channel text = Loading(U32(0x7FFFFFFF) + there);
    const long long nForText = PeakGrowth([&] {
        int nLength = 0;
        EXPECT_NE(text->ReadString(nLength, nullptr), nullptr);
        EXPECT_LE(text.file->LargestRead(), kThere + kMiB);
    });
    EXPECT_GE(nForText, 0);
    EXPECT_LE(nForText, 2 * kThere + kMiB + kBeside);

    Channel bytes = Loading(U8(1) + U32(DATA_TYPE_BLOCK) + U32(0x7FFFFFFF) + there);
    Value value = IntValue(5);
    const long long nForValue = PeakGrowth([&] {
        EXPECT_EQ(value->Serialize(bytes.Get()), 0);
        EXPECT_LE(bytes.file->LargestRead(), kThere + kMiB);
    });
    EXPECT_GE(nForValue, 0);
    EXPECT_LE(nForValue, 2 * kThere + kMiB + kBeside);
}

TEST(ArchiveHostile, NegativeCountsOfAText) {
    for (std::uint32_t nCount : {0xFFFFFFFFU, 0x80000000U, 0x80000001U}) {
        SurviveWithinLimits(
            [&] {
                Channel channel = Loading(U32(nCount) + Bytes(20, 'x'));
                int nLength = 0;
                int nError = 77;
                EXPECT_EQ(channel->ReadString(nLength, &nError), nullptr);
                EXPECT_EQ(nError, -1);
            },
            std::to_string(nCount));
    }
    TnRobotPtr<ITnRobotArchive> detached = MakeArchive();
    int nLength = -1;
    EXPECT_EQ(detached->ReadString(nLength, nullptr), nullptr);
}

TEST(ArchiveHostile, AbsurdCountsOfAValue) {
    for (std::uint32_t nCount : {0x7FFFFFFFU, 0x40000000U, 0x00200000U}) {
        for (std::size_t nThere : {0U, 1U, 20U}) {
            for (int nType : {int{DATA_TYPE_INT}, int{DATA_TYPE_STRING}, int{DATA_TYPE_BLOCK}}) {
                SurviveWithinLimits(
                    [&] {
                        Value value = IntValue(5);
                        Channel channel = Loading(U8(1) + BytesOf(nType) + U32(nCount) + Bytes(nThere, 'x'));
                        EXPECT_EQ(value->Serialize(channel.Get()), 0);
                        EXPECT_LE(channel.file->LargestRead(), kMiB);
                        EXPECT_EQ(static_cast<int>(value->GetDataValueType()), nType) << "the type is replaced already";
                        Exercise(*value);
                    },
                    std::to_string(nCount));
            }
        }
    }
}

TEST(ArchiveHostile, NegativeCountsOfAValue) {
    for (std::uint32_t nCount : {0xFFFFFFFFU, 0x80000000U}) {
        SurviveWithinLimits(
            [&] {
                Value value = IntValue(5);
                EXPECT_EQ(LoadFrom(*value, U8(1) + U32(DATA_TYPE_STRING) + U32(nCount) + Bytes(20, 'x')), 1);
                Exercise(*value);
            },
            std::to_string(nCount));
    }
}

TEST(ArchiveHostile, AbsurdCountsOfAGroup) {
    const Bytes entry = SavedString("a") + SavedValue(DATA_TYPE_INT, BytesOf(5));
    for (const Bytes& there : {Bytes{}, entry, entry + SavedString("b") + FromHex("01 0B000000 FFFFFF7F"),
                               entry + U32(0x7FFFFFFF), entry + U32(0xFFFFFFFF)}) {
        SurviveWithinLimits(
            [&] {
                Group group = NewGroup();
                EXPECT_EQ(LoadFrom(*group, U8(1) + U32(0x7FFFFFFF) + there), 0);
                EXPECT_EQ(group->HasValue("a"), !there.empty());
                Exercise(*group);
            },
            std::to_string(there.size()));
    }
}

TEST(ArchiveHostile, AGroupWhoseFileFailsForEverEnds) {
    SurviveWithinLimits(
        [] {
            Channel channel = Loading(U8(1) + U32(0x7FFFFFFF));
            channel.file->FailRead(3, -1, true);
            EXPECT_EQ(NewGroup()->Serialize(channel.Get()), 0);
            EXPECT_LE(channel.file->ReadCalls(), 4);
        },
        "a file that answers -1");
}

TEST(ArchiveHostile, ManyEntriesOfAGroupWithoutContentEnd) {
    // Each entry is an empty name and a refused version: the cheapest entry there is.
    constexpr std::size_t kEntries = 100000;
    SurviveWithinLimits(
        [] {
            Group group = NewGroup();
            EXPECT_EQ(LoadFrom(*group, U8(1) + U32(0x7FFFFFFF) + Bytes(5 * kEntries)), 0);
            std::vector<std::pair<std::string, ETnRobotDataValueType>> names;
            EXPECT_EQ(group->GetAllDataName(names), 1) << "they all have one name; the others are given back";
        },
        "zeros");
}

TEST(ArchiveHostile, AbsurdLengthsOfAClassIdentifier) {
    for (std::uint32_t nLength : {0x7FFFFFFFU, 0xFFFFFFFFU, 0x80000000U, 0x00200000U}) {
        for (std::size_t nThere : {0U, 1U, 20U}) {
            SurviveWithinLimits(
                [&] {
                    Channel channel = Loading(U16(1) + U32(nLength) + Bytes(nThere, 'x'));
                    EXPECT_EQ(channel->ReadMapHeader(), 0);
                    EXPECT_LE(channel.file->LargestRead(), kMiB);
                    PlainObject untouched;
                    CTnRobotObject* pObject = &untouched;
                    EXPECT_EQ(channel->ReadObject(&pObject), 0);
                    EXPECT_EQ(pObject, &untouched);
                },
                std::to_string(nLength));
        }
    }
}

TEST(ArchiveHostile, AbsurdTableSizes) {
    const Bytes files[] = {
        U16(65535),
        U16(65535) + Bytes(20),
        U16(0) + U16(65535),
        U16(0) + U16(65535) + Bytes(20, 0xFF),
        SavedMapHeader({TestNode::kGuid}, {}) + U16(65535),
    };
    for (const Bytes& bytes : files) {
        SurviveWithinLimits(
            [&] {
                Channel channel = Loading(bytes);
                channel->ReadMapHeader();
                Channel second = Loading(bytes);
                Loaded loaded = LoadEverything(second);
                Release(loaded);
            },
            std::to_string(bytes.size()));
    }
    Channel classes = Loading(U16(65535) + Bytes(20));
    EXPECT_EQ(classes->ReadMapHeader(), 0);
    Channel objects = Loading(U16(0) + U16(65535) + Bytes(20, 0xFF));
    EXPECT_EQ(objects->ReadMapHeader(), 0);
}

TEST(ArchiveHostile, FullTablesOfAFileStayWithinLimits) {
    Bytes header = U16(65535);
    header.resize(header.size() + 4U * 65535);  // empty identifiers
    header = header + U16(65535);
    header.resize(header.size() + 10U * 65535);
    SurviveWithinLimits(
        [&] {
            Channel channel = Loading(header + header + ObjectRecord(true, 65534) + ObjectRecord(false, 0));
            EXPECT_EQ(channel->ReadMapHeader(), 1);
            EXPECT_EQ(channel->ReadMapHeader(), 1);
            CTnRobotObject* pObject = nullptr;
            EXPECT_EQ(channel->ReadObject(&pObject), 0);
            EXPECT_EQ(channel->ReadObject(&pObject), 0);
            EXPECT_EQ(pObject, nullptr);
        },
        "two full headers");
}

// Whoever is done with each object before the next one is read gets all of them at one address.
TEST(ArchiveHostile, ManyObjectsThatAreDroppedAtOneAddressEnd) {
    constexpr unsigned int kObjects = 65535;
    Bytes file = SavedMapHeader({OnePlace::s_class.m_lpszClassGuid}, std::vector<SavedObject>(kObjects, {1, 0}));
    for (unsigned int n = 0; n < 2 * kObjects; ++n) {
        file += ObjectRecord(true, n % kObjects);
    }
    file += ObjectRecord(false, 0);
    Channel channel = Loading(file);
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    CTnRobotObject* pObject = nullptr;
    unsigned int nRead = 0;
    const double fSeconds = SecondsFor([&] {
        while (nRead < 2 * kObjects && channel->ReadObject(&pObject) == 1) {
            delete pObject;
            ++nRead;
        }
    });
    EXPECT_EQ(nRead, 2 * kObjects);
    EXPECT_LT(fSeconds, kMostSeconds);
    EXPECT_EQ(channel->ReadObject(&pObject), 0);
    EXPECT_EQ(pObject, nullptr);
}

TEST(ArchiveHostile, TablesBeyondTheFormatAreNotWritten) {
    // Two headers together hold more entries than the counts of one can tell.
    Bytes header = U16(0) + U16(40000);
    header.resize(header.size() + 10U * 40000);
    Channel channel = Loading(header + header);
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    channel->Detach();
    TnRobotPtr<TestFile> file = TestFile::Create();
    ASSERT_TRUE(channel->Attach(file.get(), true));
    EXPECT_EQ(channel->WriteMapHeader(), 0) << "a count that wraps makes a file that cannot be read";
    PlainObject object;
    EXPECT_EQ(channel->WriteObject(&object), 0);
}

TEST(ArchiveHostile, UnknownClassIdentifiersGiveNoObject) {
    const std::string names[] = {kUnknownGuid, "x", std::string(100000, 'g'), std::string("\0\0\0", 3),
                                 std::string(TestNode::kGuid) + std::string(1, '\0') + "tail"};
    for (const std::string& strGuid : names) {
        SurviveWithinLimits(
            [&] {
                Channel channel =
                    Loading(SavedMapHeader({strGuid}, {{1, 0}}) + ObjectRecord(true, 0) + ObjectRecord(false, 0));
                EXPECT_EQ(channel->ReadMapHeader(), 1);
                CTnRobotObject* pObject = nullptr;
                EXPECT_EQ(channel->ReadObject(&pObject), 0);
                EXPECT_EQ(pObject, nullptr);
                EXPECT_EQ(channel->ReadObject(&pObject), 0);
                EXPECT_EQ(pObject, nullptr);
            },
            strGuid.substr(0, 40));
    }
}

TEST(ArchiveHostile, EveryFailingReadEndsWithADocumentedResult) {
    const Bytes good = GoodFile();
    int nReads = 0;
    {
        const Channel channel = Loading(good);
        Loaded loaded = LoadEverything(channel);
        Release(loaded);
        nReads = channel.file->ReadCalls();
    }
    ASSERT_GT(nReads, 50);
    for (long long nAnswer : {0LL, -1LL, TestFile::kShort}) {
        for (bool bFromThenOn : {false, true}) {
            for (int nCall = 1; nCall <= nReads; ++nCall) {
                const Channel channel = Loading(good);
                channel.file->FailRead(nCall, nAnswer, bFromThenOn);
                EXPECT_LT(SecondsFor([&] { SurviveChannel(channel); }), kMostSeconds);
                if (::testing::Test::HasFailure()) {
                    FAIL() << "read " << nCall << " answered " << nAnswer << (bFromThenOn ? " from then on" : "");
                }
            }
        }
    }
    EXPECT_EQ(TestFile::LiveCount(), 0);
}

TEST(ArchiveHostile, AFileThatDeliversByteByByteEnds) {
    const Channel channel = Loading(GoodFile());
    channel.file->LimitReads(1);
    EXPECT_LT(SecondsFor([&] { SurviveChannel(channel); }), kMostSeconds);
}

TEST(ArchiveHostile, EveryFailingWriteEndsWithADocumentedResult) {
    TnRobotPtr<TestNode> parent = TestNode::Create(1);
    TnRobotPtr<TestNode> child = TestNode::Create(2);
    parent->Add(child.get());
    parent->Add(child.get());
    Group group = NewGroup();
    group->SetValue("a", 5);
    group->SetValue("b", "text");
    struct Results {
        int nObject;
        int nReference;
        int nGroup;
        int nText;
        int nHeader;
    };
    const auto store = [&](const Channel& channel) {
        Results results = {};
        results.nObject = channel->WriteObject(parent.get());
        results.nReference = channel->WriteObject(child.get());
        results.nGroup = group->Serialize(channel.Get());
        results.nText = channel->WriteString("the end");
        results.nHeader = channel->WriteMapHeader();
        return results;
    };
    const Channel complete = Storing();
    const Results good = store(complete);
    EXPECT_EQ(good.nObject + good.nReference + good.nGroup + good.nText + good.nHeader, 5);
    for (int nCall = 1; nCall <= complete.file->WriteCalls(); ++nCall) {
        const Channel channel = Storing();
        channel.file->FailWrite(nCall, true);
        const Results results = store(channel);
        EXPECT_EQ(results.nGroup, 1) << "a group does not look at its writes";
        EXPECT_EQ(results.nHeader, 0) << nCall;
        // Once the writes fail nothing checked succeeds any more.
        EXPECT_LE(results.nReference, results.nObject) << nCall;
        EXPECT_LE(results.nText, results.nReference) << nCall;
        EXPECT_EQ(channel.file->Content(),
                  Bytes(complete.file->Content().begin(),
                        complete.file->Content().begin() + static_cast<std::ptrdiff_t>(channel.file->Content().size())))
            << "what was written is the beginning of the whole";
    }
    EXPECT_EQ(parent->References(), 1);
    EXPECT_EQ(child->References(), 3);
}

TEST(ArchiveHostile, EveryChangeOfADeepGraphStaysWithinLimits) {
    constexpr int kNodes = 300;
    Bytes file = U16(1) + U32(36) + FromText(TolerantNode::kGuid) + U16(kNodes) + Bytes(10U * kNodes);
    for (int i = 0; i < kNodes; ++i) {
        file += ObjectRecord(true, static_cast<unsigned int>(i)) + SavedNode(i, i + 1 < kNodes ? 1 : 0);
    }
    std::mt19937 random(31);
    for (int i = 0; i < RandomTries(300); ++i) {
        Bytes changed = file;
        for (int nChange = 0; nChange < 3; ++nChange) {
            changed[random() % changed.size()] = static_cast<unsigned char>(random() % 5);
        }
        const double dSeconds = SecondsFor([&] {
            Channel channel = Loading(changed);
            channel->ReadMapHeader();
            CTnRobotObject* pObject = nullptr;
            EXPECT_TRUE(IsResult(channel->ReadObject(&pObject)));
            if (pObject != nullptr) {
                Dispose()(pObject);
            }
        });
        EXPECT_LT(dSeconds, kMostSeconds);
    }
}
