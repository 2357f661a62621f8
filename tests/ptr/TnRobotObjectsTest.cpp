// Object graphs in files: what comes back, what is told of what does not, and that nothing of it is gone.

#include "TnRobotKernel/tn/objects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "TnRobotKernel/make.h"
#include "TnRobotKernel/tn/tn.h"
#include "support/bytes/FileBytes.h"
#include "support/fakes/TestObjects.h"
#include "support/objects/Archives.h"
#include "support/processes/Limits.h"
#include "support/processes/Sanitizers.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

namespace {

constexpr int kDeepest = 4096;

// Objects in one file: the tables first, for they are read first.
Bytes Saved(std::initializer_list<CTnRobotObject*> objects) {
    const Channel channel = Storing();
    for (CTnRobotObject* pObject : objects) {
        channel->WriteObject(pObject);
    }
    const Bytes body = channel.file->TakeNew();
    EXPECT_EQ(channel->WriteMapHeader(), 1);
    return channel.file->TakeNew() + body;
}

// An archive that has read the tables.
Channel Reading(Bytes bytes) {
    Channel channel = Loading(std::move(bytes));
    EXPECT_EQ(channel->ReadMapHeader(), 1);
    return channel;
}

// Tables for nObjects nodes of one class.
Bytes Header(unsigned int nObjects, const std::string& strClass = TestNode::kGuid) {
    return SavedMapHeader({strClass}, std::vector<SavedObject>(nObjects, SavedObject{1, 0}));
}

TnRobotPtr<TestNode> Chain(int nNodes) {
    TnRobotPtr<TestNode> head = tn::MakeObject<TestNode>(nNodes);
    TestNode* pTail = head.get();
    for (int i = 1; i < nNodes; ++i) {
        const auto next = tn::MakeObject<TestNode>(nNodes - i);
        pTail->Add(next.get());
        pTail = next.get();
    }
    return head;
}

// Reads one object while it loads, and drops it; then whatever else is there.
class Careless final : public CTnRobotObject, public ITnRobotSerialize, public ITnUnknown {
public:
    static constexpr const char* kGuid = "11111111-AAAA-4AAA-8AAA-0000000000B1";
    static STnRuntimeClass s_class;

    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }
    int Serialize(ITnRobotArchive* pArchive) override {
        if (pArchive->IsStoring()) {
            pArchive->WriteObject(m_first.get());
            return pArchive->WriteObject(m_second.get());
        }
        CTnRobotObject* pObject = nullptr;
        if (pArchive->ReadObject(&pObject) == 1) {
            dynamic_cast<ITnUnknown&>(*pObject).Release();
        }
        m_second = tn::ReadObject<TestNode>(*pArchive, m_reason);
        return 1;
    }

    TnRobotPtr<TestNode> m_first;
    TnRobotPtr<TestNode> m_second;
    std::error_code m_reason;
};

STnRuntimeClass Careless::s_class = {Careless::kGuid, []() -> CTnRobotObject* { return new Careless; }, nullptr,
                                     nullptr};
const TN_REG_CLASS s_registerCareless(&Careless::s_class);

// Answers as it is told when it is saved and loaded, or throws.
class Moody final : public ITnRobotSerialize {
public:
    int Serialize(ITnRobotArchive* pArchive) override {
        unsigned char byMood = 0;
        if (pArchive->IsStoring()) {
            pArchive->Write(&byMood, 1);
        } else {
            pArchive->Read(&byMood, 1);
        }
        if (m_bThrows) {
            throw std::runtime_error("in a bad mood");
        }
        return m_nResult;
    }
    int m_nResult = 1;
    bool m_bThrows = false;
};

class ObjectTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(LiveObject::Count(), 0); }

    // Bytes as a file. @return its path.
    std::string Write(const Bytes& bytes) const {
        WriteBytes(m_strPath, bytes);
        return m_strPath;
    }

    const TempDirectory m_directory;
    const std::string m_strPath = m_directory / "graph.tnr";
};

using ReadingObjects = ObjectTest;
using Graphs = ObjectTest;
using GraphReading = ObjectTest;
using GraphWriting = ObjectTest;

}  // namespace

// ReadObject in front of any archive.

TEST_F(ReadingObjects, EachReaderOfASharedObjectHasAReferenceOfItsOwn) {
    const auto node = tn::MakeObject<TestNode>(5);
    const Channel channel = Reading(Saved({node.get(), node.get()}));
    const auto first = tn::ReadObject<TestNode>(*channel.archive);
    const auto again = tn::ReadObject<TestNode>(*channel.archive);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->Number(), 5);
    EXPECT_EQ(again, first);
    EXPECT_EQ(first->References(), 2);
}

