// Object graphs, the map header, streams and memory files when what lies below them fails.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "TnRobotKernel/archive.h"
#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/values.h"
#include "support/fakes/EveryFault.h"
#include "support/fakes/TestObjects.h"
#include "support/fakes/TestSurfaces.h"
#include "support/objects/Archives.h"
#include "support/objects/Files.h"
#include "support/objects/Memory.h"
#include "support/objects/Values.h"

using namespace tntest;

namespace {

constexpr unsigned int kStreamBlock = 1048576;

using ObjectFailure = FaultTest;
using MemoryFailure = FaultTest;

TnRobotPtr<ITnRobotArchive> ArchiveOver(TestFile& file, bool bStoring) {
    TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
    EXPECT_TRUE(archive->Attach(&file, bStoring));
    return archive;
}

// A parent that names one child twice, and a grandchild.
struct Family {
    TnRobotPtr<TestNode> parent = TestNode::Create(1);
    TnRobotPtr<TestNode> child = TestNode::Create(2);
    TnRobotPtr<TestNode> grandchild = TestNode::Create(3);

    Family() {
        child->Add(grandchild.get());
        parent->Add(child.get());
        parent->Add(child.get());
    }

    void ExpectUntouched() const {
        EXPECT_EQ(parent->References(), 1);
        EXPECT_EQ(child->References(), 3);
        EXPECT_EQ(grandchild->References(), 2);
    }
};

// Header, then the objects.
Bytes SavedFamily(const Family& family) {
    const Channel channel = Storing();
    EXPECT_EQ(channel->WriteObject(family.parent.get()), 1);
    EXPECT_EQ(channel->WriteObject(family.grandchild.get()), 1);
    const Bytes body = channel.file->TakeNew();
    EXPECT_EQ(channel->WriteMapHeader(), 1);
    return channel.file->TakeNew() + body;
}

TnRobotPtr<TestNode> AsNode(CTnRobotObject* pObject) {
    return tn::Adopt(dynamic_cast<TestNode*>(pObject));
}

void ExpectFamily(const TestNode& parent) {
    EXPECT_EQ(parent.Number(), 1);
    ASSERT_EQ(parent.Children().size(), 2U);
    const TestNode* pChild = parent.Children()[0];
    EXPECT_EQ(parent.Children()[1], pChild);
    EXPECT_EQ(pChild->Number(), 2);
    EXPECT_EQ(pChild->References(), 2);
    ASSERT_EQ(pChild->Children().size(), 1U);
    EXPECT_EQ(pChild->Children()[0]->Number(), 3);
}

void ExpectChildrenAlive(const TestNode& node) {
    for (const TestNode* pChild : node.Children()) {
        EXPECT_TRUE(pChild == nullptr || pChild->References() > 0);
    }
}

TnRobotPtr<ITnRobotMemDataStream> MakeStream(ITnRobotMemoryBlockPool& pool) {
    ITnRobotMemDataStream* pStream = nullptr;
    EXPECT_EQ(TnCreateRobotMemDataStream(&pool, &pStream), 1);
    return tn::Adopt(pStream);
}

Bytes ContentOf(ITnRobotMemDataStream& stream) {
    Bytes content;
    unsigned int nSize = 0;
    stream.BeginReadData();
    while (const unsigned char* pPiece = stream.ReadData(nSize)) {
        content.insert(content.end(), pPiece, pPiece + nSize);
    }
    stream.EndReadData();
    return content;
}

// Saves a stream's pieces. @return whether every write was reported as done.
bool SaveStream(ITnRobotMemDataStream& stream, ITnRobotFile& file) {
    bool bSaved = true;
    unsigned int nSize = 0;
    stream.BeginReadData();
    for (const unsigned char* p = stream.ReadData(nSize); p != nullptr && bSaved; p = stream.ReadData(nSize)) {
        bSaved = file.Write(p, nSize) != 0;
    }
    stream.EndReadData();
    return bSaved;
}

// Appends what a file delivers to a stream, up to its first short answer. @return that answer.
long long LoadStream(ITnRobotMemDataStream& stream, ITnRobotFile& file) {
    Bytes piece(300000);
    const auto nMost = static_cast<long long>(piece.size());
    long long nRead = nMost;
    while (nRead == nMost) {
        nRead = file.Read(piece.data(), nMost);
        const auto nArrived = static_cast<unsigned int>(std::max(nRead, 0LL));
        EXPECT_EQ(stream.WriteData(piece.data(), nArrived), 0);
    }
    return nRead;
}

}  // namespace

