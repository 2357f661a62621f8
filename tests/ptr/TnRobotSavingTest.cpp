// SaveTo and LoadFrom: what they say of a file, and when.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "TnRobotKernel/make.h"
#include "support/bytes/FileBytes.h"
#include "support/fakes/ForeignValue.h"
#include "support/fakes/TestObjects.h"
#include "support/objects/Archives.h"
#include "support/processes/TempDirectory.h"

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

// A group with one entry, whose value is what is given.
Bytes GroupOf(const std::string& strName, const Bytes& value) {
    return U8(1) + U32(1) + SavedString(strName) + value;
}

// What a value of a type has for bytes: those of a number, or a text, a block or a character.
Bytes BytesOfType(int nType) {
    constexpr std::size_t kSizes[] = {0, 1, 2, 2, 4, 4, 4, 8, 8, 8, 3, 8, 2, 1};
    Bytes content(kSizes[nType], 1);
    if (nType == DATA_TYPE_STRING || nType == DATA_TYPE_CHAR) {
        content.back() = 0;
    }
    return content;
}

// Writes another object when it is saved, whatever comes of it.
class Parent final : public ITnRobotSerialize {
public:
    explicit Parent(CTnRobotObject* pChild) : m_pChild(pChild) {}
    int Serialize(ITnRobotArchive* pArchive) override {
        pArchive->WriteString("parent");
        pArchive->WriteObject(m_pChild);
        return 1;
    }

private:
    CTnRobotObject* m_pChild;
};

class Saving : public testing::Test {
protected:
    std::string Path(const char* lpszName) const { return m_directory / lpszName; }