TEST_F(ReadingObjects, ABaseOfTheObjectWillDo) {
    const auto node = tn::MakeObject<TolerantNode>(6);
    const Channel channel = Reading(Saved({node.get()}));
    const TnRobotPtr<TestNode> read = tn::ReadObject<TestNode>(*channel.archive);
    ASSERT_TRUE(read);
    EXPECT_TRUE(read.try_as<TolerantNode>());
}

TEST_F(ReadingObjects, AnObjectOfAnotherTypeIsGivenBack) {
    const auto node = tn::MakeObject<TestNode>(7);
    const auto next = tn::MakeObject<TolerantNode>(8);
    const Channel channel = Reading(Saved({node.get(), next.get()}));
    const int nLive = LiveObject::Count();
    std::error_code ec;
    EXPECT_FALSE(tn::ReadObject<TolerantNode>(*channel.archive, ec));
    EXPECT_EQ(ec, tn::errc::wrong_type);
    EXPECT_EQ(LiveObject::Count(), nLive);
    const auto read = tn::ReadObject<TolerantNode>(*channel.archive, ec);
    ASSERT_TRUE(read) << "the archive goes on after it";
    EXPECT_FALSE(ec);
    EXPECT_EQ(read->Number(), 8);
}

// A well-formed file of somebody else does it.
TEST_F(ReadingObjects, AReferenceToAnObjectThatWasGivenBackIsEmpty) {
    const auto node = tn::MakeObject<TestNode>(7);
    const Channel channel = Reading(Saved({node.get(), node.get(), node.get()}));
    EXPECT_FALSE(tn::ReadObject<TolerantNode>(*channel.archive));
    EXPECT_FALSE(tn::ReadObject<TolerantNode>(*channel.archive));
    EXPECT_FALSE(tn::ReadObject<TestNode>(*channel.archive));
}

TEST_F(ReadingObjects, AReferenceToAnObjectThatTheCallerDroppedIsEmpty) {
    const auto node = tn::MakeObject<TestNode>(7);
    const Channel channel = Reading(Saved({node.get(), node.get()}));
    EXPECT_TRUE(tn::ReadObject<TestNode>(*channel.archive));
    EXPECT_FALSE(tn::ReadObject<TestNode>(*channel.archive));
}

// It cannot be told whether it is new or belongs to an earlier reader, as it does here.
TEST_F(ReadingObjects, AnObjectWithoutACountIsLeftAlone) {
    PlainObject plain(9);
    const Channel channel = Reading(Saved({&plain, &plain}));
    CTnRobotObject* pObject = nullptr;
    ASSERT_EQ(channel->ReadObject(&pObject), 1);
    const std::unique_ptr<CTnRobotObject> owner(pObject);
    std::error_code ec;
    EXPECT_FALSE(tn::ReadObject<TestNode>(*channel.archive, ec));
    EXPECT_EQ(ec, tn::errc::wrong_type);
    EXPECT_EQ(dynamic_cast<PlainObject&>(*owner).Value(), 9);
}

TEST_F(ReadingObjects, ANullIsToldFromWhatCannotBeRead) {
    const auto failing = tn::MakeObject<TestNode>(TestNode::kFailsToLoad);
    const Channel channel = Reading(Saved({nullptr, failing.get()}));
    std::error_code ec = tn::errc::too_deep;
    EXPECT_FALSE(tn::ReadObject<TestNode>(*channel.archive, ec));
    EXPECT_FALSE(ec) << "a null was written";
    EXPECT_FALSE(tn::ReadObject<TestNode>(*channel.archive, ec));
    EXPECT_EQ(ec, tn::errc::file_damaged) << "it fails to load";
    EXPECT_FALSE(tn::ReadObject<TestNode>(*tn::MakeArchive(), ec));
    EXPECT_EQ(ec, tn::errc::file_incomplete) << "it has no file";
    EXPECT_FALSE(tn::ReadObject<TestNode>(*channel.archive)) << "the file ends here";
}

// One root.

TEST_F(Graphs, AGraphComesBackWithWhatItShares) {
    const auto root = tn::MakeObject<TestNode>(1);
    const auto shared = tn::MakeObject<TolerantNode>(2);
    for (int i : {3, 4}) {
        const auto child = tn::MakeObject<TestNode>(i);
        child->Add(shared.get());
        root->Add(child.get());
    }
    ASSERT_TRUE(tn::SaveGraph(m_strPath.c_str(), *root));
    std::error_code ec;
    const auto loaded = tn::LoadGraph<TestNode>(m_strPath.c_str(), ec);
    ASSERT_TRUE(loaded) << ec.message();
    ASSERT_EQ(loaded->Children().size(), 2U);
    TestNode* pShared = loaded->Children()[0]->Children().at(0);
    EXPECT_EQ(pShared->Number(), 2);
    EXPECT_EQ(loaded->Children()[1]->Children().at(0), pShared);
    EXPECT_EQ(pShared->References(), 2) << "the reader holds it no more";
    EXPECT_EQ(m_directory.Names(), std::vector<std::string>{"graph.tnr"});
}

