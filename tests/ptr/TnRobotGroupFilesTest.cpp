// GroupFileWriter and GroupFileReader: any number of groups and values in one file.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "TnRobotKernel/make.h"
#include "support/bytes/FileBytes.h"
#include "support/fakes/TestObjects.h"
#include "support/objects/Archives.h"
#include "support/processes/Descriptors.h"
#include "support/processes/Limits.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

namespace {

using Group = TnRobotPtr<ITnRobotDataValueGroup>;

Group Numbered(int nNumber) {
    Group group = tn::MakeValueDataGroup();
    group->SetValue("number", nNumber);
    group->SetValue("name", "camera");
    return group;
}

class Throwing final : public ITnRobotSerialize {
public:
    int Serialize(ITnRobotArchive* /*pArchive*/) override { throw std::runtime_error("no"); }
};

// Begins with a text, which an archive reads past whatever stands in front of it.
class Named final : public ITnRobotSerialize {
public:
    explicit Named(const char* lpszName = "") : m_strName(lpszName) {}
    int Serialize(ITnRobotArchive* pArchive) override {
        if (pArchive->IsStoring()) {
            return pArchive->WriteString(m_strName.c_str());
        }
        int nLength = 0;
        int nError = 0;
        const char* lpszName = pArchive->ReadString(nLength, &nError);
        m_strName = lpszName != nullptr ? lpszName : "";
        return nError == 0 ? 1 : 0;
    }

    std::string m_strName;
};

class GroupFiles : public testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(CountDescriptors(), m_nDescriptors); }

    // Saves as many groups, each with its number.
    void SaveNumbered(int nGroups) const {
        tn::GroupFileWriter writer(m_strPath.c_str());
        for (int i = 0; i < nGroups; ++i) {
            ASSERT_TRUE(writer.Write(*Numbered(i)));
        }
        ASSERT_TRUE(writer.Save());
    }

    // Reads groups until there is none. @return how many had their number; ec says why there were no more.
    int CountNumbered(std::error_code& ec) const {
        tn::GroupFileReader reader(m_strPath.c_str());
        int nGroups = 0;
        while (const Group group = reader.ReadGroup(ec)) {
            EXPECT_EQ(group->IntData("number", nullptr), nGroups);
            ++nGroups;
        }
        EXPECT_EQ(ec, reader.Reason());
        return nGroups;
    }

    const TempDirectory m_directory;
    const std::string m_strPath = m_directory / "groups.tnr";
    const std::size_t m_nDescriptors = CountDescriptors();
};

}  // namespace

TEST_F(GroupFiles, AnyNumberComesBackAndThenTheEnd) {
    for (const int nGroups : {0, 1, 2, 1000}) {
        SaveNumbered(nGroups);
        std::error_code ec;
        EXPECT_EQ(CountNumbered(ec), nGroups);
        EXPECT_EQ(ec, tn::errc::end_of_file) << ec.message();
    }
    EXPECT_EQ(m_directory.Names(), std::vector<std::string>{"groups.tnr"});
}

TEST_F(GroupFiles, HoldTheBytesOfEachOneAfterTheOther) {
    SaveNumbered(2);
    EXPECT_EQ(ReadBytes(m_strPath), SavedFormOf(*Numbered(0)) + SavedFormOf(*Numbered(1)));
}

TEST_F(GroupFiles, GroupsValuesAndOtherObjectsMayFollowEachOther) {
    {
        tn::GroupFileWriter writer(m_strPath.c_str());
        Named named("a name that is longer than one byte");
        ASSERT_TRUE(writer.Write(*Numbered(0)));
        ASSERT_TRUE(writer.Write(*tn::MakeDoubleData(0.25)));
        ASSERT_TRUE(writer.Write(named));
        ASSERT_TRUE(writer.Write(*tn::MakeStringData("text")));
        ASSERT_TRUE(writer.Save());
    }
    tn::GroupFileReader reader(m_strPath.c_str());
    const Group group = reader.ReadGroup();
    ASSERT_TRUE(group);
    EXPECT_STREQ(group->StringData("name", nullptr), "camera");
    const auto number = reader.ReadValue();
    ASSERT_TRUE(number);
    EXPECT_EQ(number->DoubleData(nullptr), 0.25);
    Named named;
    ASSERT_TRUE(reader.Read(named));
    EXPECT_EQ(named.m_strName, "a name that is longer than one byte");
    const auto text = tn::MakeIntData(7);
    ASSERT_TRUE(reader.Read(*text));
    EXPECT_EQ(text->GetDataValueType(), DATA_TYPE_STRING);
    EXPECT_EQ(reader.Reason(), std::error_code());
    EXPECT_FALSE(reader.ReadValue());
    EXPECT_EQ(reader.Reason(), tn::errc::end_of_file);
}

