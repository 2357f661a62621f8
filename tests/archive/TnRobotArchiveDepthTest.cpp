// How many objects and classes an archive takes, and how deep they may nest.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "archive/ArchiveTest.h"
#include "support/processes/Sanitizers.h"

using namespace tntest;

namespace {

using ArchiveLimits = Archive;

class ArchiveDepth : public Archive {
protected:
    void SetUp() override {
        if (kThreadSanitizer) {
            GTEST_SKIP() << kKeepsEveryStack;
        }
    }
};

constexpr unsigned int kMostObjects = 65535;
constexpr int kDeepest = 4096;

// A chain of nodes, each the only child of the one before.
TnRobotPtr<TestNode> Chain(int nNodes) {
    TnRobotPtr<TestNode> head = TestNode::Create(nNodes);
    TestNode* pTail = head.get();
    for (int i = 1; i < nNodes; ++i) {
        TnRobotPtr<TestNode> next = TestNode::Create(nNodes - i);
        pTail->Add(next.get());
        pTail = next.get();
    }
    return head;
}

// The same chain as it is saved, header included.
Bytes SavedChain(int nNodes) {
    Bytes bytes = NodeHeader(static_cast<unsigned int>(nNodes));
    for (int i = 0; i < nNodes; ++i) {
        bytes += ObjectRecord(true, static_cast<unsigned int>(i)) + SavedNode(nNodes - i, i + 1 < nNodes ? 1 : 0);
    }
    return bytes;
}

}  // namespace

TEST_F(ArchiveLimits, SixtyFiveThousandFiveHundredAndThirtyFiveObjectsFit) {
    std::vector<std::unique_ptr<EmptyObject>> objects;
    Channel channel = Storing();
    for (unsigned int i = 0; i < kMostObjects; ++i) {
        objects.push_back(std::make_unique<EmptyObject>());
        ASSERT_EQ(channel->WriteObject(objects.back().get()), 1) << i;
    }
    const Bytes written = channel.file->TakeNew();
    EXPECT_EQ(Bytes(written.end() - 4, written.end()), ObjectRecord(true, 65534));

    EmptyObject oneTooMany;
    EXPECT_EQ(channel->WriteObject(&oneTooMany), 0);
    EXPECT_EQ(channel.file->TakeNew(), Bytes{}) << "nothing is written of an object that does not fit";
    EXPECT_EQ(channel->WriteObject(&oneTooMany), 0);
    EXPECT_EQ(channel->WriteObject(objects[0].get()), 1) << "those that are known can still be referred to";
    EXPECT_EQ(channel.file->TakeNew(), ObjectRecord(false, 0));
    EXPECT_EQ(channel->WriteObject(objects.back().get()), 1);
    EXPECT_EQ(channel.file->TakeNew(), ObjectRecord(false, 65534));

    ASSERT_EQ(channel->WriteMapHeader(), 1);
    const Bytes header = channel.file->TakeNew();
    EXPECT_EQ(header.size(), 2 + 4 + 36 + 2 + 10U * kMostObjects);
    Channel loading = Loading(header + written);
    ASSERT_EQ(loading->ReadMapHeader(), 1);
    std::vector<Object> read;
    for (unsigned int i = 0; i < kMostObjects; ++i) {
        CTnRobotObject* pObject = nullptr;
        ASSERT_EQ(loading->ReadObject(&pObject), 1) << i;
        read.emplace_back(pObject);
    }
}

TEST_F(ArchiveLimits, AClassThatDoesNotFitIsRefused) {
    std::vector<std::string> classes;
    for (unsigned int i = 0; i < kMostObjects; ++i) {
        classes.push_back(std::to_string(i));
    }
    Channel channel = Loading(SavedMapHeader(classes, {}));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    channel->Detach();
    TnRobotPtr<TestFile> file = TestFile::Create();
    ASSERT_TRUE(channel->Attach(file.get(), true));
    PlainObject unknown;
    EXPECT_EQ(channel->WriteObject(&unknown), 0);
    EXPECT_EQ(file->TakeNew(), Bytes{});
    STnRuntimeClass last = {"65534", nullptr, nullptr, nullptr};
    EmptyObject known(&last);
    EXPECT_EQ(channel->WriteObject(&known), 1) << "a class that is in the table needs no room";
    EXPECT_EQ(file->TakeNew(), ObjectRecord(true, 0));
}