TEST_F(Graphs, AreWrittenAndReadByArchivesToo) {
    const auto root = Chain(3);
    ASSERT_TRUE(tn::SaveGraph(m_strPath.c_str(), *root));
    const Bytes records = ObjectRecord(true, 0) + SavedNode(3, 1) + ObjectRecord(true, 1) + SavedNode(2, 1) +
                          ObjectRecord(true, 2) + SavedNode(1, 0);
    EXPECT_EQ(ReadBytes(m_strPath), SavedMapHeader({TestNode::kGuid}, {{1, 0}, {2, 0}, {3, 0}}) + records);
    const Channel channel = Reading(ReadBytes(m_strPath));
    const auto read = tn::ReadObject<TestNode>(*channel.archive);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->Children().at(0)->Number(), 2);

    const auto loaded = tn::LoadGraph<TestNode>(Write(Saved({root.get()})).c_str());
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->Children().at(0)->Children().at(0)->Number(), 1);
}

TEST_F(Graphs, WhatIsNotTheGraphAloneIsEmptyWithItsReason) {
    const auto node = tn::MakeObject<TestNode>(1);
    const auto failing = tn::MakeObject<TestNode>(TestNode::kFailsToLoad);
    const Bytes good = Saved({node.get()});
    const Bytes unknown = Header(1, kUnknownGuid) + ObjectRecord(true, 0) + SavedNode(1, 0);
    PlainObject plain(3);
    const struct {
        const char* lpszName;
        Bytes file;
        tn::errc eReason;
    } cases[] = {
        {"nothing", {}, tn::errc::file_incomplete},
        {"no object", Header(0), tn::errc::end_of_file},
        {"a null", Saved({nullptr}), tn::errc::wrong_type},
        {"two objects", Saved({node.get(), node.get()}), tn::errc::file_has_more},
        {"another byte", good + U8(0), tn::errc::file_has_more},
        {"cut", Bytes(good.begin(), good.end() - 1), tn::errc::file_incomplete},
        {"an unknown class", unknown, tn::errc::class_not_registered},
        {"a class that gives nothing", Header(1, kGuidThatGivesNull) + ObjectRecord(true, 0),
         tn::errc::class_not_registered},
        {"a class that cannot load", Header(1, MuteObject::kGuid) + ObjectRecord(true, 0), tn::errc::not_serialisable},
        {"a class number without class", SavedMapHeader({}, {{1, 0}}) + ObjectRecord(true, 0), tn::errc::file_damaged},
        {"an object number without object", Header(1) + ObjectRecord(true, 1) + SavedNode(1, 0),
         tn::errc::file_damaged},
        {"an object that does not load", Saved({failing.get()}), tn::errc::object_refused},
        {"a reference to nothing", Header(1) + ObjectRecord(false, 0), tn::errc::not_loaded_yet},
        {"an object without a count", Saved({&plain}), tn::errc::wrong_type},
    };
    for (const auto& entry : cases) {
        SCOPED_TRACE(entry.lpszName);
        std::error_code ec;
        EXPECT_FALSE(tn::LoadGraph<TestNode>(Write(entry.file).c_str(), ec));
        EXPECT_EQ(ec, entry.eReason) << ec.message();
        EXPECT_EQ(LiveObject::Count(), 3) << "node, failing, plain";
    }
    std::error_code ec;
    EXPECT_FALSE(tn::LoadGraph<TolerantNode>(Write(good).c_str(), ec));
    EXPECT_EQ(ec, tn::errc::wrong_type);
    EXPECT_TRUE(tn::LoadGraph<TestNode>(Write(good).c_str(), ec));
    EXPECT_FALSE(ec);
    EXPECT_FALSE(tn::LoadGraph<TestNode>((m_directory / "missing").c_str(), ec));
    EXPECT_EQ(ec, std::errc::no_such_file_or_directory);
    EXPECT_FALSE(tn::LoadGraph<TestNode>(m_directory.Path().c_str(), ec));
    EXPECT_EQ(ec, std::errc::is_a_directory);
    EXPECT_FALSE(tn::LoadGraph<TestNode>(nullptr));
}

