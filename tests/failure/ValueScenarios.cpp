// Values and groups without memory.

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "TnRobotKernel/pool.h"
#include "TnRobotKernel/utilities.h"
#include "failure/AllocationScenario.h"
#include "support/objects/Archives.h"
#include "support/objects/Files.h"
#include "support/objects/Groups.h"
#include "support/objects/Memory.h"
#include "support/objects/Values.h"

namespace tntest {

namespace {

using Names = std::vector<std::pair<std::string, ETnRobotDataValueType>>;

constexpr char kFirst[] = "a name that needs memory of its own";
constexpr char kSecond[] = "another name that needs memory of its own";
constexpr char kThird[] = "a third name that needs memory of its own";

/// A process-wide value pool that comes and goes with the scenario, so that what it keeps counts as
/// left behind.
class ValueScenario : public AllocationScenario {
public:
    ValueScenario() { TnRobotUtils::Init(); }
    ~ValueScenario() override { TnRobotUtils::Destroy(); }
};

/// Everything that is done with one kind of value.
class ValueOfOneKind : public ValueScenario {
public:
    explicit ValueOfOneKind(std::size_t nSample) : m_sample(ValueSamples()[nSample]) {}

    bool Attempt() override {
        m_value = m_sample.create();
        if (m_value == nullptr) {
            return false;
        }
        m_value->Convert2String(nullptr);
        m_clone.attach(m_value->Clone());
        m_copy = BoolValue(false);
        m_copy->Copy(m_clone.get());
        return true;
    }

    void Check(bool bDone) override {
        EXPECT_TRUE(bDone || Attempt());
        for (const Value* pValue : {&m_value, &m_clone, &m_copy}) {
            EXPECT_EQ((*pValue)->GetDataValueType(), m_sample.eType);
            EXPECT_STREQ((*pValue)->Convert2String(nullptr), m_sample.strText.c_str());
        }
    }

private:
    ValueSample m_sample;
    Value m_value;
    Value m_clone;
    Value m_copy;
};

/// Contents that no value holds without memory of their own.
class LongValue : public ValueScenario {
public:
    explicit LongValue(bool bText) : m_bText(bText) {}

    bool Attempt() override {
        m_value = m_bText ? TextValue(m_strText.c_str()) : BlockValue(m_block);
        if (m_value == nullptr) {
            return false;
        }
        m_value->Convert2String(nullptr);
        m_clone.attach(m_value->Clone());
        return true;
    }

    void Check(bool bDone) override {
        EXPECT_TRUE(bDone || Attempt());
        const std::string strForm = m_bText ? m_strText : std::string(2 * m_block.size(), '5');
        EXPECT_EQ(m_value->Convert2String(nullptr), strForm);
        EXPECT_EQ(m_clone->Convert2String(nullptr), strForm);
    }

private:
    const bool m_bText;
    const std::string m_strText = std::string(5000, 't');
    const Bytes m_block = Bytes(5000, 0x55);
    Value m_value;
    Value m_clone;
};

class BlockFromAStream : public ValueScenario {
public:
    BlockFromAStream() : m_block(5000, 0x5A), m_blocks(MakePool()) {
        ITnRobotMemDataStream* pStream = nullptr;
        EXPECT_EQ(TnCreateRobotMemDataStream(m_blocks.get(), &pStream), 1);
        m_stream = tn::Adopt(pStream);
        EXPECT_EQ(m_stream->WriteData(m_block.data(), static_cast<unsigned int>(m_block.size())), 0);
    }

    bool Attempt() override { return Create(); }

    void Check(bool bDone) override {
        EXPECT_TRUE(bDone || m_value == nullptr);
        EXPECT_TRUE(bDone || Create());
        EXPECT_EQ(ReadAs(*m_value, DATA_TYPE_BLOCK).bytes, m_block);
    }

private:
    bool Create() {
        ITnRobotDataValue* pValue = nullptr;
        const int nResult = TnCreateRobotBlockData(m_stream.get(), &pValue);
        m_value.attach(pValue);
        return nResult == 0;
    }

