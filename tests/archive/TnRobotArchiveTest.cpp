#include "TnRobotKernel/archive.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/Archives.h"
#include "support/Sanitizers.h"
#include "support/TestObjects.h"

using namespace tntest;

namespace {

using Object = std::unique_ptr<CTnRobotObject>;

// Objects and files of a test must all be gone at its end.
class Archive : public ::testing::Test {
protected:
    ~Archive() override {
        EXPECT_EQ(LiveObject::Count(), 0);
        EXPECT_EQ(TestFile::LiveCount(), 0);
    }
};

using ArchiveStrings = Archive;
using ArchiveWriting = Archive;
using ArchiveReading = Archive;
using ArchiveTables = Archive;
using ArchiveLimits = Archive;

class ArchiveDepth : public Archive {
protected:
    void SetUp() override {
        if (kThreadSanitizer) {
            GTEST_SKIP() << kKeepsEveryStack;
        }
    }
};

// The identity under which the archive saves an object.
std::uint64_t IdentityOf(CTnRobotObject* pObject) {
    return reinterpret_cast<std::uint64_t>(pObject);
}

// A class table with the node classes and a table of so many nodes.
Bytes NodeHeader(unsigned int nNodes, const char* lpszGuid = TestNode::kGuid) {
    std::vector<SavedObject> objects;
    for (unsigned int i = 0; i < nNodes; ++i) {
        objects.push_back({0xDEADBEEF00000000ULL + i, 0});
    }
    return SavedMapHeader({lpszGuid}, objects);
}

// Reads one object that must be a node; the caller owns what comes back.
TnRobotPtr<TestNode> ReadNode(ITnRobotArchive& archive) {
    CTnRobotObject* pObject = nullptr;
    EXPECT_EQ(archive.ReadObject(&pObject), 1);
    return tn::Adopt(dynamic_cast<TestNode*>(pObject));
}

}  // namespace

TEST_F(Archive, IsCreatedDetachedWithOneReference) {
    ITnRobotArchive* pArchive = nullptr;
    EXPECT_EQ(TnCreateRobotArchive(&pArchive), 1);
    EXPECT_FALSE(pArchive->IsStoring());
    EXPECT_FALSE(pArchive->IsLoading());
    EXPECT_EQ(pArchive->Release(), 0);
}

TEST_F(Archive, HasTheDirectionOfItsAttachment) {
    TnRobotPtr<TestFile> file = TestFile::Create();
    TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
    EXPECT_TRUE(archive->Attach(file.get(), true));
    EXPECT_TRUE(archive->IsStoring());
    EXPECT_FALSE(archive->IsLoading());
    archive->Detach();
    EXPECT_FALSE(archive->IsStoring());
    EXPECT_FALSE(archive->IsLoading());
    EXPECT_TRUE(archive->Attach(file.get(), false));
    EXPECT_FALSE(archive->IsStoring());
    EXPECT_TRUE(archive->IsLoading());
}

TEST_F(Archive, HoldsAReferenceToItsFile) {
    TnRobotPtr<TestFile> file = TestFile::Create();
    TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
    EXPECT_TRUE(archive->Attach(file.get(), true));
    EXPECT_EQ(file->References(), 2);
    archive->Detach();
    EXPECT_EQ(file->References(), 1);
    archive->Detach();
    EXPECT_EQ(file->References(), 1);
    EXPECT_TRUE(archive->Attach(file.get(), true));
    archive.reset();
    EXPECT_EQ(file->References(), 1) << "the archive's end detaches";
}

