// The helpers of make.h that keep objects in files and read them from archives.

#include <gtest/gtest.h>
#include <unistd.h>

#include <initializer_list>
#include <memory>
#include <string>

#include "TnRobotKernel/make.h"
#include "support/Archives.h"
#include "support/FileBytes.h"
#include "support/TempDirectory.h"
#include "support/TestObjects.h"

using namespace tntest;

namespace {

using Group = TnRobotPtr<ITnRobotDataValueGroup>;

Group Settings() {
    Group group = tn::MakeValueDataGroup();
    group->SetValue("camera", "left");
    group->SetValue("exposure", 12.5);
    group->SetValue("frames", 7);
    return group;
}

void ExpectSettings(ITnRobotDataValueGroup& group) {
    EXPECT_STREQ(group.StringData("camera", nullptr), "left");
    EXPECT_EQ(group.DoubleData("exposure", nullptr), 12.5);
    EXPECT_EQ(group.IntData("frames", nullptr), 7);
}

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
Channel Reading(std::initializer_list<CTnRobotObject*> objects) {
    Channel channel = Loading(Saved(objects));
    EXPECT_EQ(channel->ReadMapHeader(), 1);
    return channel;
}

class Saving : public testing::Test {
protected:
    std::string Path(const char* lpszName) const { return m_directory / lpszName; }

    const TempDirectory m_directory;
};

class ReadingObjects : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(LiveObject::Count(), 0); }
};

}  // namespace

TEST_F(Saving, AGroupComesBack) {
    const std::string strPath = Path("settings.tnr");
    ASSERT_TRUE(tn::SaveTo(strPath.c_str(), *Settings()));
    const Group loaded = tn::MakeValueDataGroup();
    ASSERT_TRUE(tn::LoadFrom(strPath.c_str(), *loaded));
    ExpectSettings(*loaded);
}

TEST_F(Saving, AValueComesBack) {
    const std::string strPath = Path("value.tnr");
    ASSERT_TRUE(tn::SaveTo(strPath.c_str(), *tn::MakeDoubleData(0.25)));
    const auto loaded = tn::MakeDoubleData(0);
    ASSERT_TRUE(tn::LoadFrom(strPath.c_str(), *loaded));
    EXPECT_EQ(loaded->DoubleData(nullptr), 0.25);
}

TEST_F(Saving, AnEmptyGroupComesBack) {
    const std::string strPath = Path("empty.tnr");
    ASSERT_TRUE(tn::SaveTo(strPath.c_str(), *tn::MakeValueDataGroup()));
    EXPECT_TRUE(tn::LoadFrom(strPath.c_str(), *tn::MakeValueDataGroup()));
}

TEST_F(Saving, WhatTheFileHeldIsOverwritten) {
    const std::string strPath = Path("settings.tnr");
    WriteBytes(strPath, Bytes(100000, 0xEE));
    ASSERT_TRUE(tn::SaveTo(strPath.c_str(), *Settings()));
    EXPECT_EQ(ReadBytes(strPath), SavedFormOf(*Settings()));
}

TEST_F(Saving, WhatFollowsInTheFileIsNotLookedAt) {
    const std::string strPath = Path("longer.tnr");
    WriteBytes(strPath, SavedFormOf(*Settings()) + FromText("more"));
    const Group loaded = tn::MakeValueDataGroup();
    ASSERT_TRUE(tn::LoadFrom(strPath.c_str(), *loaded));
    ExpectSettings(*loaded);
}

TEST_F(Saving, PathsThatCannotBeOpenedAreFalse) {
    const Group group = Settings();
    for (const std::string& strPath : {Path("missing/settings.tnr"), m_directory.Path().string(), std::string()}) {
        EXPECT_FALSE(tn::SaveTo(strPath.c_str(), *group)) << strPath;
        EXPECT_FALSE(tn::LoadFrom(strPath.c_str(), *group)) << strPath;
    }
    EXPECT_FALSE(tn::SaveTo(nullptr, *group));
    EXPECT_FALSE(tn::LoadFrom(nullptr, *group));
    EXPECT_FALSE(tn::LoadFrom(Path("missing.tnr").c_str(), *group));
    ExpectSettings(*group);
}

// A group does not notice: what it writes waits in the file's buffer, and it looks at no write.
TEST_F(Saving, AFullDiskIsFalse) {
    EXPECT_FALSE(tn::SaveTo("/dev/full", *Settings()));
    const Group large = tn::MakeValueDataGroup();
    large->SetValue("text", std::string(1000000, 't').c_str());
    EXPECT_FALSE(tn::SaveTo("/dev/full", *large));
}