    const Bytes m_block;
    HeldPool m_blocks;
    TnRobotPtr<ITnRobotMemDataStream> m_stream;
    Value m_value;
};

/// A free value is taken again and cannot be given its content.
class RecycledValue : public ValueScenario {
public:
    RecycledValue() { m_pFree = IntValue(1).get(); }

    bool Attempt() override {
        m_value = TextValue(m_strText.c_str());
        return m_value != nullptr;
    }

    void Check(bool bDone) override {
        EXPECT_TRUE(bDone || Attempt());
        EXPECT_EQ(m_value.get(), m_pFree) << "a failure keeps it among the free ones";
        EXPECT_EQ(m_value->Convert2String(nullptr), m_strText);
        const Value next = IntValue(2);
        EXPECT_NE(next.get(), m_pFree);
        EXPECT_EQ(next->IntData(nullptr), 2);
    }

private:
    const std::string m_strText = std::string(5000, 't');
    const void* m_pFree = nullptr;
    Value m_value;
};

/// Copies a value whose text is cached over another one with a cached text.
class ValueIsCopied : public ValueScenario {
public:
    ValueIsCopied() : m_source(TextValue(m_strNew.c_str())), m_target(TextValue(m_strOld.c_str())) {
        m_source->Convert2String(nullptr);
        m_target->Convert2String(nullptr);
    }

    bool Attempt() override {
        m_target->Copy(m_source.get());
        return true;
    }

    // Text form and content belong together.
    void Check(bool bDone) override {
        const std::string& strExpected = bDone ? m_strNew : m_strOld;
        EXPECT_EQ(m_target->Convert2String(nullptr), strExpected);
        EXPECT_EQ(ReadAs(*m_target, DATA_TYPE_STRING).bytes, FromText(strExpected) + U8(0));
        m_target->Copy(m_source.get());
        EXPECT_EQ(m_target->Convert2String(nullptr), m_strNew);
    }

private:
    const std::string m_strOld = std::string(3000, 'o');
    const std::string m_strNew = std::string(5000, 'n');
    Value m_source;
    Value m_target;
};

/// A loaded value keeps the length of before, which is then not that of its bytes.
class LoadedValueIsCopied : public ValueScenario {
public:
    LoadedValueIsCopied() : m_source(BlockValue(Bytes(100, 1))), m_target(BlockValue(m_old)) {
        EXPECT_EQ(LoadFrom(*m_source, SavedValue(DATA_TYPE_BLOCK, m_new)), 1);
    }

    bool Attempt() override {
        m_target->Copy(m_source.get());
        return true;
    }

    void Check(bool bDone) override {
        const Bytes expected = bDone ? Bytes(m_new.begin(), m_new.begin() + 100) : m_old;
        EXPECT_EQ(ReadAs(*m_target, DATA_TYPE_BLOCK).bytes, expected);
        m_target->Copy(m_source.get());
        EXPECT_EQ(ReadAs(*m_target, DATA_TYPE_BLOCK).bytes, Bytes(m_new.begin(), m_new.begin() + 100));
    }

private:
    const Bytes m_old = Bytes(60, 2);
    const Bytes m_new = Bytes(5000, 3);
    Value m_source;
    Value m_target;
};

/// A value that is loaded step by step, because its count is not believed.
class ValueIsLoaded : public ValueScenario {
public:
    ValueIsLoaded() : m_value(BlockValue(Bytes(kLength, 1))), m_loading(Loading(m_saved)) {}

    bool Attempt() override { return m_value->Serialize(m_loading.Get()) == 1; }

