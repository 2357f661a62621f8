// The archive without memory: what has not been read or written whole must not be referred to later.

#include <string>

#include "failure/AllocationScenario.h"
#include "support/fakes/TestObjects.h"
#include "support/objects/Archives.h"
#include "support/objects/Files.h"

namespace tntest {

namespace {

/// Writes into a test file that has grown already and has room, so that only the archive's own memory
/// is refused.
Channel RoomyStoring() {
    Channel channel = Storing();
    for (int i = 0; i < 3; ++i) {
        channel->WriteString(std::string(10000, 'r').c_str());
    }
    channel.file->TakeNew();
    return channel;
}

class TextsAreWrittenAndRead : public AllocationScenario {
public:
    bool Attempt() override {
        int nLength = 0;
        int nError = 0;
        m_lpszRead = m_loading->ReadString(nLength, &nError);
        return nError == 0 && m_storing->WriteString(m_strText.c_str()) == 1;
    }

    void Check(bool bDone) override {
        EXPECT_TRUE(!bDone || m_lpszRead == m_strText);
        Channel again = Loading(SavedString(m_strText));
        int nLength = 0;
        m_loading->Detach();
        EXPECT_TRUE(m_loading->Attach(again.file.get(), false));
        EXPECT_EQ(m_loading->ReadString(nLength, nullptr), m_strText) << "the buffer is usable again";
        m_storing.file->TakeNew();
        EXPECT_EQ(m_storing->WriteString(m_strText.c_str()), 1);
        EXPECT_EQ(m_storing.file->TakeNew(), SavedString(m_strText));
    }

private:
    const std::string m_strText = std::string(5000, 't');
    Channel m_loading = Loading(SavedString(m_strText));
    Channel m_storing = RoomyStoring();
    const char* m_lpszRead = nullptr;
};

/// Two objects of one class and one of another, which refer to each other.
class GraphIsWritten : public AllocationScenario {
public:
    GraphIsWritten() {
        m_parent->Add(m_child.get());
        m_parent->Add(m_child.get());
        m_parent->Add(m_other.get());
    }

    bool Attempt() override { return m_channel->WriteObject(m_parent.get()) == 1; }

    // However far it came: what is written next agrees with the tables that go with it.
    void Check(bool bDone) override {
        EXPECT_EQ(m_parent->References(), 1);
        if (bDone) {
            EXPECT_EQ(m_channel->WriteObject(m_parent.get()), 1);
            m_channel.file->TakeNew();
        }
        TestNode last(77);
        TolerantNode lastOther(88);
        m_channel.file->TakeNew();
        EXPECT_EQ(m_channel->WriteObject(&last), 1);
        EXPECT_EQ(m_channel->WriteObject(&lastOther), 1);
        EXPECT_EQ(m_channel->WriteObject(&last), 1);
        const Bytes body = m_channel.file->TakeNew();
        EXPECT_EQ(m_channel->WriteMapHeader(), 1);
        ExpectBoth(m_channel.file->TakeNew() + body);
    }

private:
    static void ExpectBoth(const Bytes& file) {
        Channel loading = Loading(file);
        EXPECT_EQ(loading->ReadMapHeader(), 1);
        const TnRobotPtr<TestNode> node = Read(loading);
        const TnRobotPtr<TestNode> other = Read(loading);
        const TnRobotPtr<TestNode> again = Read(loading);
        ASSERT_TRUE(node != nullptr && other != nullptr);
        EXPECT_EQ(node->Number(), 77);
        EXPECT_EQ(node->GetRuntimeClass(), &TestNode::s_class);
        EXPECT_EQ(other->Number(), 88);
        EXPECT_EQ(other->GetRuntimeClass(), &TolerantNode::s_class);
        EXPECT_EQ(again, node);
    }

    static TnRobotPtr<TestNode> Read(Channel& loading) {
        CTnRobotObject* pObject = nullptr;
        EXPECT_EQ(loading->ReadObject(&pObject), 1);
        return tn::Adopt(dynamic_cast<TestNode*>(pObject));
    }

    TnRobotPtr<TestNode> m_parent = TestNode::Create(1);
    TnRobotPtr<TestNode> m_child = TestNode::Create(2);
    TnRobotPtr<TolerantNode> m_other = TolerantNode::Create(3);
    Channel m_channel = RoomyStoring();
};

/// A parent with a child that it refers to twice, in a memory file of which the reference to the
/// child is a part of its own.
class GraphIsRead : public AllocationScenario {
public:
    GraphIsRead()
        : m_header(SavedMapHeader({TestNode::kGuid}, {{111, 0}, {222, 0}})),
          m_graph(ObjectRecord(true, 0) + SavedNode(1, 2) + ObjectRecord(true, 1) + SavedNode(2, 0) +
                  ObjectRecord(false, 1)),
          m_reference(ObjectRecord(false, 1)),
          m_bytes(m_header + m_graph + m_reference) {
        EXPECT_TRUE(m_file->OpenMemFile(m_bytes.data(), static_cast<long long>(m_bytes.size()), false));
        EXPECT_TRUE(m_archive->Attach(m_file.get(), false));
        EXPECT_EQ(m_archive->ReadMapHeader(), 1);
    }

