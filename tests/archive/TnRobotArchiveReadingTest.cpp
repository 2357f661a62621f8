// Reading objects from an archive, whole graphs and damaged ones.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "archive/ArchiveTest.h"

using namespace tntest;

namespace {

using ArchiveReading = Archive;

}  // namespace

TEST_F(ArchiveReading, GivesObjectsBackByClass) {
    TnRobotPtr<TestNode> node = TestNode::Create(7);
    PlainObject plain(9);
    Channel storing = Storing();
    ASSERT_EQ(storing->WriteObject(node.get()), 1);
    ASSERT_EQ(storing->WriteObject(&plain), 1);
    const Bytes objects = storing.file->TakeNew();
    ASSERT_EQ(storing->WriteMapHeader(), 1);
    Channel loading = Loading(storing.file->TakeNew() + objects);
    ASSERT_EQ(loading->ReadMapHeader(), 1);
    TnRobotPtr<TestNode> readNode = ReadNode(*loading.Get());
    ASSERT_NE(readNode, nullptr);
    EXPECT_NE(readNode.get(), node.get());
    EXPECT_EQ(readNode->Number(), 7);
    EXPECT_EQ(readNode->References(), 1) << "the caller owns the creation reference";
    CTnRobotObject* pObject = nullptr;
    ASSERT_EQ(loading->ReadObject(&pObject), 1);
    Object readPlain(pObject);
    ASSERT_NE(dynamic_cast<PlainObject*>(pObject), nullptr);
    EXPECT_EQ(dynamic_cast<PlainObject*>(pObject)->Value(), 9);
}

TEST_F(ArchiveReading, ASharedObjectComesBackOnceWithAReferenceForEachReader) {
    Channel channel = Loading(NodeHeader(1) + ObjectRecord(true, 0) + SavedNode(7, 0) + ObjectRecord(false, 0) +
                              ObjectRecord(false, 0));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    TnRobotPtr<TestNode> first = ReadNode(*channel.Get());
    TnRobotPtr<TestNode> second = ReadNode(*channel.Get());
    EXPECT_EQ(first.get(), second.get());
    EXPECT_EQ(first->References(), 2);
    TnRobotPtr<TestNode> third = ReadNode(*channel.Get());
    EXPECT_EQ(first->References(), 3);
}

TEST_F(ArchiveReading, AnUncountedObjectIsSharedAsItIs) {
    Channel channel = Loading(SavedMapHeader({PlainObject::kGuid}, {{1, 0}}) + ObjectRecord(true, 0) + U8(5) +
                              ObjectRecord(false, 0));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    CTnRobotObject* pFirst = nullptr;
    ASSERT_EQ(channel->ReadObject(&pFirst), 1);
    Object owner(pFirst);
    CTnRobotObject* pSecond = nullptr;
    ASSERT_EQ(channel->ReadObject(&pSecond), 1);
    EXPECT_EQ(pSecond, pFirst);
}

TEST_F(ArchiveReading, GraphsKeepTheirShape) {
    TnRobotPtr<TestNode> parent = TestNode::Create(1);
    TnRobotPtr<TestNode> left = TestNode::Create(2);
    TnRobotPtr<TestNode> shared = TestNode::Create(3);
    parent->Add(left.get());
    parent->Add(shared.get());
    left->Add(shared.get());
    left->Add(shared.get());
    Channel storing = Storing();
    ASSERT_EQ(storing->WriteObject(parent.get()), 1);
    const Bytes objects = storing.file->TakeNew();
    ASSERT_EQ(storing->WriteMapHeader(), 1);
    Channel loading = Loading(storing.file->TakeNew() + objects);
    ASSERT_EQ(loading->ReadMapHeader(), 1);
    TnRobotPtr<TestNode> root = ReadNode(*loading.Get());
    ASSERT_NE(root, nullptr);
    ASSERT_EQ(root->Children().size(), 2U);
    const TestNode* pLeft = root->Children()[0];
    const TestNode* pShared = root->Children()[1];
    EXPECT_EQ(pLeft->Number(), 2);
    EXPECT_EQ(pShared->Number(), 3);
    EXPECT_EQ(pLeft->Children(), (std::vector<TestNode*>{root->Children()[1], root->Children()[1]}));
    EXPECT_EQ(pShared->References(), 3);
    EXPECT_EQ(pLeft->References(), 1);
}