TEST_F(Saving, APipeIsFalseForItHasNoPosition) {
    int nEnds[2];
    ASSERT_EQ(pipe(nEnds), 0);
    EXPECT_FALSE(tn::SaveTo(("/dev/fd/" + std::to_string(nEnds[1])).c_str(), *Settings()));
    EXPECT_FALSE(tn::LoadFrom(("/dev/fd/" + std::to_string(nEnds[0])).c_str(), *tn::MakeValueDataGroup()));
    close(nEnds[0]);
    close(nEnds[1]);
}

// A value takes a short read for a success, so only the file knows.
TEST_F(Saving, AFileThatIsCutAnywhereIsFalse) {
    const std::string strPath = Path("cut.tnr");
    const Bytes whole = SavedFormOf(*Settings());
    for (std::size_t nBytes = 0; nBytes < whole.size(); ++nBytes) {
        WriteBytes(strPath, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(nBytes)));
        const Group loaded = tn::MakeValueDataGroup();
        loaded->SetValue("before", true);
        EXPECT_FALSE(tn::LoadFrom(strPath.c_str(), *loaded)) << nBytes;
        EXPECT_TRUE(loaded->BoolData("before", nullptr)) << nBytes;
    }
}

TEST_F(Saving, AnObjectThatFailsIsFalse) {
    const std::string strPath = Path("object.tnr");
    EmptyObject failing(&EmptyObject::s_class, 0);
    EXPECT_FALSE(tn::SaveTo(strPath.c_str(), failing));
    EXPECT_FALSE(tn::LoadFrom(strPath.c_str(), failing));
    EmptyObject working;
    EXPECT_TRUE(tn::SaveTo(strPath.c_str(), working));
    EXPECT_TRUE(tn::LoadFrom(strPath.c_str(), working));
}

TEST_F(ReadingObjects, EachReaderOfASharedObjectHasAReferenceOfItsOwn) {
    const auto node = tn::MakeObject<TestNode>(5);
    const Channel channel = Reading({node.get(), node.get()});
    const auto first = tn::ReadObject<TestNode>(*channel.archive);
    const auto again = tn::ReadObject<TestNode>(*channel.archive);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->Number(), 5);
    EXPECT_EQ(again, first);
    EXPECT_EQ(first->References(), 2);
}

TEST_F(ReadingObjects, ABaseOfTheObjectWillDo) {
    const auto node = tn::MakeObject<TolerantNode>(6);
    const Channel channel = Reading({node.get()});
    const TnRobotPtr<TestNode> read = tn::ReadObject<TestNode>(*channel.archive);
    ASSERT_TRUE(read);
    EXPECT_TRUE(read.try_as<TolerantNode>());
}

TEST_F(ReadingObjects, AnObjectOfAnotherTypeIsGivenBack) {
    const auto node = tn::MakeObject<TestNode>(7);
    const auto next = tn::MakeObject<TolerantNode>(8);
    const Channel channel = Reading({node.get(), next.get()});
    const int nLive = LiveObject::Count();
    EXPECT_FALSE(tn::ReadObject<TolerantNode>(*channel.archive));
    EXPECT_EQ(LiveObject::Count(), nLive);
    const auto read = tn::ReadObject<TolerantNode>(*channel.archive);
    ASSERT_TRUE(read) << "the archive goes on after it";
    EXPECT_EQ(read->Number(), 8);
}

// It cannot be told whether it is new or belongs to an earlier reader, as it does here.
TEST_F(ReadingObjects, AnObjectWithoutACountIsLeftAlone) {
    PlainObject plain(9);
    const Channel channel = Reading({&plain, &plain});
    CTnRobotObject* pObject = nullptr;
    ASSERT_EQ(channel->ReadObject(&pObject), 1);
    const std::unique_ptr<CTnRobotObject> owner(pObject);
    EXPECT_FALSE(tn::ReadObject<TestNode>(*channel.archive));
    EXPECT_EQ(dynamic_cast<PlainObject&>(*owner).Value(), 9);
}

TEST_F(ReadingObjects, WhatCannotBeReadIsEmpty) {
    const auto failing = tn::MakeObject<TestNode>(TestNode::kFailsToLoad);
    const Channel channel = Reading({nullptr, failing.get()});
    EXPECT_FALSE(tn::ReadObject<TestNode>(*channel.archive)) << "a null was written";
    EXPECT_FALSE(tn::ReadObject<TestNode>(*channel.archive)) << "it fails to load";
    EXPECT_FALSE(tn::ReadObject<TestNode>(*channel.archive)) << "the file ends here";
    EXPECT_FALSE(tn::ReadObject<TestNode>(*tn::MakeArchive())) << "it has no file";
}