    // The recorded length stays, and that many bytes are the value's own whatever has arrived.
    void Check(bool bDone) override {
        const Reading reading = ReadAs(*m_value, DATA_TYPE_BLOCK);
        EXPECT_EQ(reading.nError, 0);
        EXPECT_EQ(reading.bytes.size(), kLength);
        EXPECT_TRUE(!bDone || reading.bytes == Bytes(kLength, 0x5A));
        EXPECT_EQ(std::string(m_value->Convert2String(nullptr)).size(), 2 * kLength);
        const Value clone(m_value->Clone(), tn::kAdopt);
        EXPECT_EQ(ReadAs(*clone, DATA_TYPE_BLOCK).bytes, reading.bytes);
        EXPECT_EQ(LoadFrom(*m_value, m_saved), 1);
        EXPECT_TRUE(SavedFormOf(*m_value) == m_saved);
    }

private:
    static constexpr std::size_t kLength = 100;
    const Bytes m_saved = SavedValue(DATA_TYPE_BLOCK, Bytes(3000000, 0x5A));
    Value m_value;
    Channel m_loading;
};

/// A group with two entries.
class GroupScenario : public ValueScenario {
public:
    GroupScenario() : m_group(NewGroup()) {
        EXPECT_EQ(m_group->SetValue(kFirst, 5), 0);
        EXPECT_EQ(m_group->SetValue(kSecond, m_strLong.c_str()), 0);
    }

protected:
    void ExpectTheTwo(ITnRobotDataValueGroup& group) const {
        EXPECT_EQ(group.IntData(kFirst, nullptr), 5);
        EXPECT_STREQ(group.StringData(kSecond, nullptr), m_strLong.c_str());
        EXPECT_EQ(CountOf(group), 2U);
    }

    static std::size_t CountOf(ITnRobotDataValueGroup& group) {
        Names names;
        group.GetAllDataName(names);
        return names.size();
    }

    const std::string m_strLong = std::string(5000, 't');
    Group m_group;
    Names m_names;
};

class GroupTakesANewEntry : public GroupScenario {
public:
    bool Attempt() override { return m_group->SetValue(kThird, m_strLong.c_str()) == 0; }

    void Check(bool bDone) override {
        EXPECT_EQ(m_group->HasValue(kThird), bDone);
        EXPECT_EQ(CountOf(*m_group), bDone ? 3U : 2U);
        EXPECT_EQ(m_group->SetValue(kThird, "again"), 0);
        EXPECT_STREQ(m_group->StringData(kThird, nullptr), "again");
        EXPECT_EQ(m_group->RemoveValue(kThird), 0);
        ExpectTheTwo(*m_group);
    }
};

class GroupTakesAValue : public GroupScenario {
public:
    bool Attempt() override { return m_group->SetValue(kThird, m_value.get()) == 0; }

    void Check(bool bDone) override {
        EXPECT_EQ(m_group->HasValue(kThird), bDone);
        EXPECT_EQ(m_group->SetValue(kThird, m_value.get()), 0);
        EXPECT_EQ(m_group->IntData(kThird, nullptr), 7);
        EXPECT_EQ(m_group->RemoveValue(kThird), 0);
        EXPECT_EQ(m_value->Release(), 1) << "one reference is the pool's";
        static_cast<void>(m_value.detach());
        ExpectTheTwo(*m_group);
    }

private:
    Value m_value = IntValue(7);
};

class GroupReplacesAnEntry : public GroupScenario {
public:
    bool Attempt() override { return m_group->SetValue(kFirst, m_strLong.c_str()) == 0; }

    void Check(bool bDone) override {
        EXPECT_EQ(m_group->GetDataValueType(kFirst), bDone ? DATA_TYPE_STRING : DATA_TYPE_INT);
        EXPECT_EQ(m_group->SetValue(kFirst, 5), 0);
        ExpectTheTwo(*m_group);
    }
};

class GroupIsReadAndEmptied : public GroupScenario {
public:
    bool Attempt() override {
        int nError = -1;
        m_group->IntData(kFirst, &nError);
        ITnRobotDataValue* pValue = nullptr;
        const int nResult = m_group->GetValue(kSecond, &pValue);
        m_value.attach(pValue);
        return nError == 0 && nResult == 0 && m_group->HasValue(kSecond) && m_group->RemoveValue(kSecond) == 0;
    }

    void Check(bool bDone) override {
        EXPECT_EQ(m_group->HasValue(kSecond), !bDone);
        EXPECT_TRUE(bDone || Attempt());
        EXPECT_EQ(m_value->Convert2String(nullptr), m_strLong);
        EXPECT_EQ(m_group->SetValue(kSecond, m_value.get()), 0);
        ExpectTheTwo(*m_group);
    }

private:
    Value m_value;
};

class GroupTellsItsNames : public GroupScenario {
public:
    bool Attempt() override { return m_group->GetAllDataName(m_names) == 2; }