TEST_F(ArchiveReading, ANullObjectIsReportedAsFailureAndLeavesTheOutPointer) {
    Channel channel = Loading(NodeHeader(1) + U8(0) + ObjectRecord(true, 0) + SavedNode(7, 0));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    PlainObject untouched;
    CTnRobotObject* pObject = &untouched;
    EXPECT_EQ(channel->ReadObject(&pObject), 0);
    EXPECT_EQ(pObject, &untouched);
    EXPECT_EQ(ReadNode(*channel.Get())->Number(), 7) << "one byte was consumed";
}

TEST_F(ArchiveReading, AnyNonZeroByteMeansPresentOrNew) {
    Channel channel = Loading(NodeHeader(1) + FromHex("07 09 0000") + SavedNode(7, 0) + FromHex("FF 00 0000"));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    TnRobotPtr<TestNode> first = ReadNode(*channel.Get());
    TnRobotPtr<TestNode> second = ReadNode(*channel.Get());
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first.get(), second.get());
}

TEST_F(ArchiveReading, ATruncatedRecordLeavesTheOutPointer) {
    const Bytes record = FromHex("01 01 0000");
    PlainObject untouched;
    for (std::size_t nBytes = 0; nBytes < 3; ++nBytes) {
        Channel channel =
            Loading(NodeHeader(1) + Bytes(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(nBytes)));
        ASSERT_EQ(channel->ReadMapHeader(), 1);
        CTnRobotObject* pObject = &untouched;
        EXPECT_EQ(channel->ReadObject(&pObject), 0) << nBytes;
        EXPECT_EQ(pObject, &untouched) << nBytes;
    }
}

TEST_F(ArchiveReading, AnIndexThatIsCutShortIsFilledUpWithZero) {
    // One of its two bytes is a success; the object's own bytes are missing then.
    Channel channel = Loading(NodeHeader(1) + FromHex("01 00 00"));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    CTnRobotObject* pObject = nullptr;
    EXPECT_EQ(channel->ReadObject(&pObject), 0) << "entry 0 was not read yet";
    EXPECT_EQ(pObject, nullptr);
}

TEST_F(ArchiveReading, AnIndexBeyondTheTableFails) {
    PlainObject untouched;
    for (unsigned int nNew : {0U, 1U}) {
        for (unsigned int nIndex : {2U, 3U, 32768U, 65534U, 65535U}) {
            Channel channel = Loading(NodeHeader(2) + ObjectRecord(nNew != 0, nIndex) + SavedNode(7, 0));
            ASSERT_EQ(channel->ReadMapHeader(), 1);
            CTnRobotObject* pObject = &untouched;
            EXPECT_EQ(channel->ReadObject(&pObject), 0) << nIndex;
            EXPECT_EQ(pObject, &untouched) << nIndex;
        }
        Channel noTable = Loading(ObjectRecord(nNew != 0, 0) + SavedNode(7, 0));
        CTnRobotObject* pObject = &untouched;
        EXPECT_EQ(noTable->ReadObject(&pObject), 0);
        EXPECT_EQ(pObject, &untouched);
    }
}

TEST_F(ArchiveReading, AClassThatGivesNoObjectFailsWithNull) {
    PlainObject untouched;
    for (const char* lpszGuid : {kUnknownGuid, kGuidWithoutFunction, kGuidThatGivesNull, "",
                                 "00000000-0000-0000-0000-000000000000", "11111111-aaaa-4aaa-8aaa-000000000001"}) {
        Channel channel = Loading(NodeHeader(1, lpszGuid) + ObjectRecord(true, 0) + SavedNode(7, 0));
        ASSERT_EQ(channel->ReadMapHeader(), 1) << lpszGuid;
        CTnRobotObject* pObject = &untouched;
        EXPECT_EQ(channel->ReadObject(&pObject), 0) << lpszGuid;
        EXPECT_EQ(pObject, nullptr) << lpszGuid;
    }
}