TEST_F(Archive, RefusesASecondFileAndKeepsTheFirst) {
    TnRobotPtr<TestFile> first = TestFile::Create();
    TnRobotPtr<TestFile> second = TestFile::Create();
    TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
    EXPECT_FALSE(archive->Attach(nullptr, true));
    EXPECT_FALSE(archive->IsStoring());
    EXPECT_TRUE(archive->Attach(first.get(), true));
    EXPECT_FALSE(archive->Attach(second.get(), false));
    EXPECT_FALSE(archive->Attach(first.get(), false));
    EXPECT_FALSE(archive->Attach(nullptr, false));
    EXPECT_TRUE(archive->IsStoring());
    EXPECT_EQ(second->References(), 1);
    EXPECT_EQ(first->References(), 2);
    EXPECT_EQ(archive->Write("x", 1), 1);
    EXPECT_EQ(first->Content(), FromText("x"));
}

TEST_F(Archive, ForwardsRawWritesAndReads) {
    Channel storing = Storing();
    EXPECT_EQ(storing->Write("abc", 3), 1);
    EXPECT_EQ(storing.file->Content(), FromText("abc"));
    storing.file->FailWrite(2);
    EXPECT_EQ(storing->Write("d", 1), 0);

    Channel loading = Loading(FromText("abcdef"));
    char szRead[8] = {};
    EXPECT_EQ(loading->Read(szRead, 4), 4);
    EXPECT_STREQ(szRead, "abcd");
    EXPECT_EQ(loading->Read(szRead, 4), 2);
    EXPECT_EQ(loading->Read(szRead, 4), 0);
    loading.file->FailRead(4, -1);
    EXPECT_EQ(loading->Read(szRead, 4), -1);
}

TEST_F(Archive, ForwardsFlush) {
    Channel channel = Storing();
    channel->Flush();
    EXPECT_EQ(channel.file->FlushCalls(), 1);
    channel->Detach();
    channel->Flush();
    EXPECT_EQ(channel.file->FlushCalls(), 1);
}

TEST_F(Archive, DetachedAnswersFailureAndDoesNothing) {
    TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
    char szRead[4] = {'k', 'e', 'p', 't'};
    EXPECT_EQ(archive->Write("x", 1), 0);
    EXPECT_EQ(archive->Read(szRead, 4), -1);
    EXPECT_EQ(std::string(szRead, 4), "kept");
    EXPECT_EQ(archive->WriteString("x"), 0);
    EXPECT_EQ(archive->WriteString(""), 0);
    TnRobotPtr<TestNode> node = TestNode::Create(1);
    EXPECT_EQ(archive->WriteObject(node.get()), 0);
    EXPECT_EQ(archive->WriteObject(nullptr), 0);
    CTnRobotObject* pObject = node.get();
    EXPECT_EQ(archive->ReadObject(&pObject), 0);
    EXPECT_EQ(pObject, node.get());
    EXPECT_EQ(archive->WriteMapHeader(), 0);
    EXPECT_EQ(archive->ReadMapHeader(), 1) << "reading nothing succeeds";
    archive->Flush();
    archive->Detach();
}

TEST_F(ArchiveStrings, AreWrittenWithTheirCountAndZero) {
    const struct {
        const char* lpszText;
        const char* lpszHex;
    } rows[] = {
        {"", "00000000"},
        {"a", "02000000 6100"},
        {"abc", "04000000 61626300"},
        {"\xC3\xA4\n", "04000000 C3A40A00"},
    };
    for (const auto& row : rows) {
        Channel storing = Storing();
        EXPECT_EQ(storing->WriteString(row.lpszText), 1);
        EXPECT_EQ(storing.file->Content(), FromHex(row.lpszHex)) << row.lpszText;

        Channel loading = Loading(FromHex(row.lpszHex));
        int nLength = 4711;
        int nError = 77;
        const char* lpszRead = loading->ReadString(nLength, &nError);
        EXPECT_EQ(nError, 0);
        EXPECT_EQ(static_cast<std::size_t>(nLength), row.lpszText[0] == '\0' ? 0 : std::strlen(row.lpszText) + 1);
        if (row.lpszText[0] == '\0') {
            EXPECT_EQ(lpszRead, nullptr) << "an empty text comes back as null";
        } else {
            EXPECT_STREQ(lpszRead, row.lpszText);
        }
        EXPECT_EQ(loading.file->Position(), loading.file->Content().size());
    }
}