TEST_F(Graphs, EveryCutIsEmpty) {
    const auto root = Chain(4);
    root->Children()[0]->Add(root->Children()[0]->Children()[0]);
    ASSERT_TRUE(tn::SaveGraph(m_strPath.c_str(), *root));
    const Bytes whole = ReadBytes(m_strPath);
    for (std::size_t nBytes = 0; nBytes < whole.size(); ++nBytes) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(nBytes));
        std::error_code ec;
        EXPECT_FALSE(tn::LoadGraph<TestNode>(Write(cut).c_str(), ec)) << nBytes;
        EXPECT_TRUE(ec);
    }
}

TEST_F(Graphs, AThousandChangesEndWithAReasonOrAGraph) {
    const auto root = Chain(4);
    const auto tolerant = tn::MakeObject<TolerantNode>(9);
    tolerant->Add(root->Children()[0]);
    root->Add(tolerant.get());
    ASSERT_TRUE(tn::SaveGraph(m_strPath.c_str(), *root));
    const Bytes whole = ReadBytes(m_strPath);
    const int nLive = LiveObject::Count();
    std::mt19937 random(20261122);
    for (int i = 0; i < 1000; ++i) {
        Bytes changed = whole;
        changed[random() % changed.size()] = static_cast<unsigned char>(random() % 3 == 0 ? random() : random() % 4);
        std::error_code ec;
        const bool bLoaded = tn::LoadGraph<TestNode>(Write(changed).c_str(), ec) != nullptr;
        EXPECT_EQ(bLoaded, !ec);
        ASSERT_EQ(LiveObject::Count(), nLive);
    }
}

TEST_F(Graphs, AFullDiskIsFalseAndLeavesTheOldFile) {
    const auto root = Chain(10);
    ASSERT_TRUE(tn::SaveGraph(m_strPath.c_str(), *root));
    const Bytes old = ReadBytes(m_strPath);
    for (std::size_t nRoom = 0; nRoom < old.size(); nRoom += 7) {
        std::error_code ec;
        bool bSaved = true;
        {
            const FileSizeLimit limit(nRoom);
            bSaved = tn::SaveGraph(m_strPath.c_str(), *Chain(20), ec);
        }
        EXPECT_FALSE(bSaved);
        EXPECT_EQ(ec, std::errc::file_too_large) << ec.message();
    }
    EXPECT_EQ(ReadBytes(m_strPath), old);
    EXPECT_EQ(m_directory.Names(), std::vector<std::string>{"graph.tnr"});
}

TEST_F(Graphs, TheGreatestDepthIsWrittenAndReadAndNoMore) {
    if (kThreadSanitizer) {
        GTEST_SKIP() << kKeepsEveryStack;
    }
    std::error_code ec;
    ASSERT_TRUE(tn::SaveGraph(m_strPath.c_str(), *Chain(kDeepest), ec)) << ec.message();
    EXPECT_TRUE(tn::LoadGraph<TestNode>(m_strPath.c_str(), ec)) << ec.message();
    EXPECT_FALSE(tn::SaveGraph(m_strPath.c_str(), *Chain(kDeepest + 1), ec));
    EXPECT_EQ(ec, tn::errc::too_deep);
    Bytes tooDeep = Header(kDeepest + 1, TolerantNode::kGuid);
    for (int i = 0; i < kDeepest + 1; ++i) {
        tooDeep += ObjectRecord(true, static_cast<unsigned int>(i)) + SavedNode(i, 1);
    }
    EXPECT_FALSE(tn::LoadGraph<TestNode>(Write(tooDeep + U8(0)).c_str(), ec));
    EXPECT_EQ(ec, tn::errc::too_deep);
}

// Several objects.

TEST_F(GraphReading, TellsAnObjectANullAnotherTypeAndTheEndApart) {
    const auto node = tn::MakeObject<TestNode>(1);
    tn::ObjectReader reader(Write(Saved({node.get(), nullptr, node.get(), node.get()})).c_str());
    std::error_code ec = tn::errc::too_deep;
    EXPECT_TRUE(reader.Read<TestNode>(ec));
    EXPECT_FALSE(ec);
    EXPECT_FALSE(reader.Read<TestNode>(ec));
    EXPECT_FALSE(ec) << "a null";
    EXPECT_FALSE(reader.Read<TolerantNode>(ec));
    EXPECT_EQ(ec, tn::errc::wrong_type);
    EXPECT_FALSE(reader.Reason());
    EXPECT_TRUE(reader.Read<TestNode>(ec)) << "the next record is where it belongs";
    EXPECT_FALSE(reader.Read<TestNode>(ec));
    EXPECT_EQ(ec, tn::errc::end_of_file);
    EXPECT_TRUE(reader.Finish());
}