TEST_F(ArchiveReading, AClassIndexBeyondTheTableFailsWithNull) {
    PlainObject untouched;
    for (unsigned int nClass : {1U, 2U, 65534U, 65535U}) {
        Channel channel = Loading(SavedMapHeader({TestNode::kGuid}, {{1, nClass}}) + ObjectRecord(true, 0));
        ASSERT_EQ(channel->ReadMapHeader(), 1);
        CTnRobotObject* pObject = &untouched;
        EXPECT_EQ(channel->ReadObject(&pObject), 0) << nClass;
        EXPECT_EQ(pObject, nullptr) << nClass;
    }
}

TEST_F(ArchiveReading, AnObjectThatIsNotSerialisableIsDestroyed) {
    Channel channel = Loading(SavedMapHeader({MuteObject::kGuid}, {{1, 0}}) + ObjectRecord(true, 0));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    PlainObject untouched;
    CTnRobotObject* pObject = &untouched;
    EXPECT_EQ(channel->ReadObject(&pObject), 0);
    EXPECT_EQ(pObject, nullptr);
    EXPECT_EQ(LiveObject::Count(), 1);
}

TEST_F(ArchiveReading, AnObjectThatFailsToLoadIsDestroyed) {
    const Bytes bodies[] = {{}, FromHex("07000000"), SavedNode(TestNode::kFailsToLoad, 0), SavedNode(7, 1)};
    for (const Bytes& body : bodies) {
        Channel channel = Loading(NodeHeader(1) + ObjectRecord(true, 0) + body);
        ASSERT_EQ(channel->ReadMapHeader(), 1);
        PlainObject untouched;
        CTnRobotObject* pObject = &untouched;
        EXPECT_EQ(channel->ReadObject(&pObject), 0);
        EXPECT_EQ(pObject, nullptr);
        EXPECT_EQ(LiveObject::Count(), 1);
    }
}

TEST_F(ArchiveReading, AReferenceToAnObjectNotReadYetFailsWithNull) {
    Channel channel = Loading(NodeHeader(2) + ObjectRecord(false, 1) + ObjectRecord(true, 1) + SavedNode(7, 0) +
                              ObjectRecord(false, 0) + ObjectRecord(false, 1));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    PlainObject untouched;
    CTnRobotObject* pObject = &untouched;
    EXPECT_EQ(channel->ReadObject(&pObject), 0);
    EXPECT_EQ(pObject, nullptr) << "the identity in the file is never handed out";
    TnRobotPtr<TestNode> node = ReadNode(*channel.Get());
    pObject = &untouched;
    EXPECT_EQ(channel->ReadObject(&pObject), 0);
    EXPECT_EQ(pObject, nullptr);
    TnRobotPtr<TestNode> again = ReadNode(*channel.Get());
    EXPECT_EQ(again.get(), node.get());
}

TEST_F(ArchiveReading, TheIdentityOfALiveObjectInAFileMeansNothing) {
    TnRobotPtr<TestNode> mine = TestNode::Create(1);
    Channel channel =
        Loading(SavedMapHeader({TestNode::kGuid}, {{IdentityOf(mine.get()), 0}}) + ObjectRecord(false, 0));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    CTnRobotObject* pObject = nullptr;
    EXPECT_EQ(channel->ReadObject(&pObject), 0);
    EXPECT_EQ(pObject, nullptr);
    EXPECT_EQ(mine->References(), 1);
}