TEST_F(ArchiveStrings, OfAnyLengthMakeTheRoundTrip) {
    Channel storing = Storing();
    const std::size_t lengths[] = {1, 255, 256, 65535, 65536, 3000000};
    for (std::size_t nLength : lengths) {
        EXPECT_EQ(storing->WriteString(std::string(nLength, 'r').c_str()), 1);
    }
    Channel loading = Loading(storing.file->Content());
    for (std::size_t nLength : lengths) {
        int nRead = 0;
        int nError = 77;
        const char* lpszRead = loading->ReadString(nRead, &nError);
        ASSERT_NE(lpszRead, nullptr);
        EXPECT_EQ(nError, 0);
        EXPECT_EQ(nRead, static_cast<int>(nLength) + 1);
        EXPECT_TRUE(lpszRead == std::string(nLength, 'r'));
    }
}

TEST_F(ArchiveStrings, ANullTextIsRefused) {
    Channel channel = Storing();
    EXPECT_EQ(channel->WriteString(nullptr), 0);
    EXPECT_TRUE(channel.file->Content().empty());
}

TEST_F(ArchiveStrings, FailWhenAWriteFails) {
    for (int nCall = 1; nCall <= 2; ++nCall) {
        Channel channel = Storing();
        channel.file->FailWrite(nCall);
        EXPECT_EQ(channel->WriteString("abc"), 0) << nCall;
        EXPECT_EQ(channel.file->WriteCalls(), nCall) << "nothing is written after the failure";
    }
    Channel channel = Storing();
    channel.file->FailWrite(2);
    EXPECT_EQ(channel->WriteString(""), 1) << "an empty text is one write";
    EXPECT_EQ(channel.file->WriteCalls(), 1);
}

TEST_F(ArchiveStrings, FailWhenAReadFails) {
    for (long long nAnswer : {0LL, -1LL}) {
        for (int nCall = 1; nCall <= 2; ++nCall) {
            Channel channel = Loading(SavedString("abc"));
            channel.file->FailRead(nCall, nAnswer, true);
            int nLength = 0;
            int nError = 77;
            EXPECT_EQ(channel->ReadString(nLength, &nError), nullptr);
            EXPECT_EQ(nError, -1);
            Channel again = Loading(SavedString("abc"));
            again.file->FailRead(nCall, nAnswer, true);
            EXPECT_EQ(again->ReadString(nLength, nullptr), nullptr) << "the error pointer may be null";
        }
    }
}

TEST_F(ArchiveStrings, AcceptANullErrorPointer) {
    Channel channel = Loading(SavedString("abc") + SavedString(""));
    int nLength = 0;
    EXPECT_STREQ(channel->ReadString(nLength, nullptr), "abc");
    EXPECT_EQ(channel->ReadString(nLength, nullptr), nullptr);
    EXPECT_EQ(nLength, 0);
}

TEST_F(ArchiveStrings, AShortButPositiveReadIsASuccess) {
    // The count's missing bytes are zero, whatever the caller's length was before.
    Channel channel = Loading(FromHex("02"));
    int nLength = 0x7F7F7F7F;
    int nError = 77;
    EXPECT_EQ(channel->ReadString(nLength, &nError), nullptr);
    EXPECT_EQ(nError, -1) << "two characters are announced and none is there";

    Channel zero = Loading(FromHex("00"));
    nLength = 0x7F7F7F7F;
    EXPECT_EQ(zero->ReadString(nLength, &nError), nullptr);
    EXPECT_EQ(nError, 0);
    EXPECT_EQ(nLength, 0);

    // The text's missing characters are zero too.
    Channel cut = Loading(FromHex("05000000") + FromText("ab"));
    const char* lpszRead = cut->ReadString(nLength, &nError);
    EXPECT_EQ(nError, 0);
    ASSERT_NE(lpszRead, nullptr);
    EXPECT_EQ(nLength, 5);
    EXPECT_EQ(std::string(lpszRead, 5), std::string("ab\0\0\0", 5));
}