TEST_F(GraphReading, HoldsWhatItsCallerHasDropped) {
    const auto node = tn::MakeObject<TestNode>(7);
    tn::ObjectReader reader(Write(Saved({node.get(), node.get(), node.get()})).c_str());
    EXPECT_FALSE(reader.Read<TolerantNode>());
    EXPECT_TRUE(reader.Read<TestNode>());
    const auto again = reader.Read<TestNode>();
    ASSERT_TRUE(again);
    EXPECT_EQ(again->Number(), 7);
    EXPECT_EQ(LiveObject::Count(), 2);
}

TEST_F(GraphReading, HoldsWhatAClassHasDropped) {
    const auto careless = tn::MakeObject<Careless>();
    careless->m_first = tn::MakeObject<TestNode>(5);
    careless->m_second = careless->m_first;
    const auto loaded = tn::LoadGraph<Careless>(Write(Saved({careless.get()})).c_str());
    ASSERT_TRUE(loaded);
    ASSERT_TRUE(loaded->m_second);
    EXPECT_EQ(loaded->m_second->Number(), 5);
    EXPECT_FALSE(loaded->m_reason);
}

TEST_F(GraphReading, WhatWasLoadedWithinAnObjectThatFailedIsHeldToo) {
    // The second node is loaded within the first, which fails: nothing can be read behind it.
    tn::ObjectReader reader(Write(Header(2) + ObjectRecord(true, 0) + SavedNode(TestNode::kFailsToLoad, 1) +
                                  ObjectRecord(true, 1) + SavedNode(2, 0) + ObjectRecord(false, 1))
                                .c_str());
    std::error_code ec;
    EXPECT_FALSE(reader.Read<TestNode>(ec));
    EXPECT_EQ(ec, tn::errc::object_refused);
    EXPECT_EQ(LiveObject::Count(), 1);
    EXPECT_FALSE(reader.Read<TestNode>(ec));
    EXPECT_EQ(ec, tn::errc::object_refused) << "it sticks";
    EXPECT_FALSE(reader.Finish());
}

TEST_F(GraphReading, ReferencesToObjectsWithoutACountAreRefused) {
    PlainObject plain(9);
    tn::ObjectReader reader(Write(Saved({&plain, &plain})).c_str());
    std::error_code ec;
    EXPECT_FALSE(reader.Read<TestNode>(ec));
    EXPECT_EQ(ec, tn::errc::wrong_type);
    EXPECT_EQ(LiveObject::Count(), 1) << "the one that was read is gone";
    EXPECT_FALSE(reader.Read<TestNode>(ec));
    EXPECT_EQ(ec, tn::errc::not_loaded_yet);

    tn::ObjectReader raw(Write(Saved({&plain})).c_str());
    CTnRobotObject* pObject = nullptr;
    ASSERT_EQ(raw.Archive().ReadObject(&pObject), 1);
    const std::unique_ptr<CTnRobotObject> owner(pObject);
    EXPECT_EQ(dynamic_cast<PlainObject&>(*owner).Value(), 9) << "as of every archive it belongs to the caller";
}

TEST_F(GraphReading, ARingComesBackOpenWhereTheClassAllowsIt) {
    const Bytes ring = ObjectRecord(true, 0) + SavedNode(1, 1) + ObjectRecord(false, 0);
    const auto open = tn::LoadGraph<TolerantNode>(Write(Header(1, TolerantNode::kGuid) + ring).c_str());
    ASSERT_TRUE(open);
    EXPECT_EQ(open->Children(), std::vector<TestNode*>{nullptr});
    std::error_code ec;
    EXPECT_FALSE(tn::LoadGraph<TestNode>(Write(Header(1) + ring).c_str(), ec));
    EXPECT_EQ(ec, tn::errc::object_refused);
}

// All objects are held, so a file that makes one number again and again would fill the memory.
TEST_F(GraphReading, ANumberStandsForOneObject) {
    tn::ObjectReader reader(
        Write(Header(2) + ObjectRecord(true, 0) + SavedNode(1, 0) + ObjectRecord(true, 0) + SavedNode(2, 0)).c_str());
    EXPECT_EQ(reader.Read<TestNode>()->Number(), 1);
    std::error_code ec;
    EXPECT_FALSE(reader.Read<TestNode>(ec));
    EXPECT_EQ(ec, tn::errc::file_damaged);
    EXPECT_EQ(LiveObject::Count(), 1) << "no other one was made";
}

TEST_F(GraphReading, LengthsOfAFileAskForNoMemory) {
    for (std::uint32_t nLength : {0x7FFFFFFFU, 0xFFFFFFFFU, 0x40000000U}) {
        const tn::ObjectReader reader(Write(U16(65535) + U32(nLength) + Bytes(20, 'x')).c_str());
        EXPECT_EQ(reader.Reason(), tn::errc::file_incomplete);
    }
    const std::string strLong(100000, 'g');
    std::error_code ec;
    EXPECT_FALSE(tn::LoadGraph<TestNode>(Write(Header(1, strLong) + ObjectRecord(true, 0)).c_str(), ec));
    EXPECT_EQ(ec, tn::errc::class_not_registered);
}