TEST_F(ArchiveReading, ARingComesBackOpen) {
    // The first object counts as read once it has loaded, which is after the reference to it.
    Channel channel =
        Loading(NodeHeader(2, TolerantNode::kGuid) + ObjectRecord(true, 0) + SavedNode(1, 1) + ObjectRecord(true, 1) +
                SavedNode(2, 1) + ObjectRecord(false, 0) + ObjectRecord(false, 0) + ObjectRecord(false, 1));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    TnRobotPtr<TestNode> first = ReadNode(*channel.Get());
    ASSERT_NE(first, nullptr);
    ASSERT_EQ(first->Children().size(), 1U);
    TestNode* pSecond = first->Children()[0];
    ASSERT_NE(pSecond, nullptr);
    EXPECT_EQ(pSecond->Number(), 2);
    EXPECT_EQ(pSecond->Children(), std::vector<TestNode*>{nullptr});
    // Afterwards both can be referred to.
    TnRobotPtr<TestNode> againFirst = ReadNode(*channel.Get());
    TnRobotPtr<TestNode> againSecond = ReadNode(*channel.Get());
    EXPECT_EQ(againFirst.get(), first.get());
    EXPECT_EQ(againSecond.get(), pSecond);
}

TEST_F(ArchiveReading, ARingOfObjectsThatInsistOnTheirChildrenFails) {
    Channel channel = Loading(NodeHeader(2) + ObjectRecord(true, 0) + SavedNode(1, 1) + ObjectRecord(true, 1) +
                              SavedNode(2, 1) + ObjectRecord(false, 0));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    CTnRobotObject* pObject = nullptr;
    EXPECT_EQ(channel->ReadObject(&pObject), 0);
    EXPECT_EQ(pObject, nullptr);
    EXPECT_EQ(LiveObject::Count(), 0);
}

TEST_F(ArchiveReading, WhatLoadedWithinAFailedObjectCountsAsUnreadAgain) {
    // Object 1 loads within object 0, which then fails and takes it along.
    Channel channel = Loading(NodeHeader(2) + ObjectRecord(true, 0) + SavedNode(TestNode::kFailsToLoad, 1) +
                              ObjectRecord(true, 1) + SavedNode(2, 0) +  //
                              ObjectRecord(false, 1) + ObjectRecord(false, 0) + ObjectRecord(true, 1) +
                              SavedNode(3, 0) + ObjectRecord(false, 1));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    CTnRobotObject* pObject = nullptr;
    EXPECT_EQ(channel->ReadObject(&pObject), 0);
    EXPECT_EQ(LiveObject::Count(), 0);
    for (int nEntry : {1, 0}) {
        EXPECT_EQ(channel->ReadObject(&pObject), 0) << "entry " << nEntry;
        EXPECT_EQ(pObject, nullptr) << "entry " << nEntry;
    }
    TnRobotPtr<TestNode> second = ReadNode(*channel.Get());
    TnRobotPtr<TestNode> again = ReadNode(*channel.Get());
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->Number(), 3);
    EXPECT_EQ(again.get(), second.get());
}

TEST_F(ArchiveReading, AFailureDeepInsideForgetsOnlyItsOwnBranch) {
    // 0 tolerates; 1 loads; 2 fails after 3 loaded within it; 1 stays known, 3 does not.
    const Bytes header = SavedMapHeader({TolerantNode::kGuid, TestNode::kGuid}, {{1, 0}, {2, 1}, {3, 1}, {4, 1}});
    Channel channel = Loading(header + ObjectRecord(true, 0) + SavedNode(10, 4) +             //
                              ObjectRecord(true, 1) + SavedNode(11, 0) +                      //
                              ObjectRecord(true, 2) + SavedNode(TestNode::kFailsToLoad, 1) +  //
                              ObjectRecord(true, 3) + SavedNode(13, 0) +                      //
                              ObjectRecord(false, 3) + ObjectRecord(false, 1));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    TnRobotPtr<TestNode> root = ReadNode(*channel.Get());
    ASSERT_NE(root, nullptr);
    ASSERT_EQ(root->Children().size(), 4U);
    ASSERT_NE(root->Children()[0], nullptr);
    EXPECT_EQ(root->Children()[0]->Number(), 11);
    EXPECT_EQ(root->Children()[1], nullptr);
    EXPECT_EQ(root->Children()[2], nullptr);
    EXPECT_EQ(root->Children()[3], root->Children()[0]);
    EXPECT_EQ(root->Children()[0]->References(), 2);
    EXPECT_EQ(LiveObject::Count(), 2);
}