TEST_F(ArchiveStrings, ATextThatIsCutShortHidesTheOneBefore) {
    Channel channel = Loading(SavedString("0123456789") + FromHex("08000000") + FromText("ab"));
    int nLength = 0;
    int nError = 77;
    EXPECT_STREQ(channel->ReadString(nLength, &nError), "0123456789");
    const char* lpszRead = channel->ReadString(nLength, &nError);
    ASSERT_NE(lpszRead, nullptr);
    EXPECT_EQ(std::string(lpszRead, 8), std::string("ab\0\0\0\0\0\0", 8));
}

TEST_F(ArchiveStrings, ATextWithoutItsZeroIsFollowedByOne) {
    Channel channel = Loading(FromHex("03000000") + FromText("abc") + FromText("def"));
    int nLength = 0;
    int nError = 77;
    EXPECT_STREQ(channel->ReadString(nLength, &nError), "abc");
    EXPECT_EQ(nLength, 3);
    EXPECT_EQ(channel.file->Position(), 7u);
}

TEST_F(ArchiveStrings, MayHoldZeros) {
    Channel channel = Loading(FromHex("04000000 61006200"));
    int nLength = 0;
    int nError = 77;
    const char* lpszRead = channel->ReadString(nLength, &nError);
    ASSERT_NE(lpszRead, nullptr);
    EXPECT_EQ(std::string(lpszRead, 4), std::string("a\0b\0", 4));
}

TEST_F(ArchiveStrings, WithoutAFileTakeTheLengthFromTheCaller) {
    TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
    int nLength = 0;
    int nError = 77;
    EXPECT_EQ(archive->ReadString(nLength, &nError), nullptr);
    EXPECT_EQ(nError, 0);
    EXPECT_EQ(nLength, 0);
    nLength = 5;
    nError = 77;
    const char* lpszRead = archive->ReadString(nLength, &nError);
    EXPECT_EQ(nError, 0);
    EXPECT_EQ(nLength, 5);
    ASSERT_NE(lpszRead, nullptr);
    EXPECT_EQ(std::string(lpszRead, 5), std::string(5, '\0'));
    EXPECT_NE(archive->ReadString(nLength, nullptr), nullptr);
}

TEST_F(ArchiveStrings, StayValidUntilTheNextOne) {
    Channel channel = Loading(SavedString("abc") + U32(77));
    int nLength = 0;
    const char* lpszRead = channel->ReadString(nLength, nullptr);
    std::uint32_t nNumber = 0;
    channel->Read(&nNumber, 4);
    channel->Detach();
    EXPECT_STREQ(lpszRead, "abc");
}

TEST_F(ArchiveWriting, ANullObjectIsOneZeroByteYetReportedAsFailure) {
    Channel channel = Storing();
    EXPECT_EQ(channel->WriteObject(nullptr), 0);
    EXPECT_EQ(channel.file->Content(), FromHex("00"));
}

TEST_F(ArchiveWriting, AnObjectIsWrittenOnceInFull) {
    TnRobotPtr<TestNode> node = TestNode::Create(0x01020304);
    Channel channel = Storing();
    EXPECT_EQ(channel->WriteObject(node.get()), 1);
    EXPECT_EQ(channel.file->TakeNew(), FromHex("01 01 0000  04030201 00000000"));
    EXPECT_EQ(channel->WriteObject(node.get()), 1);
    EXPECT_EQ(channel.file->TakeNew(), FromHex("01 00 0000"));
    TnRobotPtr<TestNode> other = TestNode::Create(5);
    EXPECT_EQ(channel->WriteObject(other.get()), 1);
    EXPECT_EQ(channel.file->TakeNew(), FromHex("01 01 0100  05000000 00000000"));
    EXPECT_EQ(channel->WriteObject(node.get()), 1);
    EXPECT_EQ(channel.file->TakeNew(), FromHex("01 00 0000"));
    EXPECT_EQ(node->References(), 1) << "the archive holds no reference to what it has seen";
}

