// Values, groups and archives with every allocation failing in turn: nothing may be left behind.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TnRobotKernel/archive.h"
#include "TnRobotKernel/utilities.h"
#include "TnRobotKernel/values.h"
#include "support/fakes/FailingNew.h"
#include "support/fakes/TestObjects.h"
#include "support/objects/Archives.h"
#include "support/objects/Groups.h"
#include "support/objects/ValuePool.h"
#include "support/objects/Values.h"

using namespace tntest;

namespace {

// A value pool that comes and goes with the work, so that what it keeps counts as left behind.
class PoolOfTheWork {
public:
    PoolOfTheWork() { TnRobotUtils::Init(); }
    PoolOfTheWork(const PoolOfTheWork&) = delete;
    PoolOfTheWork& operator=(const PoolOfTheWork&) = delete;
    ~PoolOfTheWork() { TnRobotUtils::Destroy(); }
};

// Makes elements without content.
class Element final : public ITnPoolElement {
public:
    void ClearResource() override {}
};

class ElementAlloc final : public ITnElementAlloc {
public:
    bool AllocElement(void* /*pParam*/, ITnPoolElement** ppElement) override {
        *ppElement = new Element;
        return true;
    }
    void SetElementParam(ITnPoolElement* /*pElement*/, void* /*pParam*/) override {}
};

const std::string& LongText() {
    static const std::string s_strText(5000, 't');
    return s_strText;
}

Bytes GraphFile() {
    TnRobotPtr<TestNode> parent = TestNode::Create(1);
    TnRobotPtr<TestNode> child = TestNode::Create(2);
    parent->Add(child.get());
    parent->Add(child.get());
    Channel channel = Storing();
    channel->WriteObject(parent.get());
    channel->WriteObject(child.get());
    channel->WriteString(LongText().c_str());
    const Bytes body = channel.file->TakeNew();
    channel->WriteMapHeader();
    return channel.file->TakeNew() + body;
}

}  // namespace

TEST(ValueAllocation, ThePoolLosesNoElement) {
    FailEveryAllocation([] {
        TnRobotPtr<ElementAlloc> alloc = tn::Adopt(new ElementAlloc);
        TnRobotPtr<CTnRobotPool<Element>> pool = tn::Adopt(new CTnRobotPool<Element>(alloc.get()));
        std::vector<TnRobotPtr<Element>> elements;
        elements.reserve(40);
        for (int i = 0; i < 40; ++i) {
            Element* pElement = nullptr;
            EXPECT_TRUE(pool->QueryPoolElement(0, nullptr, &pElement));
            elements.emplace_back(pElement, tn::kAdopt);
        }
    });
}

TEST(ValueAllocation, AFailedQueryLeavesThePoolAsItWas) {
    TnRobotPtr<ElementAlloc> alloc = tn::Adopt(new ElementAlloc);
    TnRobotPtr<CTnRobotPool<Element>> pool = tn::Adopt(new CTnRobotPool<Element>(alloc.get()));
    std::vector<TnRobotPtr<Element>> elements;
    elements.reserve(200);
    for (int i = 0; i < 200; ++i) {
        Element* pElement = nullptr;
        try {
            const FailAllocationsAfter failing(i % 3);
            pool->QueryPoolElement(0, nullptr, &pElement);
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(pElement, nullptr);
            ASSERT_TRUE(pool->QueryPoolElement(0, nullptr, &pElement));
        }
        ASSERT_NE(pElement, nullptr);
        elements.emplace_back(pElement, tn::kAdopt);
    }
    // Coming back needs no memory.
    const FailAllocationsAfter failing(0);
    elements.clear();
}

TEST(ValueAllocation, ValuesOfEveryType) {
    const NoValuePool noPool;
    const std::vector<ValueSample> samples = ValueSamples();
    FailEveryAllocation([&samples] {
        const PoolOfTheWork pool;
        for (const ValueSample& sample : samples) {
            Value value = sample.create();
            EXPECT_NE(value, nullptr);
            value->Convert2String(nullptr);
            Value clone(value->Clone(), tn::kAdopt);
            EXPECT_EQ(clone->GetDataValueType(), sample.eType);
        }
    });
}