TEST_F(ArchiveReading, AnObjectReadAgainInFullReplacesTheOneBefore) {
    Channel channel = Loading(NodeHeader(1) + ObjectRecord(true, 0) + SavedNode(1, 0) + ObjectRecord(true, 0) +
                              SavedNode(2, 0) + ObjectRecord(false, 0));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    TnRobotPtr<TestNode> first = ReadNode(*channel.Get());
    TnRobotPtr<TestNode> second = ReadNode(*channel.Get());
    TnRobotPtr<TestNode> shared = ReadNode(*channel.Get());
    EXPECT_EQ(first->Number(), 1);
    EXPECT_EQ(second->Number(), 2);
    EXPECT_EQ(shared.get(), second.get());
    EXPECT_EQ(first->References(), 1);
}

TEST_F(ArchiveReading, ARereadThatForgetsNeverHandsOutAnObjectThatIsGone) {
    // Entry 1 is read, read again within the failing entry 0, and gone with it.
    Channel channel = Loading(NodeHeader(2) + ObjectRecord(true, 1) + SavedNode(1, 0) +       //
                              ObjectRecord(true, 0) + SavedNode(TestNode::kFailsToLoad, 1) +  //
                              ObjectRecord(true, 1) + SavedNode(2, 0) + ObjectRecord(false, 1));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    TnRobotPtr<TestNode> first = ReadNode(*channel.Get());
    CTnRobotObject* pObject = nullptr;
    EXPECT_EQ(channel->ReadObject(&pObject), 0);
    EXPECT_EQ(LiveObject::Count(), 1);
    EXPECT_EQ(channel->ReadObject(&pObject), 0);
    EXPECT_EQ(pObject, nullptr);
}

// Whoever drops an object does not know that a file, perhaps a stranger's, refers to it once more.
TEST_F(ArchiveReading, AReferenceToAnObjectThatIsGoneFailsWithNull) {
    const char* const guids[] = {TestNode::kGuid, PlainObject::kGuid};
    for (const char* lpszGuid : guids) {
        SCOPED_TRACE(lpszGuid);
        const Bytes contents = lpszGuid == TestNode::kGuid ? SavedNode(1, 0) : U8(1);
        Channel channel = Loading(NodeHeader(1, lpszGuid) + ObjectRecord(true, 0) + contents + ObjectRecord(false, 0) +
                                  ObjectRecord(true, 0) + contents + ObjectRecord(false, 0));
        ASSERT_EQ(channel->ReadMapHeader(), 1);
        CTnRobotObject* pObject = nullptr;
        ASSERT_EQ(channel->ReadObject(&pObject), 1);
        Object(pObject).reset();
        EXPECT_EQ(channel->ReadObject(&pObject), 0);
        EXPECT_EQ(pObject, nullptr);
        ASSERT_EQ(channel->ReadObject(&pObject), 1) << "it can be read again";
        const Object again(pObject);
        ASSERT_EQ(channel->ReadObject(&pObject), 1);
        EXPECT_EQ(pObject, again.get());
        if (auto* pCounted = dynamic_cast<ITnUnknown*>(pObject)) {
            pCounted->Release();
        }
    }
}

TEST_F(ArchiveReading, ObjectsMayGoOnAnyThreadWhileOthersAreRead) {
    constexpr unsigned int kNodes = 2000;
    Bytes bytes = NodeHeader(kNodes);
    for (unsigned int i = 0; i < kNodes; ++i) {
        bytes += ObjectRecord(true, i) + SavedNode(static_cast<int>(i), 0);
    }
    for (unsigned int i = 0; i < kNodes; ++i) {
        bytes += ObjectRecord(false, i);
    }
    Channel channel = Loading(bytes);
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    std::vector<TnRobotPtr<TestNode>> kept;
    std::vector<TnRobotPtr<TestNode>> dropped;
    for (unsigned int i = 0; i < kNodes; ++i) {
        (i % 2 == 0 ? kept : dropped).push_back(ReadNode(*channel.Get()));
        if (i == kNodes / 2) {
            break;
        }
    }
    std::thread other([&dropped] { dropped.clear(); });
    for (unsigned int i = kNodes / 2 + 1; i < kNodes; ++i) {
        kept.push_back(ReadNode(*channel.Get()));
    }
    other.join();
    for (unsigned int i = 0; i < kNodes; ++i) {
        CTnRobotObject* pObject = nullptr;
        const int nExpected = i % 2 == 0 || i > kNodes / 2 ? 1 : 0;
        ASSERT_EQ(channel->ReadObject(&pObject), nExpected) << i;
        const auto held = tn::Adopt(dynamic_cast<TestNode*>(pObject));
    }
}