TEST_F(ArchiveWriting, ObjectsAreNumberedInOrderOfFirstAppearance) {
    TnRobotPtr<TestNode> parent = TestNode::Create(1);
    TnRobotPtr<TestNode> left = TestNode::Create(2);
    TnRobotPtr<TestNode> right = TestNode::Create(3);
    parent->Add(left.get());
    parent->Add(right.get());
    parent->Add(left.get());
    left->Add(right.get());
    Channel channel = Storing();
    EXPECT_EQ(channel->WriteObject(parent.get()), 1);
    EXPECT_EQ(channel.file->Content(), ObjectRecord(true, 0) + SavedNode(1, 3) +      //
                                           ObjectRecord(true, 1) + SavedNode(2, 1) +  //
                                           ObjectRecord(true, 2) + SavedNode(3, 0) +  //
                                           ObjectRecord(false, 2) + ObjectRecord(false, 1));
}

TEST_F(ArchiveWriting, ARingEndsAtTheFirstObjectMetAgain) {
    TnRobotPtr<TestNode> first = TestNode::Create(1);
    TnRobotPtr<TestNode> second = TestNode::Create(2);
    first->Add(second.get());
    second->Add(first.get());
    Channel channel = Storing();
    EXPECT_EQ(channel->WriteObject(first.get()), 1);
    EXPECT_EQ(channel.file->Content(), ObjectRecord(true, 0) + SavedNode(1, 1) +      //
                                           ObjectRecord(true, 1) + SavedNode(2, 1) +  //
                                           ObjectRecord(false, 0));
    first->DropChildren();
}

TEST_F(ArchiveWriting, AnObjectMayReferToItself) {
    TnRobotPtr<TestNode> node = TestNode::Create(1);
    node->Add(node.get());
    Channel channel = Storing();
    EXPECT_EQ(channel->WriteObject(node.get()), 1);
    EXPECT_EQ(channel.file->Content(), ObjectRecord(true, 0) + SavedNode(1, 1) + ObjectRecord(false, 0));
    node->DropChildren();
}

TEST_F(ArchiveWriting, PassesTheObjectsOwnResultOn) {
    for (int nAnswer : {0, 1}) {
        EmptyObject object(&EmptyObject::s_class, nAnswer);
        Channel channel = Storing();
        EXPECT_EQ(channel->WriteObject(&object), nAnswer);
        EXPECT_EQ(channel.file->Content(), FromHex("01 01 0000"));
    }
}

TEST_F(ArchiveWriting, AnObjectThatCannotBeSavedFailsAfterItsRecord) {
    MuteObject object;
    Channel channel = Storing();
    EXPECT_EQ(channel->WriteObject(&object), 0);
    EXPECT_EQ(channel.file->TakeNew(), FromHex("01 01 0000"));
    EXPECT_EQ(channel->WriteObject(&object), 1) << "a reference needs no saving";
    EXPECT_EQ(channel.file->TakeNew(), FromHex("01 00 0000"));
}