TEST_F(ObjectFailure, WritingAGraphReportsEveryFailure) {
    const Family family;
    const Census before = Census::Take();
    FailEveryCall(FileCall::kWrite, {}, [&](TestFile& file, const FileFault& fault) {
        const TnRobotPtr<ITnRobotArchive> archive = ArchiveOver(file, true);
        const int nResult = archive->WriteObject(family.parent.get());
        EXPECT_EQ(nResult, file.FailedCalls() == 0 || fault.nAnswer == -1 ? 1 : 0);
        family.ExpectUntouched();
        if (!fault.bFromThenOn && file.FailedCalls() != 0) {
            const TnRobotPtr<TestNode> other = TestNode::Create(9);
            EXPECT_EQ(archive->WriteObject(other.get()), 1) << "the archive can be used again";
            EXPECT_EQ(archive->WriteMapHeader(), 1);
        }
    });
    EXPECT_EQ(Census::Take(), before);
}

// A file that was cut by a failure gives its reader no object, also none of those within it.
TEST_F(ObjectFailure, AGraphWrittenHalfwayIsNotRead) {
    const Family family;
    FailEveryCall(FileCall::kWrite, {}, [&](TestFile& file, const FileFault& fault) {
        Channel storing = Storing();
        EXPECT_EQ(storing->WriteObject(family.parent.get()), 1);
        storing.file->TakeNew();
        EXPECT_EQ(storing->WriteMapHeader(), 1);
        const Bytes header = storing.file->TakeNew();

        ArchiveOver(file, true)->WriteObject(family.parent.get());
        if (!fault.bFromThenOn) {
            return;
        }
        const Channel loading = Loading(header + file.Content());
        ASSERT_EQ(loading->ReadMapHeader(), 1);
        CTnRobotObject* pObject = nullptr;
        const int nResult = loading->ReadObject(&pObject);
        if (file.FailedCalls() == 0) {
            ASSERT_EQ(nResult, 1);
            ExpectFamily(*AsNode(pObject));
        } else if (nResult == 0) {
            EXPECT_EQ(pObject, nullptr);
        } else {
            // The last write lost nothing but zero bytes: a short read is a success.
            ASSERT_EQ(fault.nAnswer, TestFile::kShort);
            ExpectFamily(*AsNode(pObject));
        }
    });
}

TEST_F(ObjectFailure, ReadingAGraphGivesAllOfItOrNothing) {
    const Family family;
    const Bytes saved = SavedFamily(family);
    FailEveryCall(FileCall::kRead, saved, [&](TestFile& file, const FileFault& fault) {
        const TnRobotPtr<ITnRobotArchive> archive = ArchiveOver(file, false);
        const int nHeader = archive->ReadMapHeader();
        CTnRobotObject* pObject = nullptr;
        const int nResult = archive->ReadObject(&pObject);
        const TnRobotPtr<TestNode> parent = AsNode(pObject);
        EXPECT_EQ(nResult, parent != nullptr ? 1 : 0);
        const bool bFailed = file.FailedCalls() != 0 && fault.nAnswer != TestFile::kShort;
        if (bFailed && nHeader == 1) {
            EXPECT_EQ(nResult, 0);
        } else if (file.FailedCalls() == 0) {
            EXPECT_EQ(nHeader, 1);
            ASSERT_EQ(nResult, 1);
            ExpectFamily(*parent);
        }
        // The archive goes on with a file that works.
        archive->Detach();
        const TnRobotPtr<TestFile> text = TestFile::Create(U32(2) + FromText("x") + U8(0));
        ASSERT_TRUE(archive->Attach(text.get(), false));
        int nLength = 0;
        EXPECT_STREQ(archive->ReadString(nLength, nullptr), "x");
    });
}