TEST_F(GroupFiles, AtTheEndAnObjectIsLeftAlone) {
    SaveNumbered(1);
    tn::GroupFileReader reader(m_strPath.c_str());
    ASSERT_TRUE(reader.ReadGroup());
    const auto value = tn::MakeIntData(7);
    for (int i = 0; i < 2; ++i) {
        std::error_code ec;
        EXPECT_FALSE(reader.Read(*value, ec));
        EXPECT_EQ(ec, tn::errc::end_of_file);
        EXPECT_EQ(value->IntData(nullptr), 7);
    }
}

// A cut between two groups is the end of a shorter file; every other one is told from it.
TEST_F(GroupFiles, EveryCutIsToldFromTheEnd) {
    SaveNumbered(3);
    const Bytes whole = ReadBytes(m_strPath);
    const std::size_t nGroup = whole.size() / 3;
    for (std::size_t nBytes = 0; nBytes < whole.size(); ++nBytes) {
        SCOPED_TRACE(nBytes);
        WriteBytes(m_strPath, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(nBytes)));
        std::error_code ec;
        EXPECT_EQ(CountNumbered(ec), static_cast<int>(nBytes / nGroup));
        EXPECT_EQ(ec, nBytes % nGroup == 0 ? tn::errc::end_of_file : tn::errc::file_incomplete) << ec.message();
    }
}

TEST_F(GroupFiles, AThousandChangesEndWithAReason) {
    SaveNumbered(3);
    const Bytes whole = ReadBytes(m_strPath);
    std::mt19937 random(20261122);
    for (int i = 0; i < 1000; ++i) {
        Bytes changed = whole;
        changed[random() % changed.size()] = static_cast<unsigned char>(random() % 3 == 0 ? random() : random() % 4);
        WriteBytes(m_strPath, changed);
        tn::GroupFileReader reader(m_strPath.c_str());
        std::size_t nGroups = 0;
        while (reader.ReadGroup()) {
            ++nGroups;
        }
        EXPECT_TRUE(reader.Reason());
        ASSERT_LE(nGroups, whole.size()) << "each takes at least a byte of the file";
        EXPECT_TRUE(reader.Reason() != tn::errc::end_of_file || nGroups >= 1);
    }
}

TEST_F(GroupFiles, NothingIsReadBehindDamage) {
    const Bytes good = SavedFormOf(*Numbered(0));
    const Bytes damagedValue = U8(1) + U32(1) + SavedString("a") + U8(9);
    struct Case {
        const char* lpszName;
        Bytes damage;
        tn::errc eReason;
    };
    const Case cases[] = {
        {"a group of another version", U8(2) + Bytes(good.begin() + 1, good.end()), tn::errc::object_refused},
        {"a value of another version", damagedValue, tn::errc::file_damaged},
        {"a count below 0", U8(1) + U32(0x80000000), tn::errc::file_damaged},
    };
    for (const Case& entry : cases) {
        SCOPED_TRACE(entry.lpszName);
        WriteBytes(m_strPath, good + entry.damage + good);
        tn::GroupFileReader reader(m_strPath.c_str());
        EXPECT_TRUE(reader.ReadGroup());
        for (int i = 0; i < 3; ++i) {
            std::error_code ec;
            EXPECT_FALSE(reader.ReadGroup(ec));
            EXPECT_EQ(ec, entry.eReason) << ec.message();
        }
    }
}

TEST_F(GroupFiles, WhatCannotBeOpenedOrReadIsTheSystemsReason) {
    std::error_code ec;
    EXPECT_FALSE(tn::GroupFileReader(m_strPath.c_str()).ReadGroup(ec));
    EXPECT_EQ(ec, std::errc::no_such_file_or_directory);
    EXPECT_FALSE(tn::GroupFileReader(m_directory.Path().c_str()).ReadGroup(ec));
    EXPECT_EQ(ec, std::errc::is_a_directory);
    EXPECT_FALSE(tn::GroupFileReader(nullptr).ReadValue(ec));
    EXPECT_EQ(ec, std::errc::invalid_argument);
    EXPECT_FALSE(tn::GroupFileReader("/proc/self/mem").ReadGroup(ec)) << "nothing is mapped at its beginning";
    EXPECT_EQ(ec, std::errc::io_error) << ec.message();
    tn::GroupFileWriter writer((m_directory / "missing/groups.tnr").c_str());
    EXPECT_EQ(writer.Reason(), std::errc::no_such_file_or_directory);
    EXPECT_FALSE(writer.Write(*Numbered(0), ec));
    EXPECT_EQ(ec, std::errc::no_such_file_or_directory);
    EXPECT_FALSE(writer.Save(ec));
    EXPECT_EQ(ec, std::errc::no_such_file_or_directory);
}