TEST_F(ArchiveWriting, EveryFailingWriteIsReported) {
    // present, new, index, number, count
    for (int nCall = 1; nCall <= 5; ++nCall) {
        TnRobotPtr<TestNode> node = TestNode::Create(1);
        Channel channel = Storing();
        channel.file->FailWrite(nCall);
        EXPECT_EQ(channel->WriteObject(node.get()), 0) << nCall;
        EXPECT_EQ(channel.file->WriteCalls(), nCall) << "nothing is written after the failure";
        channel.file->TakeNew();
        // The object is in the table once its index has been chosen, which is before it is written.
        EXPECT_EQ(channel->WriteObject(node.get()), 1) << nCall;
        EXPECT_EQ(channel.file->TakeNew(), nCall < 3 ? ObjectRecord(true, 0) + SavedNode(1, 0) : ObjectRecord(false, 0))
            << nCall;
    }
    for (int nCall = 1; nCall <= 3; ++nCall) {
        TnRobotPtr<TestNode> node = TestNode::Create(1);
        Channel channel = Storing();
        ASSERT_EQ(channel->WriteObject(node.get()), 1);
        channel.file->FailWrite(5 + nCall);
        EXPECT_EQ(channel->WriteObject(node.get()), 0) << "reference record, write " << nCall;
    }
}

TEST_F(ArchiveTables, ObjectsOfOneClassShareItsEntry) {
    TnRobotPtr<TestNode> first = TestNode::Create(1);
    TnRobotPtr<TestNode> second = TestNode::Create(2);
    Channel channel = Storing();
    ASSERT_EQ(channel->WriteObject(first.get()), 1);
    ASSERT_EQ(channel->WriteObject(second.get()), 1);
    channel.file->TakeNew();
    EXPECT_EQ(channel->WriteMapHeader(), 1);
    EXPECT_EQ(channel.file->TakeNew(), FromHex("0100"
                                               "24000000") +
                                           FromText(TestNode::kGuid) + FromHex("0200") + U64(IdentityOf(first.get())) +
                                           FromHex("0000") + U64(IdentityOf(second.get())) + FromHex("0000"));
}

TEST_F(ArchiveTables, ClassesAreNumberedInOrderOfFirstAppearance) {
    PlainObject plain;
    TnRobotPtr<TestNode> node = TestNode::Create(1);
    TnRobotPtr<TolerantNode> tolerant = TolerantNode::Create(2);
    Channel channel = Storing();
    CTnRobotObject* const objects[] = {node.get(), &plain, tolerant.get(), &plain};
    for (CTnRobotObject* pObject : objects) {
        ASSERT_EQ(channel->WriteObject(pObject), 1);
    }
    channel.file->TakeNew();
    EXPECT_EQ(channel->WriteMapHeader(), 1);
    EXPECT_EQ(channel.file->TakeNew(),
              SavedMapHeader({TestNode::kGuid, PlainObject::kGuid, TolerantNode::kGuid},
                             {{IdentityOf(node.get()), 0}, {IdentityOf(&plain), 1}, {IdentityOf(tolerant.get()), 2}}));
}

TEST_F(ArchiveTables, AClassIdentifierMayBeEmpty) {
    STnRuntimeClass unnamed = {"", nullptr, nullptr, nullptr};
    EmptyObject object(&unnamed);
    Channel channel = Storing();
    ASSERT_EQ(channel->WriteObject(&object), 1);
    channel.file->TakeNew();
    EXPECT_EQ(channel->WriteMapHeader(), 1);
    EXPECT_EQ(channel.file->TakeNew(), FromHex("0100 00000000 0100") + U64(IdentityOf(&object)) + FromHex("0000"));
}

TEST_F(ArchiveTables, AreEmptyAtFirst) {
    Channel channel = Storing();
    EXPECT_EQ(channel->WriteMapHeader(), 1);
    EXPECT_EQ(channel.file->Content(), FromHex("0000 0000"));
    Channel loading = Loading(FromHex("0000 0000"));
    EXPECT_EQ(loading->ReadMapHeader(), 1);
    EXPECT_EQ(loading.file->Position(), 4u);
}

