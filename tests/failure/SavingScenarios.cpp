// Files of objects and graphs without memory: the old one or the new one, nothing else beside it.

#include <string>
#include <vector>

#include "TnRobotKernel/make.h"
#include "failure/AllocationScenario.h"
#include "support/fakes/TestObjects.h"
#include "support/processes/TempDirectory.h"

namespace tntest {

namespace {

TnRobotPtr<ITnRobotDataValueGroup> Numbered(int nNumber) {
    auto group = tn::MakeValueDataGroup();
    group->SetValue("number", nNumber);
    group->SetValue("text", "a text that is longer than a short one");
    return group;
}

/// A node with two children that are the same one.
TnRobotPtr<TestNode> Family(int nNumber) {
    auto parent = tn::MakeObject<TestNode>(nNumber);
    const auto child = tn::MakeObject<TolerantNode>(nNumber + 1);
    parent->Add(child.get());
    parent->Add(child.get());
    return parent;
}

/// Has a value pool of its own, which takes along what values leave in it, and looks at what is left
/// beside the file.
class SavingScenario : public AllocationScenario {
public:
    SavingScenario() { TnRobotUtils::Init(); }
    ~SavingScenario() override { TnRobotUtils::Destroy(); }

protected:
    const std::string& Path() const { return m_strPath; }
    void ExpectNothingElse() const { EXPECT_EQ(m_directory.Names(), std::vector<std::string>{"file.tnr"}); }

private:
    const TempDirectory m_directory;
    const std::string m_strPath = m_directory / "file.tnr";
};

class GroupIsSavedAndLoaded : public SavingScenario {
public:
    GroupIsSavedAndLoaded() { EXPECT_TRUE(tn::SaveTo(Path().c_str(), *Numbered(1))); }

    bool Attempt() override {
        m_bSaved = tn::SaveTo(Path().c_str(), *m_new);
        return m_bSaved && tn::LoadFrom(Path().c_str(), *m_loaded);
    }

    void Check(bool bDone) override {
        EXPECT_TRUE(!bDone || m_loaded->IntData("number", nullptr) == 2);
        ExpectNothingElse();
        m_loaded->ClearAllValues();
        EXPECT_TRUE(tn::LoadFrom(Path().c_str(), *m_loaded));
        const int nNumber = m_loaded->IntData("number", nullptr);
        EXPECT_TRUE(nNumber == 2 || (!m_bSaved && nNumber == 1)) << nNumber;
        EXPECT_TRUE(tn::SaveTo(Path().c_str(), *m_new));
    }

private:
    const TnRobotPtr<ITnRobotDataValueGroup> m_new = Numbered(2);
    const TnRobotPtr<ITnRobotDataValueGroup> m_loaded = tn::MakeValueDataGroup();
    bool m_bSaved = false;
};

class GroupsAreSavedAndLoaded : public SavingScenario {
public:
    GroupsAreSavedAndLoaded() { EXPECT_TRUE(tn::SaveTo(Path().c_str(), *Numbered(1))); }

    bool Attempt() override {
        tn::GroupFileWriter writer(Path().c_str());
        m_bSaved = writer.Write(*m_new) && writer.Write(*m_new) && writer.Save();
        return m_bSaved && CountGroups() == 2;
    }

    void Check(bool bDone) override {
        EXPECT_TRUE(!bDone || m_bSaved);
        ExpectNothingElse();
        EXPECT_EQ(CountGroups(), m_bSaved ? 2 : 1);
        m_bSaved = false;
    }

private:
    // @return how many groups the file has; below 0 when they could not all be read.
    int CountGroups() const {
        tn::GroupFileReader reader(Path().c_str());
        int nGroups = 0;
        while (reader.ReadGroup()) {
            ++nGroups;
        }
        // Memory that is missing must not pass for the end of the file.
        EXPECT_TRUE(reader.Reason() != tn::errc::end_of_file || nGroups == (m_bSaved ? 2 : 1));
        return reader.Reason() == tn::errc::end_of_file ? nGroups : -1;
    }

    const TnRobotPtr<ITnRobotDataValueGroup> m_new = Numbered(2);
    bool m_bSaved = false;
};

class GraphIsSaved : public SavingScenario {
public:
    GraphIsSaved() { EXPECT_TRUE(tn::SaveGraph(Path().c_str(), *Family(1))); }

    bool Attempt() override { return tn::SaveGraph(Path().c_str(), *m_new); }

    void Check(bool bDone) override {
        EXPECT_EQ(m_new->References(), 1);
        EXPECT_EQ(m_new->Children()[0]->References(), 2);
        ExpectNothingElse();
        const auto loaded = tn::LoadGraph<TestNode>(Path().c_str());
        ASSERT_TRUE(loaded);
        EXPECT_EQ(loaded->Number(), bDone ? 2 : 1);
        EXPECT_EQ(loaded->Children().size(), 2U);
    }

private:
    const TnRobotPtr<TestNode> m_new = Family(2);
};

class GraphIsLoaded : public SavingScenario {
public:
    GraphIsLoaded() { EXPECT_TRUE(tn::SaveGraph(Path().c_str(), *Family(1))); }

    bool Attempt() override {
        m_loaded = tn::LoadGraph<TestNode>(Path().c_str());
        return m_loaded != nullptr;
    }

    void Check(bool bDone) override {
        EXPECT_EQ(m_loaded != nullptr, bDone);
        if (!bDone) {
            EXPECT_EQ(LiveObject::Count(), 0);
            m_loaded = tn::LoadGraph<TestNode>(Path().c_str());
        }
        ASSERT_TRUE(m_loaded);
        ASSERT_EQ(m_loaded->Children().size(), 2U);
        EXPECT_EQ(m_loaded->Children()[0], m_loaded->Children()[1]);
    }

private:
    TnRobotPtr<TestNode> m_loaded;
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Saving, AllocationFailure,
                         testing::Values(MakeCase<GroupIsSavedAndLoaded>("GroupIsSavedAndLoaded"),
                                         MakeCase<GroupsAreSavedAndLoaded>("GroupsAreSavedAndLoaded"),
                                         MakeCase<GraphIsSaved>("GraphIsSaved"),
                                         MakeCase<GraphIsLoaded>("GraphIsLoaded")),
                         AllocationCaseName);

}  // namespace tntest
