#include "TnRobotKernel/archive.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "archive/ArchiveTest.h"

using namespace tntest;

namespace {

using ArchiveStrings = Archive;
using ArchiveWriting = Archive;
using ArchiveTables = Archive;

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
    EXPECT_EQ(channel.file->Position(), 7U);
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
    EXPECT_EQ(loading.file->Position(), 4U);
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
    ASSERT_EQ(header.size(), 2 + 4 + 36 + 2 + 10U * 3);
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