// The parent reads on although its child fails: what was read within the child is gone with it, and
// a later reference to it must not bring it back.
TEST_F(ObjectFailure, WhatWasReadWithinAFailedObjectIsGone) {
    const TnRobotPtr<TolerantNode> parent = TolerantNode::Create(1);
    const TnRobotPtr<TestNode> child = TestNode::Create(2);
    const TnRobotPtr<TestNode> grandchild = TestNode::Create(3);
    child->Add(grandchild.get());
    parent->Add(child.get());
    parent->Add(grandchild.get());
    const Channel storing = Storing();
    ASSERT_EQ(storing->WriteObject(parent.get()), 1);
    const Bytes body = storing.file->TakeNew();
    ASSERT_EQ(storing->WriteMapHeader(), 1);
    const Bytes saved = storing.file->TakeNew() + body;
    FailEveryCall(FileCall::kRead, saved, [&](TestFile& file, const FileFault& fault) {
        const TnRobotPtr<ITnRobotArchive> archive = ArchiveOver(file, false);
        const bool bHeader = archive->ReadMapHeader() == 1;
        // The archive holds no reference: what has been read is kept for as long as it reads on.
        std::array<TnRobotPtr<TestNode>, 2> nodes;
        for (TnRobotPtr<TestNode>& node : nodes) {
            CTnRobotObject* pObject = nullptr;
            const int nResult = archive->ReadObject(&pObject);
            EXPECT_EQ(nResult, pObject != nullptr ? 1 : 0);
            node = AsNode(pObject);
            if (node != nullptr) {
                ExpectChildrenAlive(*node);
            }
        }
        if (bHeader && fault.nAnswer != TestFile::kShort && nodes[0] != nullptr) {
            EXPECT_EQ(nodes[0]->Number(), 1);
        }
        if (file.FailedCalls() == 0) {
            ASSERT_NE(nodes[0], nullptr);
            EXPECT_EQ(nodes[0]->Children().size(), 2U);
            EXPECT_EQ(nodes[1], nullptr) << "the end of the file";
        }
        // A damaged file may let a node name itself.
        for (TnRobotPtr<TestNode>& node : nodes) {
            if (node != nullptr) {
                node->DropChildren();
            }
        }
    });
}

TEST_F(ObjectFailure, WritingTheMapHeaderReportsEveryFailure) {
    const Family family;
    const TnRobotPtr<TolerantNode> other = TolerantNode::Create(4);
    const Channel whole = Storing();
    const auto writeObjects = [&](ITnRobotArchive& archive) {
        return archive.WriteObject(family.parent.get()) + archive.WriteObject(other.get());
    };
    ASSERT_EQ(writeObjects(*whole.archive), 2);
    whole.file->TakeNew();
    ASSERT_EQ(whole->WriteMapHeader(), 1);
    const Bytes header = whole.file->TakeNew();
    FailEveryCall(FileCall::kWrite, {}, [&](TestFile& file, const FileFault& fault) {
        const Channel storing = Storing();
        ASSERT_EQ(writeObjects(*storing.archive), 2);
        storing->Detach();
        ASSERT_TRUE(storing->Attach(&file, true));
        const bool bWritten = storing->WriteMapHeader() == 1;
        EXPECT_EQ(bWritten, file.FailedCalls() == 0 || fault.nAnswer == -1);
        if (fault.nAnswer != -1 && fault.nAnswer != TestFile::kShort) {
            EXPECT_EQ(file.Content(),
                      Bytes(header.begin(), header.begin() + static_cast<std::ptrdiff_t>(file.Content().size())))
                << "nothing is written behind a failure";
        }
        storing->Detach();
        ASSERT_TRUE(storing->Attach(storing.file.get(), true));
        storing.file->TakeNew();
        EXPECT_EQ(storing->WriteMapHeader(), 1) << "the tables are still whole";
        EXPECT_EQ(storing.file->TakeNew(), header);
        storing->Detach();
    });
}