TEST_F(ArchiveDepth, WritingNestsFourThousandAndNinetySixDeep) {
    TnRobotPtr<TestNode> deepest = Chain(kDeepest);
    Channel channel = Storing();
    EXPECT_EQ(channel->WriteObject(deepest.get()), 1);
    EXPECT_EQ(channel.file->Content().size(), 12U * kDeepest);

    TnRobotPtr<TestNode> tooDeep = Chain(kDeepest + 1);
    Channel failing = Storing();
    EXPECT_EQ(failing->WriteObject(tooDeep.get()), 0);
    // The archive is as usable afterwards as before.
    TnRobotPtr<TestNode> shallow = TestNode::Create(1);
    EXPECT_EQ(failing->WriteObject(shallow.get()), 1);
}

TEST_F(ArchiveDepth, ReadingNestsFourThousandAndNinetySixDeep) {
    Channel channel = Loading(SavedChain(kDeepest));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    {
        TnRobotPtr<TestNode> deepest = ReadNode(*channel.Get());
        ASSERT_NE(deepest, nullptr);
        EXPECT_EQ(LiveObject::Count(), kDeepest);
    }
    EXPECT_EQ(LiveObject::Count(), 0);

    Channel failing = Loading(SavedChain(kDeepest + 1));
    ASSERT_EQ(failing->ReadMapHeader(), 1);
    CTnRobotObject* pObject = nullptr;
    EXPECT_EQ(failing->ReadObject(&pObject), 0);
    EXPECT_EQ(pObject, nullptr);
    EXPECT_EQ(LiveObject::Count(), 0);
}

namespace {

// A list as many classes save it: the next entry first, then what the entry itself has. Nobody looks
// at the result of the next one, since the null at the end is reported as a failure.
class ListEntry final : public ITnUnknown, public CTnRobotObject, public ITnRobotSerialize {
public:
    static constexpr const char* kGuid = "11111111-AAAA-4AAA-8AAA-0000000000A1";
    static STnRuntimeClass s_class;

    explicit ListEntry(int nPayload = 0) : m_nPayload(nPayload) {}
    ~ListEntry() override {
        if (m_pNext != nullptr) {
            m_pNext->Release();
        }
    }

    static TnRobotPtr<ListEntry> List(int nEntries) {
        TnRobotPtr<ListEntry> head;
        for (int i = 0; i < nEntries; ++i) {
            auto* pEntry = new ListEntry(i);
            pEntry->m_pNext = head.detach();
            head.attach(pEntry);
        }
        return head;
    }

    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }
    int Serialize(ITnRobotArchive* pArchive) override {
        if (pArchive->IsStoring()) {
            pArchive->WriteObject(m_pNext);
            return pArchive->Write(&m_nPayload, sizeof(m_nPayload)) != 0 ? 1 : 0;
        }
        CTnRobotObject* pNext = nullptr;
        pArchive->ReadObject(&pNext);
        m_pNext = dynamic_cast<ListEntry*>(pNext);
        return pArchive->Read(&m_nPayload, sizeof(m_nPayload)) == sizeof(m_nPayload) ? 1 : 0;
    }

    LiveObject m_live;
    int m_nPayload;
    ListEntry* m_pNext = nullptr;
};

STnRuntimeClass ListEntry::s_class = {ListEntry::kGuid, []() -> CTnRobotObject* { return new ListEntry; }, nullptr,
                                      nullptr};
const TN_REG_CLASS s_registerListEntry(&ListEntry::s_class);

// What a list is saved as, tables included.
Bytes SavedList(Channel& channel) {
    const Bytes body = channel.file->TakeNew();
    EXPECT_EQ(channel->WriteMapHeader(), 1);
    return channel.file->TakeNew() + body;
}

}  // namespace

TEST_F(ArchiveDepth, AListOfTheGreatestDepthKeepsItsLastNullAndItsPayloads) {
    Channel storing = Storing();
    ASSERT_EQ(storing->WriteObject(ListEntry::List(kDeepest).get()), 1);
    const Bytes saved = SavedList(storing);
    EXPECT_EQ(saved.size(), NodeHeader(kDeepest).size() + 8U * kDeepest + 1);

    Channel loading = Loading(saved);
    ASSERT_EQ(loading->ReadMapHeader(), 1);
    CTnRobotObject* pObject = nullptr;
    ASSERT_EQ(loading->ReadObject(&pObject), 1);
    const TnRobotPtr<ListEntry> head = tn::Adopt(dynamic_cast<ListEntry*>(pObject));
    int nExpected = kDeepest;
    for (const ListEntry* p = head.get(); p != nullptr; p = p->m_pNext) {
        ASSERT_EQ(p->m_nPayload, --nExpected);
    }
    EXPECT_EQ(nExpected, 0);
    EXPECT_EQ(loading.file->Position(), saved.size());
}