    bool Attempt() override { return Read(0, m_parent); }

    // The child was destroyed with the parent that could not be read: nothing may refer to it.
    void Check(bool bDone) override {
        TnRobotPtr<TestNode> child;
        EXPECT_EQ(Read(m_graph.size(), child), bDone);
        EXPECT_EQ(child != nullptr, bDone);
        EXPECT_EQ(LiveObject::Count(), bDone ? 2 : 0);
        EXPECT_TRUE(Read(0, m_parent)) << "the graph can be read again";
        EXPECT_TRUE(Read(m_graph.size(), child));
        ASSERT_TRUE(m_parent != nullptr && child != nullptr && m_parent->Children().size() == 2);
        EXPECT_EQ(m_parent->Children()[0], child.get());
        EXPECT_EQ(m_parent->Children()[1], child.get());
        EXPECT_EQ(child->Number(), 2);
    }

private:
    /// @param[in] nOffset  of the record, behind the header.
    bool Read(std::size_t nOffset, TnRobotPtr<TestNode>& node) {
        const auto nPosition = static_cast<long long>(m_header.size() + nOffset);
        EXPECT_EQ(m_file->Seek(nPosition, ITnRobotFile::SEEK_DIRECT_BEGIN), 0);
        CTnRobotObject* pObject = nullptr;
        const int nResult = m_archive->ReadObject(&pObject);
        node = tn::Adopt(dynamic_cast<TestNode*>(pObject));
        return nResult == 1;
    }

    const Bytes m_header;
    const Bytes m_graph;
    const Bytes m_reference;
    Bytes m_bytes;
    TnRobotPtr<ITnRobotMemFile> m_file = MakeMemFile();
    TnRobotPtr<ITnRobotArchive> m_archive = MakeArchive();
    TnRobotPtr<TestNode> m_parent;
};

class MapHeaderIsRead : public AllocationScenario {
public:
    bool Attempt() override { return m_loading->ReadMapHeader() == 1; }

    // Tables that end in the middle are good for what they have; a new archive reads all.
    void Check(bool bDone) override {
        if (bDone) {
            ExpectAnObject(m_loading);
        }
        Channel again = Loading(m_bytes);
        EXPECT_EQ(again->ReadMapHeader(), 1);
        ExpectAnObject(again);
        Channel rest = Loading(ObjectRecord(true, 1) + SavedNode(5, 0));
        m_loading->Detach();
        EXPECT_TRUE(m_loading->Attach(rest.file.get(), false));
        CTnRobotObject* pObject = nullptr;
        const int nResult = m_loading->ReadObject(&pObject);
        const TnRobotPtr<TestNode> node = tn::Adopt(dynamic_cast<TestNode*>(pObject));
        EXPECT_EQ(nResult == 1, node != nullptr);
        EXPECT_TRUE(!bDone || nResult == 1);
    }

private:
    static void ExpectAnObject(Channel& loading) {
        CTnRobotObject* pObject = nullptr;
        EXPECT_EQ(loading->ReadObject(&pObject), 1);
        const TnRobotPtr<TestNode> node = tn::Adopt(dynamic_cast<TestNode*>(pObject));
        ASSERT_NE(node, nullptr);
        EXPECT_EQ(node->Number(), 5);
    }

    const Bytes m_bytes = SavedMapHeader({kUnknownGuid, TestNode::kGuid, PlainObject::kGuid},
                                         {{111, 1}, {222, 1}, {333, 2}, {444, 1}, {555, 0}}) +
                          ObjectRecord(true, 0) + SavedNode(5, 0);
    Channel m_loading = Loading(m_bytes);
};

class MapHeaderIsWritten : public AllocationScenario {
public:
    MapHeaderIsWritten() {
        EXPECT_EQ(m_channel->WriteObject(m_node.get()), 1);
        m_channel.file->TakeNew();
    }

    bool Attempt() override { return m_channel->WriteMapHeader() == 1; }

    void Check(bool /*bDone*/) override {
        m_channel.file->TakeNew();
        EXPECT_EQ(m_channel->WriteMapHeader(), 1);
        const auto nIdentity = reinterpret_cast<std::uintptr_t>(static_cast<CTnRobotObject*>(m_node.get()));
        EXPECT_EQ(m_channel.file->TakeNew(), SavedMapHeader({TestNode::kGuid}, {{nIdentity, 0}}));
    }

private:
    TnRobotPtr<TestNode> m_node = TestNode::Create(1);
    Channel m_channel = RoomyStoring();
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Archive, AllocationFailure,
                         testing::Values(MakeCase<TextsAreWrittenAndRead>("TextsAreWrittenAndRead"),
                                         MakeCase<GraphIsWritten>("GraphIsWritten"),
                                         MakeCase<GraphIsRead>("GraphIsRead"),
                                         MakeCase<MapHeaderIsRead>("MapHeaderIsRead"),
                                         MakeFreeCase<MapHeaderIsWritten>("MapHeaderIsWritten")),
                         AllocationCaseName);

}  // namespace tntest
