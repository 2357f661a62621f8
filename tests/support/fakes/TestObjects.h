// Serialisable classes for archive tests; every object alive is counted.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_FAKES_TESTOBJECTS_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_FAKES_TESTOBJECTS_H_

#include <atomic>
#include <vector>

#include "TnRobotKernel/archive.h"
#include "TnRobotKernel/core.h"
#include "TnRobotKernel/ptr.h"
#include "support/bytes/Bytes.h"

namespace tntest {

/// Counts the objects of all classes below.
class LiveObject {
public:
    LiveObject() { ++s_nLive; }
    LiveObject(const LiveObject&) = delete;
    LiveObject& operator=(const LiveObject&) = delete;
    ~LiveObject() { --s_nLive; }
    static int Count() { return s_nLive.load(); }

private:
    static std::atomic<int> s_nLive;
};

/// A counted object with a number and references to further objects, each of them owned.
/// Saved as: number, count of children, the children's object records.
class TestNode : public ITnUnknown, public CTnRobotObject, public ITnRobotSerialize {
public:
    static constexpr const char* kGuid = "11111111-AAAA-4AAA-8AAA-000000000001";
    static constexpr int kFailsToLoad = 0x0BAD0BAD;  ///< a node with this number fails after its children
    static constexpr int kMostChildren = 70000;
    static STnRuntimeClass s_class;

    explicit TestNode(int nNumber = 0) : m_nNumber(nNumber) {}
    ~TestNode() override;

    static TnRobotPtr<TestNode> Create(int nNumber) { return tn::Adopt(new TestNode(nNumber)); }

    /// Takes a reference to the child.
    void Add(TestNode* pChild);
    /// Gives the references to all children back, which breaks rings.
    void DropChildren();

    int Number() const { return m_nNumber; }
    int References() const { return m_nRefCount.load(); }
    const std::vector<TestNode*>& Children() const { return m_children; }

    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }
    int Serialize(ITnRobotArchive* pArchive) override;

protected:
    /// Whether a child that cannot be read counts as null instead of failing the node.
    virtual bool Tolerates() const { return false; }

private:
    int Load(ITnRobotArchive& archive);

    LiveObject m_live;
    int m_nNumber;
    std::vector<TestNode*> m_children;
};

/// A node that loads in spite of children that do not.
class TolerantNode final : public TestNode {
public:
    static constexpr const char* kGuid = "11111111-AAAA-4AAA-8AAA-000000000002";
    static STnRuntimeClass s_class;

    using TestNode::TestNode;
    static TnRobotPtr<TolerantNode> Create(int nNumber) { return tn::Adopt(new TolerantNode(nNumber)); }
    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }

protected:
    bool Tolerates() const override { return true; }
};

/// An object without a reference count. Saved as one byte.
class PlainObject final : public CTnRobotObject, public ITnRobotSerialize {
public:
    static constexpr const char* kGuid = "11111111-AAAA-4AAA-8AAA-000000000003";
    static STnRuntimeClass s_class;

    explicit PlainObject(unsigned char byValue = 0) : m_byValue(byValue) {}
    unsigned char Value() const { return m_byValue; }
    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }
    int Serialize(ITnRobotArchive* pArchive) override;

private:
    LiveObject m_live;
    unsigned char m_byValue;
};

/// An object that the archive cannot save: it is not ITnRobotSerialize.
class MuteObject final : public CTnRobotObject {
public:
    static constexpr const char* kGuid = "11111111-AAAA-4AAA-8AAA-000000000004";
    static STnRuntimeClass s_class;

    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }

private:
    LiveObject m_live;
};

/// Saves nothing and answers what it is told. Its class is of the test's choosing.
class EmptyObject final : public CTnRobotObject, public ITnRobotSerialize {
public:
    static constexpr const char* kGuid = "11111111-AAAA-4AAA-8AAA-000000000005";
    static STnRuntimeClass s_class;

    explicit EmptyObject(STnRuntimeClass* pClass = &s_class, int nAnswer = 1) : m_pClass(pClass), m_nAnswer(nAnswer) {}
    STnRuntimeClass* GetRuntimeClass() override { return m_pClass; }
    int Serialize(ITnRobotArchive* /*pArchive*/) override { return m_nAnswer; }

private:
    LiveObject m_live;
    STnRuntimeClass* m_pClass;
    int m_nAnswer;
};

/// Classes that are registered but give no object.
constexpr const char* kGuidWithoutFunction = "11111111-AAAA-4AAA-8AAA-000000000006";
constexpr const char* kGuidThatGivesNull = "11111111-AAAA-4AAA-8AAA-000000000007";
constexpr const char* kUnknownGuid = "11111111-AAAA-4AAA-8AAA-0000000000FF";

/// A node as it is saved, without its object record; the children's records follow.
inline Bytes SavedNode(int nNumber, unsigned int nChildren) {
    return BytesOf(nNumber) + U32(nChildren);
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_FAKES_TESTOBJECTS_H_