TEST_F(ArchiveDepth, AReferenceIsWrittenAndReadAtTheGreatestDepth) {
    TnRobotPtr<TestNode> shared = TestNode::Create(7);
    TnRobotPtr<TestNode> chain = Chain(kDeepest);
    TestNode* pLast = chain.get();
    while (!pLast->Children().empty()) {
        pLast = pLast->Children()[0];
    }
    pLast->Add(shared.get());
    Channel storing = Storing();
    ASSERT_EQ(storing->WriteObject(shared.get()), 1);
    ASSERT_EQ(storing->WriteObject(chain.get()), 1);

    Channel loading = Loading(SavedList(storing));
    ASSERT_EQ(loading->ReadMapHeader(), 1);
    const TnRobotPtr<TestNode> readShared = ReadNode(*loading.Get());
    const TnRobotPtr<TestNode> readChain = ReadNode(*loading.Get());
    ASSERT_NE(readChain, nullptr);
    EXPECT_EQ(readShared->References(), 2);
}

// Classes that do not look at the results of their inner objects must not make a success of it.
TEST_F(ArchiveDepth, WhatIsTooDeepFailsTheOutermostCallWhateverIsMadeOfIt) {
    Channel storing = Storing();
    EXPECT_EQ(storing->WriteObject(ListEntry::List(kDeepest + 1).get()), 0);
    EXPECT_EQ(storing->WriteObject(ListEntry::List(1).get()), 1) << "the next call begins anew";

    Bytes tolerant = NodeHeader(kDeepest + 2, TolerantNode::kGuid);
    for (int i = 0; i < kDeepest + 1; ++i) {
        tolerant += ObjectRecord(true, static_cast<unsigned int>(i)) + SavedNode(i, 1);
    }
    tolerant += U8(0) + ObjectRecord(true, kDeepest + 1) + SavedNode(77, 0);
    Channel loading = Loading(tolerant);
    ASSERT_EQ(loading->ReadMapHeader(), 1);
    PlainObject untouched;
    CTnRobotObject* pObject = &untouched;
    EXPECT_EQ(loading->ReadObject(&pObject), 0);
    EXPECT_EQ(pObject, nullptr);
    EXPECT_EQ(LiveObject::Count(), 1) << "untouched";
}

TEST_F(ArchiveDepth, WhatWasReadWithinSomethingTooDeepCountsAsUnread) {
    // The root tolerates: its first child loads, its second is too deep.
    Bytes bytes = NodeHeader(kDeepest + 2, TolerantNode::kGuid) + ObjectRecord(true, 0) + SavedNode(0, 2) +
                  ObjectRecord(true, 1) + SavedNode(1, 0);
    for (int i = 2; i < kDeepest + 2; ++i) {
        bytes += ObjectRecord(true, static_cast<unsigned int>(i)) + SavedNode(i, 1);
    }
    Channel loading = Loading(bytes);
    ASSERT_EQ(loading->ReadMapHeader(), 1);
    CTnRobotObject* pObject = nullptr;
    EXPECT_EQ(loading->ReadObject(&pObject), 0);
    EXPECT_EQ(LiveObject::Count(), 0);
    loading->Detach();
    TnRobotPtr<TestFile> reference = TestFile::Create(ObjectRecord(false, 1));
    ASSERT_TRUE(loading->Attach(reference.get(), false));
    EXPECT_EQ(loading->ReadObject(&pObject), 0);
    EXPECT_EQ(pObject, nullptr);
}

TEST_F(ArchiveDepth, AFileThatNestsSixtyThousandDeepFails) {
    Channel channel = Loading(SavedChain(60000));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    CTnRobotObject* pObject = nullptr;
    EXPECT_EQ(channel->ReadObject(&pObject), 0);
    EXPECT_EQ(LiveObject::Count(), 0);
    // Further down in the file the depth counts from the start again.
    channel->Detach();
    TnRobotPtr<TestFile> shallow = TestFile::Create(ObjectRecord(true, 59999) + SavedNode(1, 0));
    ASSERT_TRUE(channel->Attach(shallow.get(), false));
    EXPECT_NE(ReadNode(*channel.Get()), nullptr);
}