TEST_F(GraphReading, GroupsAndValuesStandBetweenObjects) {
    const auto group = tn::MakeValueDataGroup();
    group->SetValue("cell", "north");
    const auto node = tn::MakeObject<TestNode>(3);
    tn::ObjectWriter writer;
    std::error_code ec = tn::errc::file_damaged;
    EXPECT_TRUE(writer.WriteValues(*group, ec));
    EXPECT_EQ(ec, std::error_code());
    EXPECT_TRUE(writer.Write(node.get()));
    EXPECT_TRUE(writer.WriteValues(*tn::MakeDoubleData(0.25)));
    ASSERT_TRUE(writer.Save(m_strPath.c_str()));

    tn::ObjectReader reader(m_strPath.c_str());
    const auto loaded = tn::MakeValueDataGroup();
    const auto value = tn::MakeBoolData(false);
    ec = tn::errc::file_damaged;
    EXPECT_TRUE(reader.ReadValues(*loaded, ec));
    EXPECT_EQ(ec, std::error_code());
    EXPECT_STREQ(loaded->StringData("cell", nullptr), "north");
    EXPECT_TRUE(reader.Read<TestNode>());
    EXPECT_TRUE(reader.ReadValues(*value));
    EXPECT_EQ(value->DoubleData(nullptr), 0.25);
    EXPECT_TRUE(reader.Finish());
    EXPECT_FALSE(reader.ReadValues(*value, ec));
    EXPECT_EQ(ec, tn::errc::end_of_file);
}

// The group itself answers 1 in all of these.
TEST_F(GraphReading, ValuesThatAreNotThereOrNotUnderstoodSayWhy) {
    const Bytes begin = Header(0) + U8(1) + U32(1) + SavedString("a");
    struct Case {
        const char* lpszName;
        Bytes file;
        tn::errc eReason;
    };
    const Case cases[] = {
        {"nothing", Header(0), tn::errc::file_incomplete},
        {"cut", begin + U8(1) + U32(DATA_TYPE_INT), tn::errc::file_incomplete},
        {"three bytes of an int", begin + SavedValue(DATA_TYPE_INT, Bytes(3, 1)), tn::errc::file_damaged},
        {"a text without its zero", begin + SavedValue(DATA_TYPE_STRING, Bytes(3, 1)), tn::errc::file_damaged},
    };
    for (const Case& entry : cases) {
        SCOPED_TRACE(entry.lpszName);
        tn::ObjectReader reader(Write(entry.file).c_str());
        std::error_code ec;
        EXPECT_FALSE(reader.ReadValues(*tn::MakeValueDataGroup(), ec));
        EXPECT_EQ(ec, entry.eReason) << ec.message();
        EXPECT_EQ(reader.Reason(), entry.eReason);
    }
    tn::ObjectReader missing((m_directory / "missing.tnr").c_str());
    std::error_code ec;
    EXPECT_FALSE(missing.ReadValues(*tn::MakeValueDataGroup(), ec));
    EXPECT_EQ(ec, std::errc::no_such_file_or_directory);
}

TEST_F(GraphReading, ValuesThatRefuseOrThrowEndTheFile) {
    Moody moody;
    {
        tn::ObjectWriter writer;
        ASSERT_TRUE(writer.WriteValues(moody));
        ASSERT_TRUE(writer.Save(m_strPath.c_str()));
    }
    for (const bool bThrows : {false, true}) {
        moody.m_nResult = bThrows ? 1 : 0;
        moody.m_bThrows = bThrows;
        tn::ObjectWriter writer;
        tn::ObjectReader reader(m_strPath.c_str());
        std::error_code ec;
        if (bThrows) {
            EXPECT_THROW(static_cast<void>(writer.WriteValues(moody)), std::runtime_error);
            EXPECT_THROW(static_cast<void>(reader.ReadValues(moody)), std::runtime_error);
        } else {
            EXPECT_FALSE(writer.WriteValues(moody, ec));
            EXPECT_EQ(ec, tn::errc::object_refused);
            EXPECT_FALSE(reader.ReadValues(moody, ec));
            EXPECT_EQ(ec, tn::errc::object_refused);
        }
        EXPECT_FALSE(writer.WriteValues(*tn::MakeIntData(7), ec));
        EXPECT_EQ(ec, tn::errc::object_refused);
        EXPECT_FALSE(writer.Save((m_directory / "other.tnr").c_str()));
        EXPECT_EQ(reader.Reason(), tn::errc::object_refused);
    }
}