TEST_F(ObjectFailure, ReadingTheMapHeaderReportsEveryFailure) {
    const Family family;
    const Bytes saved = SavedFamily(family);
    FailEveryCall(FileCall::kRead, saved, [&](TestFile& file, const FileFault& fault) {
        const TnRobotPtr<ITnRobotArchive> archive = ArchiveOver(file, false);
        const int nResult = archive->ReadMapHeader();
        if (fault.nAnswer != TestFile::kShort) {
            EXPECT_EQ(nResult, file.FailedCalls() == 0 ? 1 : 0);
        }
        EXPECT_TRUE(archive->IsLoading());
    });
}

TEST_F(ObjectFailure, ShortReadsOfWholeNumbersChangeNothing) {
    const Family family;
    const Bytes saved = SavedFamily(family);
    // Every read is answered in full, but never more than so many bytes at once.
    for (long long nMost = 36; nMost <= 64; ++nMost) {
        const Channel loading = Loading(saved);
        loading.file->LimitReads(nMost);
        ASSERT_EQ(loading->ReadMapHeader(), 1);
        CTnRobotObject* pObject = nullptr;
        ASSERT_EQ(loading->ReadObject(&pObject), 1);
        ExpectFamily(*AsNode(pObject));
        CountInjected();
    }
}

// So pipes and other files without positions do.
TEST_F(ObjectFailure, NothingIsEverPositioned) {
    const Family family;
    const Channel storing = Storing();
    storing.file->Fail({FileCall::kSeek, 1, -1, true});
    const Value value = BlockValue(Bytes(100, 0x42));
    EXPECT_EQ(storing->WriteObject(family.parent.get()), 1);
    EXPECT_EQ(value->Serialize(storing.Get()), 1);
    EXPECT_EQ(storing->WriteMapHeader(), 1);
    EXPECT_EQ(storing.file->SeekCalls(), 0);

    const Bytes saved = SavedFamily(family) + SavedFormOf(*value);
    const Channel loading = Loading(saved);
    loading.file->Fail({FileCall::kSeek, 1, -1, true});
    ASSERT_EQ(loading->ReadMapHeader(), 1);
    // The second one refers to an object within the first.
    std::array<TnRobotPtr<TestNode>, 2> nodes;
    for (TnRobotPtr<TestNode>& node : nodes) {
        CTnRobotObject* pObject = nullptr;
        ASSERT_EQ(loading->ReadObject(&pObject), 1);
        node = AsNode(pObject);
        EXPECT_NE(node, nullptr);
    }
    const Value loaded = IntValue(1);
    EXPECT_EQ(loaded->Serialize(loading.Get()), 1);
    EXPECT_EQ(loading.file->SeekCalls(), 0);
    // The file refuses, so the test would notice.
    EXPECT_EQ(loading.file->Seek(0, ITnRobotFile::SEEK_DIRECT_BEGIN), -1);
    CountInjected(loading.file->FailedCalls());
}

TEST_F(ObjectFailure, AStreamSavedIntoAFailingFileStaysWhole) {
    const HeldPool pool = MakePool();
    const TnRobotPtr<ITnRobotMemDataStream> stream = MakeStream(*pool);
    const Bytes content = Noise(2 * kStreamBlock + 1000, 7);
    ASSERT_EQ(stream->WriteData(content.data(), static_cast<unsigned int>(content.size())), 0);
    FailEveryCall(FileCall::kWrite, {}, [&](TestFile& file, const FileFault& fault) {
        const bool bSaved = SaveStream(*stream, file);
        EXPECT_EQ(bSaved, file.FailedCalls() == 0 || fault.nAnswer == -1);
        EXPECT_EQ(stream->GetTotleLength(), content.size());
        EXPECT_TRUE(ContentOf(*stream) == content);
    });
}