    const TempDirectory m_directory;
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

TEST_F(Saving, AFileWithMoreThanTheObjectIsFalse) {
    const std::string strPath = Path("longer.tnr");
    for (const Bytes& more : {FromText("more"), U8(0), SavedFormOf(*Settings())}) {
        WriteBytes(strPath, SavedFormOf(*Settings()) + more);
        const Group loaded = tn::MakeValueDataGroup();
        std::error_code ec;
        EXPECT_FALSE(tn::LoadFrom(strPath.c_str(), *loaded, ec));
        EXPECT_EQ(ec, tn::errc::file_has_more);
        ExpectSettings(*loaded);
    }
}

// The group itself answers 1: it does not look at what the loading of its values answers.
TEST_F(Saving, AValueThatIsNotUnderstoodIsFalse) {
    const std::string strPath = Path("damaged.tnr");
    const Bytes good = SavedValue(DATA_TYPE_INT, BytesOf(7));
    struct Case {
        const char* lpszName;
        Bytes file;
        tn::errc eReason;
    };
    const Case cases[] = {
        {"version", GroupOf("a", U8(2) + Bytes(good.begin() + 1, good.end())), tn::errc::file_has_more},
        {"version, and the file ends", GroupOf("a", U8(2)), tn::errc::file_damaged},
        {"version 0, and the file ends", GroupOf("a", U8(0)), tn::errc::file_damaged},
        {"type", GroupOf("a", SavedValue(14, BytesOf(7))), tn::errc::file_damaged},
        {"negative type", GroupOf("a", SavedValue(-1, BytesOf(7))), tn::errc::file_damaged},
        {"negative count", GroupOf("a", U8(1) + U32(DATA_TYPE_INT) + U32(0x80000000)), tn::errc::file_damaged},
        {"an entry between", U8(1) + U32(2) + SavedString("a") + U8(9) + SavedString("b") + good,
         tn::errc::file_damaged},
        {"no group", good, tn::errc::file_incomplete},
        {"a count below 0", U8(1) + U32(0x80000000), tn::errc::file_damaged},
        {"a name without its zero", U8(1) + U32(1) + U32(1) + FromText("a") + good, tn::errc::file_damaged},
        {"a name with a zero inside", U8(1) + U32(1) + U32(4) + FromText("a") + U8(0) + FromText("b") + U8(0) + good,
         tn::errc::file_damaged},
    };
    for (const Case& entry : cases) {
        SCOPED_TRACE(entry.lpszName);
        WriteBytes(strPath, entry.file);
        std::error_code ec;
        EXPECT_FALSE(tn::LoadFrom(strPath.c_str(), *tn::MakeValueDataGroup(), ec));
        EXPECT_EQ(ec, entry.eReason) << ec.message();
        EXPECT_FALSE(tn::LoadFrom(strPath.c_str(), *tn::MakeValueDataGroup()));
    }
    WriteBytes(strPath, U8(2) + Bytes(good.begin() + 1, good.end()));
    EXPECT_FALSE(tn::LoadFrom(strPath.c_str(), *tn::MakeIntData(0)));
    WriteBytes(strPath, SavedValue(99, BytesOf(7)));
    EXPECT_FALSE(tn::LoadFrom(strPath.c_str(), *tn::MakeIntData(0)));
    WriteBytes(strPath, good);
    EXPECT_TRUE(tn::LoadFrom(strPath.c_str(), *tn::MakeIntData(0)));
}

// The value itself takes as many bytes as it is told there are.
TEST_F(Saving, AValueWhoseBytesDoNotFitItsTypeIsFalse) {
    const std::string strPath = Path("sizes.tnr");
    for (int nType = DATA_TYPE_BOOL; nType <= DATA_TYPE_BYTE; ++nType) {
        SCOPED_TRACE(nType);
        const Bytes content = BytesOfType(nType);
        for (const Bytes& other : {Bytes(), content + U8(0), Bytes(content.begin(), content.end() - 1), Bytes(7, 1),
                                   content + Bytes(3000000, 1)}) {
            const bool bText = nType == DATA_TYPE_STRING && std::count(other.begin(), other.end(), 0) != 0;
            const bool bFits = nType == DATA_TYPE_BLOCK || bText;
            const Bytes saved = SavedValue(nType, other);
            EXPECT_EQ(LoadFrom(*tn::MakeIntData(0), saved), 1);
            WriteBytes(strPath, saved);
            std::error_code ec;
            EXPECT_EQ(tn::LoadFrom(strPath.c_str(), *tn::MakeIntData(0), ec), bFits) << other.size() << " bytes";
            EXPECT_EQ(ec, bFits ? std::error_code() : std::error_code(tn::errc::file_damaged)) << ec.message();
            WriteBytes(strPath, GroupOf("a", saved));
            EXPECT_EQ(tn::LoadFrom(strPath.c_str(), *tn::MakeValueDataGroup(), ec), bFits);
            EXPECT_EQ(ec, bFits ? std::error_code() : std::error_code(tn::errc::file_damaged)) << ec.message();
        }
        WriteBytes(strPath, SavedValue(nType, content));
        EXPECT_TRUE(tn::LoadFrom(strPath.c_str(), *tn::MakeIntData(0)));
    }
}

// A text may be read in pieces, with its zero in any of them, and the next value has none of its own.
TEST_F(Saving, TheZeroOfATextIsLookedForInAllOfIt) {
    const std::string strPath = Path("texts.tnr");
    const auto text = [](std::size_t nZero) {
        Bytes content(3000000, 'x');
        content[nZero] = 0;
        return SavedValue(DATA_TYPE_STRING, content);
    };
    const Bytes without = SavedValue(DATA_TYPE_STRING, Bytes(5, 'x'));
    for (const std::size_t nZero : {0U, 1500000U, 2999999U}) {
        WriteBytes(strPath, GroupOf("a", text(nZero)));
        EXPECT_TRUE(tn::LoadFrom(strPath.c_str(), *tn::MakeValueDataGroup()));
        WriteBytes(strPath, U8(1) + U32(2) + SavedString("a") + text(nZero) + SavedString("b") + without);
        EXPECT_FALSE(tn::LoadFrom(strPath.c_str(), *tn::MakeValueDataGroup()));
    }
}

TEST_F(Saving, EveryTypeComesBackNoneIncluded) {
    const Group group = tn::MakeValueDataGroup();
    for (int nType = DATA_TYPE_BOOL; nType <= DATA_TYPE_BYTE; ++nType) {
        const auto value = tn::MakeIntData(0);
        ASSERT_EQ(LoadFrom(*value, SavedValue(nType, BytesOfType(nType))), 1);
        group->SetValue(std::to_string(nType).c_str(), value.get());
    }
    const auto none = tn::MakeIntData(0);
    ASSERT_EQ(LoadFrom(*none, SavedValue(DATA_TYPE_NONE, {})), 1);
    group->SetValue("none", none.get());
    group->SetValue("empty text", "");
    group->SetValue("empty block", "", 0U);
    group->SetValue("two steps", std::string(3000000, 'x').c_str());
    const std::string strPath = Path("types.tnr");
    ASSERT_TRUE(tn::SaveTo(strPath.c_str(), *group));
    const Group loaded = tn::MakeValueDataGroup();
    ASSERT_TRUE(tn::LoadFrom(strPath.c_str(), *loaded));
    EXPECT_EQ(SavedFormOf(*loaded).size(), SavedFormOf(*group).size());
    EXPECT_TRUE(tn::LoadFrom(strPath.c_str(), *loaded)) << "what is there already makes no difference";
}

// A text in front of a small number looks like the beginning of an entry, but only groups have such.
TEST_F(Saving, AnObjectOfOnesOwnMayHoldTextsAndBytesAsItLikes) {
    class Own final : public ITnRobotSerialize {
    public:
        int Serialize(ITnRobotArchive* pArchive) override {
            if (pArchive->IsStoring()) {
                const unsigned char byZero = 0;
                return pArchive->WriteString("flag") == 1 && pArchive->Write(&byZero, 1) == 1 ? 1 : 0;
            }
            int nLength = 0;
            unsigned char byRead = 1;
            return pArchive->ReadString(nLength, nullptr) != nullptr && pArchive->Read(&byRead, 1) == 1 ? 1 : 0;
        }
    } own;
    const std::string strPath = Path("own.tnr");
    ASSERT_TRUE(tn::SaveTo(strPath.c_str(), own));
    EXPECT_TRUE(tn::LoadFrom(strPath.c_str(), own));
}

// Values that the library did not make are saved as their class likes it.
TEST_F(Saving, AValueOfAnotherClassHasASavedFormOfItsOwn) {
    class Own final : public ForeignValue {
    public:
        int Serialize(ITnRobotArchive* pArchive) override {
            short nShort = 7;
            return (pArchive->IsStoring() ? pArchive->Write(&nShort, 2) == 1 : pArchive->Read(&nShort, 2) == 2) ? 1 : 0;
        }
    };
    const auto own = tn::MakeObject<Own>();
    const std::string strPath = Path("own.tnr");
    std::error_code ec;
    ASSERT_TRUE(tn::SaveTo(strPath.c_str(), *own, ec)) << ec.message();
    EXPECT_TRUE(tn::LoadFrom(strPath.c_str(), *own, ec)) << ec.message();
    WriteBytes(strPath, U8(7));
    EXPECT_FALSE(tn::LoadFrom(strPath.c_str(), *own));
}

TEST_F(Saving, AnObjectThatWritesOthersIsFalseAndChangesNothing) {
    const std::string strPath = m_directory.File("graph.tnr", "old");
    EmptyObject child;
    for (CTnRobotObject* pChild : {static_cast<CTnRobotObject*>(&child), static_cast<CTnRobotObject*>(nullptr)}) {
        Parent parent(pChild);
        std::error_code ec;
        EXPECT_FALSE(tn::SaveTo(strPath.c_str(), parent, ec));
        EXPECT_EQ(ec, tn::errc::needs_a_graph);
        EXPECT_FALSE(tn::SaveTo(Path("new.tnr").c_str(), parent));
    }
    EXPECT_EQ(ReadBytes(strPath), FromText("old"));
    EXPECT_EQ(m_directory.Names(), (std::vector<std::string>{"graph.tnr"}));
}

TEST_F(Saving, PathsThatCannotBeOpenedAreFalse) {
    const Group group = Settings();
    for (const std::string& strPath : {Path("missing/settings.tnr"), m_directory.Path().string(), std::string()}) {
        EXPECT_FALSE(tn::SaveTo(strPath.c_str(), *group)) << strPath;
        EXPECT_FALSE(tn::LoadFrom(strPath.c_str(), *group)) << strPath;
    }
    EXPECT_FALSE(tn::SaveTo(nullptr, *group));
    EXPECT_FALSE(tn::LoadFrom(nullptr, *group));
    std::error_code ec;
    EXPECT_FALSE(tn::LoadFrom(Path("missing.tnr").c_str(), *group, ec));
    EXPECT_EQ(ec, std::errc::no_such_file_or_directory);
    EXPECT_TRUE(tn::SaveTo(Path("there.tnr").c_str(), *group, ec));
    EXPECT_FALSE(ec);
    ExpectSettings(*group);
}

TEST_F(Saving, APipeIsFalseForItIsNoRegularFile) {
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
    std::error_code ec;
    EXPECT_FALSE(tn::SaveTo(strPath.c_str(), failing, ec));
    EXPECT_EQ(ec, tn::errc::object_refused);
    EmptyObject working;
    EXPECT_TRUE(tn::SaveTo(strPath.c_str(), working));
    EXPECT_TRUE(tn::LoadFrom(strPath.c_str(), working));
    EXPECT_FALSE(tn::LoadFrom(strPath.c_str(), failing, ec));
    EXPECT_EQ(ec, tn::errc::object_refused);
}