    void Check(bool bDone) override {
        EXPECT_TRUE(bDone ? m_names.size() == 2 : m_names.size() < 2);
        ExpectTheTwo(*m_group);
        m_names.clear();
        EXPECT_EQ(m_group->GetAllDataName(m_names), 2);
    }
};

class GroupIsFilled : public GroupScenario {
public:
    bool Attempt() override {
        for (; m_nFilled < kMany; ++m_nFilled) {
            if (m_group->SetValue(Name(m_nFilled).c_str(), m_nFilled) != 0) {
                return false;
            }
        }
        return true;
    }

    void Check(bool bDone) override {
        EXPECT_EQ(CountOf(*m_group), static_cast<std::size_t>(m_nFilled) + 2);
        EXPECT_TRUE(bDone || Attempt());
        for (int i = 0; i < kMany; ++i) {
            EXPECT_EQ(m_group->IntData(Name(i).c_str(), nullptr), i);
        }
        EXPECT_EQ(m_group->ClearAllValues(), 0);
        EXPECT_EQ(CountOf(*m_group), 0U);
    }

private:
    static constexpr int kMany = 30;
    static std::string Name(int n) { return std::to_string(n) + " is a number, and here is its entry"; }

    int m_nFilled = 0;
};

class GroupIsCloned : public GroupScenario {
public:
    bool Attempt() override {
        m_clone.attach(m_group->Clone());
        return m_clone != nullptr;
    }

    void Check(bool bDone) override {
        ExpectTheTwo(*m_group);
        EXPECT_TRUE(bDone || Attempt());
        ExpectTheTwo(*m_clone);
    }

private:
    Group m_clone;
};

class GroupIsCopied : public GroupScenario {
public:
    GroupIsCopied() { EXPECT_EQ(m_target->SetValue(kThird, 7), 0); }

    bool Attempt() override {
        m_target->Copy(m_group.get());
        return true;
    }

    // The target is emptied first: what it had is gone, and what it has is the source's.
    void Check(bool bDone) override {
        ExpectTheTwo(*m_group);
        EXPECT_FALSE(m_target->HasValue(kThird));
        EXPECT_TRUE(bDone || CountOf(*m_target) < 2);
        m_target->Copy(m_group.get());
        ExpectTheTwo(*m_target);
    }

private:
    Group m_target = NewGroup();
};

class GroupIsSaved : public GroupScenario {
public:
    GroupIsSaved() : m_file(MakeFile()), m_archive(MakeArchive()) {
        EXPECT_TRUE(m_archive->Attach(m_file.get(), true));
    }

    bool Attempt() override { return m_group->Serialize(m_archive.get()) == 1; }

    void Check(bool bDone) override {
        ExpectTheTwo(*m_group);
        const Bytes saved = SavedFormOf(*m_group);
        Bytes content(saved.size());
        auto nLength = static_cast<long long>(content.size());
        EXPECT_TRUE(m_file->GetMemData(reinterpret_cast<char*>(content.data()), nLength));
        EXPECT_TRUE(bDone ? content == saved : nLength < static_cast<long long>(saved.size()));
        const Group loaded = NewGroup();
        EXPECT_EQ(LoadFrom(*loaded, saved), 1);
    }

private:
    static TnRobotPtr<ITnRobotMemFile> MakeFile() {
        TnRobotPtr<ITnRobotMemFile> file = MakeMemFile();
        EXPECT_TRUE(file->OpenWriteFile(1000));
        return file;
    }

    TnRobotPtr<ITnRobotMemFile> m_file;
    TnRobotPtr<ITnRobotArchive> m_archive;
};

/// Loads into a group that has one of the names already: the entry that is there wins.
class GroupIsLoaded : public GroupScenario {
public:
    GroupIsLoaded() : m_saved(SavedFormOf(*m_group)), m_loading(Loading(m_saved)) {
        EXPECT_EQ(m_target->SetValue(kFirst, 7), 0);
    }

    bool Attempt() override { return m_target->Serialize(m_loading.Get()) == 1; }