TEST_F(GraphReading, ValuesAndTextsMayStandBetweenObjects) {
    tn::ObjectWriter writer;
    const auto node = tn::MakeObject<TestNode>(3);
    ASSERT_TRUE(writer.Write(node.get()));
    ASSERT_EQ(tn::MakeIntData(7)->Serialize(&writer.Archive()), 1);
    ASSERT_EQ(writer.Archive().WriteString("between"), 1);
    ASSERT_TRUE(writer.Write(node.get()));
    ASSERT_TRUE(writer.Write(nullptr));
    ASSERT_TRUE(writer.Save(m_strPath.c_str()));

    tn::ObjectReader reader(m_strPath.c_str());
    const auto first = reader.Read<TestNode>();
    const auto value = tn::MakeIntData(0);
    ASSERT_EQ(value->Serialize(&reader.Archive()), 1);
    EXPECT_EQ(value->IntData(nullptr), 7);
    int nLength = 0;
    EXPECT_STREQ(reader.Archive().ReadString(nLength, nullptr), "between");
    EXPECT_EQ(reader.Read<TestNode>(), first);
    EXPECT_FALSE(reader.Read<TestNode>());
    std::error_code ec;
    EXPECT_TRUE(reader.Finish(ec)) << ec.message();
}

TEST_F(GraphReading, ATextThatIsCutIsNoSuccess) {
    tn::ObjectWriter writer;
    ASSERT_EQ(writer.Archive().WriteString("a text that is cut"), 1);
    ASSERT_TRUE(writer.Save(m_strPath.c_str()));
    Bytes cut = ReadBytes(m_strPath);
    cut.resize(cut.size() - 3);
    tn::ObjectReader reader(Write(cut).c_str());
    int nLength = 0;
    reader.Archive().ReadString(nLength, nullptr);
    std::error_code ec;
    EXPECT_FALSE(reader.Finish(ec));
    EXPECT_EQ(ec, tn::errc::file_incomplete);
}

// A memory file does not say that more was asked for than it has.
TEST_F(GraphReading, ATextThatIsCutIsNoSuccessInAMemoryFileEither) {
    tn::ObjectWriter writer;
    ASSERT_EQ(writer.Archive().WriteString("a text that is cut"), 1);
    ASSERT_TRUE(writer.Save(m_strPath.c_str()));
    Bytes bytes = ReadBytes(m_strPath);
    for (std::size_t nCut = 0; nCut < 20; ++nCut) {
        const auto file = tn::MakeMemFile();
        ASSERT_TRUE(file->OpenMemFile(bytes.data(), static_cast<long long>(bytes.size() - nCut), false));
        tn::ObjectReader reader(*file);
        int nLength = 0;
        int nError = 7;
        const char* lpszText = reader.Archive().ReadString(nLength, &nError);
        EXPECT_EQ(nError, nCut == 0 ? 0 : -1) << nCut;
        EXPECT_EQ(lpszText != nullptr, nCut == 0) << nCut;
        std::error_code ec;
        EXPECT_EQ(reader.Finish(ec), nCut == 0) << nCut;
        EXPECT_TRUE(nCut == 0 || ec == tn::errc::file_incomplete) << nCut << ": " << ec.message();
    }
}

TEST_F(GraphReading, AnyFileWillDo) {
    const auto node = tn::MakeObject<TestNode>(1);
    const TnRobotPtr<TestFile> file = TestFile::Create(Saved({node.get()}));
    tn::ObjectReader reader(*file);
    EXPECT_TRUE(reader.Read<TestNode>());
    EXPECT_TRUE(reader.Finish());
    for (int nCall = 1; nCall <= file->ReadCalls(); ++nCall) {
        for (long long nAnswer : {0LL, -1LL, TestFile::kShort}) {
            const TnRobotPtr<TestFile> failing = TestFile::Create(Saved({node.get()}));
            failing->FailRead(nCall, nAnswer, true);
            tn::ObjectReader other(*failing);
            std::error_code ec;
            const auto read = other.Read<TestNode>(ec);
            EXPECT_EQ(static_cast<bool>(read), !ec);
        }
    }
}

TEST_F(GraphWriting, HoldsWhatItHasWritten) {
    tn::ObjectWriter writer;
    for (int i = 0; i < 100; ++i) {
        const auto passing = tn::MakeObject<TestNode>(i);
        ASSERT_TRUE(writer.Write(passing.get()));
    }
    EXPECT_EQ(LiveObject::Count(), 100);
    ASSERT_TRUE(writer.Save(m_strPath.c_str()));
    tn::ObjectReader reader(m_strPath.c_str());
    for (int i = 0; i < 100; ++i) {
        const auto read = reader.Read<TestNode>();
        ASSERT_TRUE(read) << i;
        EXPECT_EQ(read->Number(), i);
    }
}