TEST_F(ArchiveTables, LiveAsLongAsTheArchive) {
    TnRobotPtr<TestNode> node = TestNode::Create(1);
    Channel channel = Storing();
    ASSERT_EQ(channel->WriteObject(node.get()), 1);
    channel->Detach();
    TnRobotPtr<TestFile> second = TestFile::Create();
    ASSERT_TRUE(channel->Attach(second.get(), true));
    EXPECT_EQ(channel->WriteObject(node.get()), 1);
    EXPECT_EQ(second->TakeNew(), FromHex("01 00 0000"));
    EXPECT_EQ(channel->WriteMapHeader(), 1);
    EXPECT_EQ(second->TakeNew(), SavedMapHeader({TestNode::kGuid}, {{IdentityOf(node.get()), 0}}));
}

TEST_F(ArchiveTables, ReadTablesAreWrittenBackAsTheyCame) {
    const Bytes header = SavedMapHeader({TestNode::kGuid, "", "not an identifier"},
                                        {{1, 0}, {0xFFFFFFFFFFFFFFFFULL, 2}, {0, 1}, {0x0123456789ABCDEFULL, 65535}});
    Channel channel = Loading(header);
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    EXPECT_EQ(channel.file->Position(), header.size());
    channel->Detach();
    TnRobotPtr<TestFile> copy = TestFile::Create();
    ASSERT_TRUE(channel->Attach(copy.get(), true));
    EXPECT_EQ(channel->WriteMapHeader(), 1);
    EXPECT_EQ(copy->Content(), header);
}

TEST_F(ArchiveTables, OnlyGrow) {
    const Bytes first = SavedMapHeader({PlainObject::kGuid}, {{1, 0}});
    const Bytes second = SavedMapHeader({TestNode::kGuid}, {{2, 1}, {3, 0}});
    Channel channel = Loading(first + second + ObjectRecord(true, 1) + SavedNode(7, 0) +  //
                              ObjectRecord(true, 2) + U8(8) + ObjectRecord(true, 0) + U8(9));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    TnRobotPtr<TestNode> node = ReadNode(*channel.Get());
    ASSERT_NE(node, nullptr) << "the second header's first object has index 1, its class index 1";
    EXPECT_EQ(node->Number(), 7);
    for (unsigned char byExpected : {static_cast<unsigned char>(8), static_cast<unsigned char>(9)}) {
        CTnRobotObject* pObject = nullptr;
        ASSERT_EQ(channel->ReadObject(&pObject), 1);
        Object object(pObject);
        ASSERT_NE(dynamic_cast<PlainObject*>(pObject), nullptr);
        EXPECT_EQ(dynamic_cast<PlainObject*>(pObject)->Value(), byExpected);
    }
}

TEST_F(ArchiveTables, WhatWasReadIsKnownWhenWriting) {
    Channel channel = Loading(NodeHeader(2) + ObjectRecord(true, 1) + SavedNode(7, 0));
    ASSERT_EQ(channel->ReadMapHeader(), 1);
    TnRobotPtr<TestNode> node = ReadNode(*channel.Get());
    ASSERT_NE(node, nullptr);
    channel->Detach();
    TnRobotPtr<TestFile> file = TestFile::Create();
    ASSERT_TRUE(channel->Attach(file.get(), true));
    EXPECT_EQ(channel->WriteObject(node.get()), 1);
    EXPECT_EQ(file->TakeNew(), FromHex("01 00 0100"));
    TnRobotPtr<TestNode> fresh = TestNode::Create(8);
    EXPECT_EQ(channel->WriteObject(fresh.get()), 1);
    EXPECT_EQ(file->TakeNew(), ObjectRecord(true, 2) + SavedNode(8, 0));
    EXPECT_EQ(channel->WriteMapHeader(), 1);
    const Bytes header = file->TakeNew();
    const auto identity = [&header](std::size_t nEntry) {
        std::uint64_t nIdentity = 0;
        std::memcpy(&nIdentity, header.data() + 2 + 4 + 36 + 2 + 10 * nEntry, sizeof(nIdentity));
        return nIdentity;
    };
    ASSERT_EQ(header.size(), 2 + 4 + 36 + 2 + 10u * 3);
    EXPECT_EQ(identity(0), 0xDEADBEEF00000000ULL) << "an object that was not read keeps the number it came with";
    EXPECT_EQ(identity(1), IdentityOf(node.get())) << "one that was read has its own in place of that number";
    EXPECT_EQ(identity(2), IdentityOf(fresh.get()));
}