TEST_F(GroupFiles, UntilTheyAreSavedTheOldFileIsThere) {
    SaveNumbered(1);
    const Bytes old = ReadBytes(m_strPath);
    {
        tn::GroupFileWriter writer(m_strPath.c_str());
        ASSERT_TRUE(writer.Write(*Numbered(5)));
        EXPECT_EQ(ReadBytes(m_strPath), old);
    }
    EXPECT_EQ(ReadBytes(m_strPath), old);
    EXPECT_EQ(m_directory.Names(), std::vector<std::string>{"groups.tnr"});
}

TEST_F(GroupFiles, AWriterThatHasSavedIsClosed) {
    tn::GroupFileWriter writer(m_strPath.c_str());
    ASSERT_TRUE(writer.Write(*Numbered(0)));
    std::error_code ec = tn::errc::file_damaged;
    ASSERT_TRUE(writer.Save(tn::Durability::kFlushed, ec));
    EXPECT_EQ(ec, std::error_code());
    EXPECT_FALSE(writer.Write(*Numbered(1)));
    EXPECT_FALSE(writer.Save(ec));
    EXPECT_EQ(ec, std::errc::bad_file_descriptor);
    EXPECT_EQ(ReadBytes(m_strPath), SavedFormOf(*Numbered(0)));
}

TEST_F(GroupFiles, AnObjectThatIsNotWrittenFailsTheWriterForGood) {
    SaveNumbered(1);
    const Bytes old = ReadBytes(m_strPath);
    EmptyObject refusing(&EmptyObject::s_class, 0);
    std::error_code ec;
    {
        tn::GroupFileWriter writer(m_strPath.c_str());
        EXPECT_FALSE(writer.Write(refusing, ec));
        EXPECT_EQ(ec, tn::errc::object_refused);
        EXPECT_FALSE(writer.Write(*Numbered(0), ec));
        EXPECT_EQ(ec, tn::errc::object_refused);
        EXPECT_FALSE(writer.Save(ec));
        EXPECT_EQ(ec, tn::errc::object_refused);
    }
    Throwing throwing;
    {
        tn::GroupFileWriter writer(m_strPath.c_str());
        EXPECT_THROW(static_cast<void>(writer.Write(throwing)), std::runtime_error);
        EXPECT_FALSE(writer.Save(ec)) << "half of it may be written";
        EXPECT_EQ(ec, tn::errc::object_refused);
    }
    {
        tn::GroupFileReader reader(m_strPath.c_str());
        EXPECT_THROW(static_cast<void>(reader.Read(throwing)), std::runtime_error);
        EXPECT_FALSE(reader.ReadGroup(ec)) << "half of it may be read";
        EXPECT_EQ(ec, tn::errc::object_refused);
    }
    const auto parent = tn::MakeObject<TestNode>(1);
    parent->Add(tn::MakeObject<TestNode>(2).get());
    EXPECT_FALSE(tn::GroupFileWriter(m_strPath.c_str()).Write(*parent, ec));
    EXPECT_EQ(ec, tn::errc::needs_a_graph);
    EXPECT_EQ(ReadBytes(m_strPath), old);
    EXPECT_EQ(m_directory.Names(), std::vector<std::string>{"groups.tnr"});
}

// The file's buffer takes what the disk then does not.
TEST_F(GroupFiles, AFullDiskIsFalseAndLeavesTheOldFile) {
    SaveNumbered(1);
    const Bytes old = ReadBytes(m_strPath);
    for (const std::size_t nRoom : {std::size_t{0}, std::size_t{1}, std::size_t{70000}}) {
        bool bSaved = true;
        std::error_code ec;
        {
            const FileSizeLimit limit(nRoom);
            tn::GroupFileWriter writer(m_strPath.c_str());
            for (int i = 0; i < 3000; ++i) {
                writer.Write(*Numbered(i), ec);
            }
            bSaved = writer.Save(ec);
        }
        EXPECT_FALSE(bSaved);
        EXPECT_EQ(ec, std::errc::file_too_large) << ec.message();
        EXPECT_EQ(ReadBytes(m_strPath), old);
    }
    EXPECT_EQ(m_directory.Names(), std::vector<std::string>{"groups.tnr"});
}

// What the writer holds back is written once, and its file stays where it is.
TEST_F(GroupFiles, AChildOfForkThatDestroysItsCopyLeavesTheWriterAlone) {
    constexpr int kGroups = 3;
    auto writer = std::make_unique<tn::GroupFileWriter>(m_strPath.c_str());
    for (int i = 0; i < kGroups; ++i) {
        ASSERT_TRUE(writer->Write(*Numbered(i)));
        const pid_t nChild = fork();
        if (nChild == 0) {
            writer.reset();
            _exit(0);
        }
        int nStatus = -1;
        ASSERT_EQ(waitpid(nChild, &nStatus, 0), nChild);
        EXPECT_EQ(nStatus, 0);
    }
    ASSERT_TRUE(writer->Save());
    std::error_code ec;
    EXPECT_EQ(CountNumbered(ec), kGroups);
    EXPECT_EQ(ec, tn::errc::end_of_file) << ec.message();
}