    void Check(bool bDone) override {
        EXPECT_EQ(m_target->HasValue(kSecond), bDone || CountOf(*m_target) == 2);
        EXPECT_EQ(LoadFrom(*m_target, m_saved), 1) << "entries of before do not matter";
        EXPECT_EQ(CountOf(*m_target), 2U);
        EXPECT_EQ(m_target->IntData(kFirst, nullptr), 7);
        EXPECT_EQ(m_target->GetDataValueType(kSecond), DATA_TYPE_STRING);
    }

private:
    const Bytes m_saved;
    Channel m_loading;
    Group m_target = NewGroup();
};

/// The pool itself, with elements that need memory of their own.
class RecyclingPoolGrows : public AllocationScenario {
public:
    RecyclingPoolGrows() { m_elements.reserve(kElements); }

    bool Attempt() override {
        while (m_elements.size() < kElements) {
            Element* pElement = nullptr;
            if (!m_pool->QueryPoolElement(0, nullptr, &pElement)) {
                return false;
            }
            m_elements.emplace_back(pElement, tn::kAdopt);
        }
        return true;
    }

    void Check(bool bDone) override {
        EXPECT_TRUE(bDone || Attempt());
        const Element* const pFirst = m_elements.front().get();
        m_elements.erase(m_elements.begin());
        EXPECT_TRUE(Attempt());
        EXPECT_EQ(m_elements.back().get(), pFirst) << "what came back is handed out again";
    }

private:
    class Element final : public ITnPoolElement {
    public:
        void ClearResource() override { m_text.clear(); }
        std::string m_text = std::string(100, 'e');
    };

    class ElementAlloc final : public ITnElementAlloc {
    public:
        bool AllocElement(void* /*pParam*/, ITnPoolElement** ppElement) override {
            *ppElement = new Element;
            return true;
        }
        void SetElementParam(ITnPoolElement* pElement, void* /*pParam*/) override {
            static_cast<Element*>(pElement)->m_text = std::string(1000, 'e');
        }
    };

    static constexpr std::size_t kElements = 40;
    TnRobotPtr<ElementAlloc> m_alloc = tn::Adopt(new ElementAlloc);
    TnRobotPtr<CTnRobotPool<Element>> m_pool = tn::Adopt(new CTnRobotPool<Element>(m_alloc.get()));
    std::vector<TnRobotPtr<Element>> m_elements;
};

std::vector<AllocationCase> AllKinds() {
    std::vector<AllocationCase> cases;
    const std::vector<ValueSample> samples = ValueSamples();
    for (std::size_t i = 0; i < samples.size(); ++i) {
        cases.push_back(MakeCase<ValueOfOneKind>(std::string("ValueOfKind_") + samples[i].lpszName, i));
    }
    return cases;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Kinds, AllocationFailure, testing::ValuesIn(AllKinds()), AllocationCaseName);

INSTANTIATE_TEST_SUITE_P(
    Values, AllocationFailure,
    testing::Values(MakeCase<LongValue>("LongText", true), MakeCase<LongValue>("LongBlock", false),
                    MakeCase<BlockFromAStream>("BlockFromAStream"), MakeCase<RecycledValue>("RecycledValue"),
                    MakeCase<ValueIsCopied>("ValueIsCopied"), MakeCase<LoadedValueIsCopied>("LoadedValueIsCopied"),
                    MakeCase<ValueIsLoaded>("ValueIsLoaded"), MakeCase<RecyclingPoolGrows>("RecyclingPoolGrows")),
    AllocationCaseName);

INSTANTIATE_TEST_SUITE_P(
    Groups, AllocationFailure,
    testing::Values(MakeCase<GroupTakesANewEntry>("GroupTakesANewEntry"),
                    MakeCase<GroupTakesAValue>("GroupTakesAValue"),
                    MakeCase<GroupReplacesAnEntry>("GroupReplacesAnEntry"),
                    MakeFreeCase<GroupIsReadAndEmptied>("GroupIsReadAndEmptied"),
                    MakeCase<GroupTellsItsNames>("GroupTellsItsNames"), MakeCase<GroupIsFilled>("GroupIsFilled"),
                    MakeCase<GroupIsCloned>("GroupIsCloned"), MakeCase<GroupIsCopied>("GroupIsCopied"),
                    MakeCase<GroupIsSaved>("GroupIsSaved"), MakeCase<GroupIsLoaded>("GroupIsLoaded")),
    AllocationCaseName);

}  // namespace tntest