TEST(ValueAllocation, LongValues) {
    const NoValuePool noPool;
    const Bytes block(5000, 0x5A);
    const std::string& strLong = LongText();
    FailEveryAllocation([&block, &strLong] {
        const PoolOfTheWork pool;
        Value text = TextValue(strLong.c_str());
        EXPECT_EQ(text->Convert2String(nullptr), strLong);
        Value bytes = BlockValue(block);
        bytes->Convert2String(nullptr);
        text->Copy(bytes.get());
        Value clone(text->Clone(), tn::kAdopt);
        EXPECT_EQ(ReadAs(*clone, DATA_TYPE_BLOCK).bytes, block);
    });
}

TEST(ValueAllocation, LoadingAValue) {
    const NoValuePool noPool;
    const Bytes saved = SavedValue(DATA_TYPE_BLOCK, Bytes(3000000, 0x5A));
    FailEveryAllocation([&saved] {
        const PoolOfTheWork pool;
        Value value = IntValue(5);
        EXPECT_EQ(LoadFrom(*value, saved), 1);
    });
}

TEST(ValueAllocation, Groups) {
    const NoValuePool noPool;
    const std::string& strLong = LongText();
    FailEveryAllocation([&strLong] {
        const PoolOfTheWork pool;
        Group group = NewGroup();
        group->SetValue("a name that needs memory of its own", 1);
        group->SetValue("another name that needs memory of its own", strLong.c_str());
        group->SetValue("a name that needs memory of its own", "replaced");
        Value value = IntValue(5);
        group->SetValue("a third name that needs memory of its own", value.get());
        std::vector<std::pair<std::string, ETnRobotDataValueType>> names;
        EXPECT_EQ(group->GetAllDataName(names), 3);
        Group clone(group->Clone(), tn::kAdopt);
        clone->Copy(group.get());
        clone->RemoveValue("a name that needs memory of its own");
        Group loaded = NewGroup();
        loaded->SetValue("a name that needs memory of its own", 2);
        EXPECT_EQ(LoadFrom(*loaded, SavedFormOf(*group)), 1);
    });
}

TEST(ValueAllocation, AGroupWhoseSetterFailsKeepsItsEntry) {
    Group group = NewGroup();
    group->SetValue("a name that needs memory of its own", 5);
    for (long nLeft = 0; nLeft < 6; ++nLeft) {
        int nResult = 0;
        try {
            const FailAllocationsAfter failing(nLeft);
            nResult = group->SetValue("a name that needs memory of its own", LongText().c_str());
        } catch (const std::bad_alloc&) {
            nResult = -1;
        }
        if (nResult != 0) {
            EXPECT_EQ(group->IntData("a name that needs memory of its own", nullptr), 5) << nLeft;
        }
    }
    EXPECT_STREQ(group->StringData("a name that needs memory of its own", nullptr), LongText().c_str());
}

TEST(ValueAllocation, WritingAGraph) {
    LongText();  // made once for all tests
    FailEveryAllocation([] { GraphFile(); });
    EXPECT_EQ(LiveObject::Count(), 0);
}

TEST(ValueAllocation, ReadingAGraph) {
    const Bytes file = GraphFile();
    FailEveryAllocation([&file] {
        Channel channel = Loading(file);
        EXPECT_EQ(channel->ReadMapHeader(), 1);
        CTnRobotObject* pObject = nullptr;
        EXPECT_EQ(channel->ReadObject(&pObject), 1);
        TnRobotPtr<TestNode> parent = tn::Adopt(dynamic_cast<TestNode*>(pObject));
        pObject = nullptr;
        EXPECT_EQ(channel->ReadObject(&pObject), 1);
        TnRobotPtr<TestNode> child = tn::Adopt(dynamic_cast<TestNode*>(pObject));
        int nLength = 0;
        EXPECT_EQ(channel->ReadString(nLength, nullptr), LongText());
    });
    EXPECT_EQ(LiveObject::Count(), 0);
}