TEST_F(ObjectFailure, AStreamLoadedFromAFailingFileHoldsWhatArrived) {
    const HeldPool pool = MakePool();
    const Bytes content = Noise(2 * kStreamBlock + 1000, 8);
    FailEveryCall(FileCall::kRead, content, [&](TestFile& file, const FileFault& fault) {
        const TnRobotPtr<ITnRobotMemDataStream> stream = MakeStream(*pool);
        const long long nLast = LoadStream(*stream, file);
        EXPECT_EQ(nLast, file.FailedCalls() != 0 ? fault.nAnswer : static_cast<long long>(content.size() % 300000));
        const Bytes arrived(content.begin(), content.begin() + static_cast<std::ptrdiff_t>(file.Position()));
        EXPECT_TRUE(ContentOf(*stream) == arrived);
        stream->Clear();
        EXPECT_EQ(stream->WriteData(content.data(), 10), 0) << "the stream can be used again";
        EXPECT_EQ(ContentOf(*stream), Bytes(content.begin(), content.begin() + 10));
    });
}

TEST_F(MemoryFailure, AFlatMemoryFileOfAnySizeTakesWholePiecesOnly) {
    const Value value = BlockValue(Noise(60, 3));
    const Bytes whole = SavedFormOf(*value);
    for (std::size_t nSize = 1; nSize < whole.size(); ++nSize) {
        SCOPED_TRACE(nSize);
        Bytes memory(nSize, 0xEE);
        const TnRobotPtr<ITnRobotMemFile> file = MakeMemFile();
        ASSERT_TRUE(file->OpenMemFile(memory.data(), static_cast<long long>(nSize), true));
        const TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
        ASSERT_TRUE(archive->Attach(file.get(), true));
        EXPECT_EQ(value->Serialize(archive.get()), 1);
        // Pieces of 1, 4, 4 and 60 bytes; one that does not fit is left out as a whole, and a
        // later one may still fit.
        std::size_t nWritten = 0;
        Bytes expected;
        for (std::size_t nPiece : {1U, 4U, 4U, 60U}) {
            if (expected.size() + nPiece <= nSize) {
                expected.insert(expected.end(), whole.begin() + static_cast<std::ptrdiff_t>(nWritten),
                                whole.begin() + static_cast<std::ptrdiff_t>(nWritten + nPiece));
            }
            nWritten += nPiece;
        }
        EXPECT_EQ(file->GetTotleLen(), static_cast<long long>(expected.size()));
        const Bytes untouched(nSize - expected.size(), 0xEE);
        EXPECT_EQ(memory, expected + untouched);
        EXPECT_EQ(archive->WriteString(std::string(nSize, 'x').c_str()), 0);
        CountInjected();
    }
}

TEST_F(MemoryFailure, AValueFromMemoryThatIsTooShortFailsOrIsEmpty) {
    const Bytes whole = SavedFormOf(*BlockValue(Noise(60, 4)));
    for (std::size_t nSize = 1; nSize < whole.size(); ++nSize) {
        SCOPED_TRACE(nSize);
        Bytes memory(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(nSize));
        const TnRobotPtr<ITnRobotMemFile> file = MakeMemFile();
        ASSERT_TRUE(file->OpenMemFile(memory.data(), static_cast<long long>(nSize), false));
        const TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
        ASSERT_TRUE(archive->Attach(file.get(), false));
        const Value value = IntValue(5);
        // A value whose count did not arrive counts as an empty one: callers rely on it.
        EXPECT_EQ(value->Serialize(archive.get()), nSize == 5 ? 1 : 0);
        const Bytes loaded = SavedFormOf(*value);
        if (nSize < 5) {
            EXPECT_EQ(loaded, SavedFormOf(*IntValue(5)));
        } else {
            const Bytes arrived(memory.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(nSize, 9)),
                                memory.end());
            EXPECT_EQ(Bytes(loaded.begin() + 9, loaded.end()), arrived);
        }
        EXPECT_EQ(file->Read(memory.data(), 1), 0) << "nothing is left";
        CountInjected();
    }
}