// Nothing keeps them where they are, so the next one may have the same address.
TEST_F(GraphWriting, ObjectsWithoutACountAreWrittenInFullEachTime) {
    tn::ObjectWriter writer;
    for (int nValue : {1, 2, 2}) {
        PlainObject passing(static_cast<unsigned char>(nValue));
        ASSERT_TRUE(writer.Write(&passing));
    }
    ASSERT_TRUE(writer.Save(m_strPath.c_str()));
    const Channel channel = Reading(ReadBytes(m_strPath));
    for (int nExpected : {1, 2, 2}) {
        CTnRobotObject* pObject = nullptr;
        ASSERT_EQ(channel->ReadObject(&pObject), 1);
        const std::unique_ptr<CTnRobotObject> read(pObject);
        EXPECT_EQ(dynamic_cast<PlainObject&>(*read).Value(), nExpected);
    }
}

TEST_F(GraphWriting, AnObjectThatCannotBeWrittenFailsForGood) {
    STnRuntimeClass nameless = {nullptr, nullptr, nullptr, nullptr};
    MuteObject mute;
    EmptyObject unnamed(&nameless);
    EmptyObject refusing(&EmptyObject::s_class, 0);
    const struct {
        CTnRobotObject* pObject;
        tn::errc eReason;
    } cases[] = {{&mute, tn::errc::not_serialisable},
                 {&unnamed, tn::errc::not_serialisable},
                 {&refusing, tn::errc::object_refused}};
    const auto node = tn::MakeObject<TestNode>(1);
    for (const auto& entry : cases) {
        tn::ObjectWriter writer;
        std::error_code ec;
        EXPECT_TRUE(writer.Write(node.get(), ec));
        EXPECT_FALSE(writer.Write(entry.pObject, ec));
        EXPECT_EQ(ec, entry.eReason);
        EXPECT_FALSE(writer.Write(node.get(), ec)) << "nothing more is written";
        EXPECT_EQ(ec, entry.eReason);
        EXPECT_FALSE(writer.Save(m_strPath.c_str(), ec));
        EXPECT_EQ(ec, entry.eReason);
        EXPECT_FALSE(writer.WriteTo(*TestFile::Create()));
    }
    EXPECT_TRUE(m_directory.Names().empty());
}

TEST_F(GraphWriting, AnExceptionFailsItForGood) {
    class Throwing final : public CTnRobotObject, public ITnRobotSerialize {
    public:
        STnRuntimeClass* GetRuntimeClass() override { return &EmptyObject::s_class; }
        int Serialize(ITnRobotArchive* /*pArchive*/) override { throw std::runtime_error("in the middle"); }
    } throwing;
    tn::ObjectWriter writer;
    EXPECT_THROW(static_cast<void>(writer.Write(&throwing)), std::runtime_error);
    std::error_code ec;
    EXPECT_FALSE(writer.Save(m_strPath.c_str(), ec));
    EXPECT_EQ(ec, tn::errc::object_refused);
}

TEST_F(GraphWriting, MoreObjectsThanAFileCanHoldAreRefused) {
    tn::ObjectWriter writer;
    EmptyObject object;
    std::error_code ec;
    int nWritten = 0;
    while (nWritten < 70000 && writer.Write(&object, ec)) {
        ++nWritten;
    }
    EXPECT_EQ(nWritten, 65535);
    EXPECT_EQ(ec, tn::errc::too_many_objects);
}

TEST_F(GraphWriting, EveryFailingWriteIsReported) {
    tn::ObjectWriter writer;
    const auto root = Chain(3);
    ASSERT_TRUE(writer.Write(root.get()));
    const TnRobotPtr<TestFile> whole = TestFile::Create();
    ASSERT_TRUE(writer.WriteTo(*whole));
    for (int nCall = 1; nCall <= whole->WriteCalls(); ++nCall) {
        const TnRobotPtr<TestFile> failing = TestFile::Create();
        failing->FailWrite(nCall);
        EXPECT_FALSE(writer.WriteTo(*failing)) << nCall;
    }
}

TEST(Errors, AllHaveASentenceOfTheirOwn) {
    std::vector<std::string> sentences;
    for (int nReason = 1; nReason <= static_cast<int>(tn::errc::too_many_objects); ++nReason) {
        const std::error_code ec = static_cast<tn::errc>(nReason);
        EXPECT_STREQ(ec.category().name(), "tnrobot");
        sentences.push_back(ec.message());
    }
    sentences.push_back(tn::make_error_code(static_cast<tn::errc>(0)).message());
    std::sort(sentences.begin(), sentences.end());
    EXPECT_EQ(std::adjacent_find(sentences.begin(), sentences.end()), sentences.end());
}