TEST_F(ArchiveReading, AnObjectThatWasWrittenAndIsGoneCannotBeReadByReference) {
    Channel channel = Storing();
    TnRobotPtr<TestNode> node = TestNode::Create(1);
    ASSERT_EQ(channel->WriteObject(node.get()), 1);
    const std::uint64_t nIdentity = IdentityOf(node.get());
    node.reset();
    channel.file->TakeNew();
    ASSERT_EQ(channel->WriteMapHeader(), 1);
    EXPECT_EQ(channel.file->TakeNew(), SavedMapHeader({TestNode::kGuid}, {{nIdentity, 0}})) << "as if it were there";
    channel->Detach();
    TnRobotPtr<TestFile> file = TestFile::Create(ObjectRecord(false, 0));
    ASSERT_TRUE(channel->Attach(file.get(), false));
    CTnRobotObject* pObject = nullptr;
    EXPECT_EQ(channel->ReadObject(&pObject), 0);
    EXPECT_EQ(pObject, nullptr);
}

TEST_F(ArchiveReading, ObjectsThatTwoArchivesKnowMayGoWithEither) {
    TnRobotPtr<TestNode> node = TestNode::Create(1);
    Channel lasting = Storing();
    ASSERT_EQ(lasting->WriteObject(node.get()), 1);
    {
        Channel passing = Storing();
        ASSERT_EQ(passing->WriteObject(node.get()), 1);
        Channel between = Storing();
        ASSERT_EQ(between->WriteObject(node.get()), 1);
        passing.archive.reset();
    }
    node.reset();
    lasting->Detach();
    TnRobotPtr<TestFile> file = TestFile::Create(ObjectRecord(false, 0));
    ASSERT_TRUE(lasting->Attach(file.get(), false));
    CTnRobotObject* pObject = nullptr;
    EXPECT_EQ(lasting->ReadObject(&pObject), 0);
}

TEST_F(ArchiveReading, ObjectsTravelThroughMemoryFiles) {
    TnRobotPtr<TestNode> node = TestNode::Create(7);
    node->Add(TestNode::Create(8).get());
    ITnRobotMemFile* pMemFile = nullptr;
    ASSERT_EQ(TnCreateRobotMemFile(&pMemFile), 1);
    TnRobotPtr<ITnRobotMemFile> body(pMemFile, tn::kAdopt);
    ASSERT_TRUE(body->OpenWriteFile(5));
    TnRobotPtr<ITnRobotArchive> writer = MakeArchive();
    ASSERT_TRUE(writer->Attach(body.get(), true));
    ASSERT_EQ(writer->WriteObject(node.get()), 1);
    writer->Detach();
    // The header goes in front, as its readers need it there.
    TnRobotPtr<TestFile> whole = TestFile::Create();
    ASSERT_TRUE(writer->Attach(whole.get(), true));
    ASSERT_EQ(writer->WriteMapHeader(), 1);
    long long nLength = 0;
    body->GetMemData(nullptr, nLength);
    std::vector<char> bytes(static_cast<std::size_t>(nLength));
    body->GetMemData(bytes.data(), nLength);
    ASSERT_EQ(writer->Write(bytes.data(), nLength), 1);

    Channel loading = Loading(whole->Content());
    ASSERT_EQ(loading->ReadMapHeader(), 1);
    TnRobotPtr<TestNode> read = ReadNode(*loading.Get());
    ASSERT_NE(read, nullptr);
    ASSERT_EQ(read->Children().size(), 1U);
    EXPECT_EQ(read->Children()[0]->Number(), 8);
}