TEST_F(ArchiveTables, EveryFailingHeaderWriteIsReported) {
    STnRuntimeClass unnamed = {"", nullptr, nullptr, nullptr};
    EmptyObject unnamedObject(&unnamed);
    PlainObject plain;
    const auto prepare = [&] {
        Channel channel = Storing();
        EXPECT_EQ(channel->WriteObject(&plain), 1);
        EXPECT_EQ(channel->WriteObject(&unnamedObject), 1);
        return channel;
    };
    Channel complete = prepare();
    const int nBefore = complete.file->WriteCalls();
    ASSERT_EQ(complete->WriteMapHeader(), 1);
    const int nHeaderWrites = complete.file->WriteCalls() - nBefore;
    EXPECT_GE(nHeaderWrites, 9) << "counts, lengths, one identifier, identities and class indexes";
    for (int nCall = 1; nCall <= nHeaderWrites; ++nCall) {
        Channel channel = prepare();
        channel.file->FailWrite(nBefore + nCall);
        EXPECT_EQ(channel->WriteMapHeader(), 0) << nCall;
        EXPECT_EQ(channel.file->WriteCalls(), nBefore + nCall) << "nothing is written after the failure";
    }
}

TEST_F(ArchiveTables, EveryFailingHeaderReadIsReported) {
    const Bytes header = SavedMapHeader({TestNode::kGuid, "", PlainObject::kGuid}, {{1, 0}, {2, 2}});
    Channel complete = Loading(header);
    ASSERT_EQ(complete->ReadMapHeader(), 1);
    for (long long nAnswer : {0LL, -1LL}) {
        for (int nCall = 1; nCall <= complete.file->ReadCalls(); ++nCall) {
            Channel channel = Loading(header);
            channel.file->FailRead(nCall, nAnswer);
            EXPECT_EQ(channel->ReadMapHeader(), 0) << nCall;
            EXPECT_EQ(channel.file->ReadCalls(), nCall) << "nothing is read after the failure";
        }
    }
}

TEST_F(ArchiveTables, AFailedHeaderReadKeepsWhatItHadRead) {
    Bytes header = SavedMapHeader({TestNode::kGuid}, {{1, 0}, {2, 0}});
    header.resize(header.size() - 10);  // the second object is missing
    Channel channel = Loading(header);
    EXPECT_EQ(channel->ReadMapHeader(), 0);
    channel->Detach();
    TnRobotPtr<TestFile> file = TestFile::Create(ObjectRecord(true, 0) + SavedNode(7, 0));
    ASSERT_TRUE(channel->Attach(file.get(), false));
    TnRobotPtr<TestNode> node = ReadNode(*channel.Get());
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->Number(), 7);
}

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
    ASSERT_EQ(root->Children().size(), 2u);
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
    ASSERT_EQ(first->Children().size(), 1u);
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
    ASSERT_EQ(root->Children().size(), 4u);
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
        tn::Adopt(dynamic_cast<TestNode*>(pObject)).reset();
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
    ASSERT_EQ(read->Children().size(), 1u);
    EXPECT_EQ(read->Children()[0]->Number(), 8);
}

namespace {

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
    EXPECT_EQ(header.size(), 2 + 4 + 36 + 2 + 10u * kMostObjects);
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
    EXPECT_EQ(channel.file->Content().size(), 12u * kDeepest);

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
    EXPECT_EQ(saved.size(), NodeHeader(kDeepest).size() + 8u * kDeepest + 1);

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
