// A group's file as a build for x86-64 wrote it, kept beside this test. Robots of different
// processors exchange such files, so every build writes the same bytes and reads the same values,
// also where a plain char has no negative numbers.

#include <gtest/gtest.h>

#include <limits>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "TnRobotKernel/TnRobotKernel.h"
#include "support/bytes/FileBytes.h"
#include "support/objects/Archives.h"
#include "support/objects/Files.h"
#include "support/objects/Groups.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

namespace {

constexpr const char* kKeptFile = TNROBOT_TEST_SAVED_FILES "/every_type.group";

struct Entry {
    const char* lpszName;
    Value value;
    std::string strText;  ///< the text form
};

char Char(int nValue) {
    return static_cast<char>(static_cast<signed char>(nValue));
}

Bytes EveryByte() {
    Bytes bytes(256);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
    return bytes;
}

std::string EveryByteText() {
    std::string strText;
    for (const unsigned char by : EveryByte()) {
        strText += {"0123456789abcdef"[by / 16], "0123456789abcdef"[by % 16]};
    }
    return strText;
}

// In the order of the file.
std::vector<Entry> Entries() {
    std::vector<Entry> entries;
    const auto add = [&entries](const char* lpszName, Value value, std::string strText) {
        entries.push_back({lpszName, std::move(value), std::move(strText)});
    };
    add("char x", Made(TnCreateRobotCharData, 'x'), "x");
    add("char 0", Made(TnCreateRobotCharData, '\0'), "");
    add("char 127", Made(TnCreateRobotCharData, Char(127)), "\x7F");
    add("char -128", Made(TnCreateRobotCharData, Char(-128)), "\x80");
    add("char -61", Made(TnCreateRobotCharData, Char(-61)), "\xC3");
    add("char -2", Made(TnCreateRobotCharData, Char(-2)), "\xFE");
    add("char -1", Made(TnCreateRobotCharData, Char(-1)), "\xFF");
    add("byte 200", Made(TnCreateRobotByteData, static_cast<unsigned short>(200)), "200");
    add("bool", BoolValue(true), "1");
    add("short", Made(TnCreateRobotShortData, std::numeric_limits<short>::min()), "-32768");
    add("ushort", Made(TnCreateRobotUShortData, std::numeric_limits<unsigned short>::max()), "65535");
    add("int", IntValue(std::numeric_limits<int>::min()), "-2147483648");
    add("uint", Made(TnCreateRobotUintData, std::numeric_limits<unsigned int>::max()), "4294967295");
    add("float", Made(TnCreateRobotFloatData, -0.1F), "-0.100000");
    add("double", DoubleValue(-1e-300), "-0.000000");
    add("longlong", Made(TnCreateRobotLonglongData, std::numeric_limits<long long>::min()), "-9223372036854775808");
    add("ulonglong", Made(TnCreateRobotULonglongData, std::numeric_limits<unsigned long long>::max()), "-1");
    add("gr\xC3\xB6\xC3\x9F"
        "e",
        TextValue("\x80 \xFF \xC3\xA4"), "\x80 \xFF \xC3\xA4");
    add("\x80\xFF", TextValue(""), "");
    add("block", BlockValue(EveryByte()), EveryByteText());
    return entries;
}

Group GroupOf(const std::vector<Entry>& entries) {
    Group group = NewGroup();
    for (const Entry& entry : entries) {
        group->SetValue(entry.lpszName, entry.value.get());
    }
    return group;
}

void SaveTo(const std::string& path, ITnRobotDataValueGroup& group) {
    const auto file = MakeFile();
    const auto archive = MakeArchive();
    ASSERT_TRUE(file->Open(path.c_str(), true));
    ASSERT_TRUE(archive->Attach(file.get(), true));
    EXPECT_EQ(group.Serialize(archive.get()), 1);
    archive->Flush();
    archive->Detach();
    EXPECT_TRUE(file->Close());
}

Group LoadedFrom(const std::string& path) {
    Group group = NewGroup();
    const auto file = MakeFile();
    const auto archive = MakeArchive();
    EXPECT_TRUE(file->Open(path.c_str(), false));
    EXPECT_TRUE(archive->Attach(file.get(), false));
    EXPECT_EQ(group->Serialize(archive.get()), 1);
    archive->Detach();
    return group;
}

// A loaded value keeps the length of a new one, and the text of a block goes by that.
std::string LoadedText(const Entry& entry) {
    constexpr std::size_t kDigitsOfANewValue = 16;
    const bool bBlock = entry.value->GetDataValueType() == DATA_TYPE_BLOCK;
    return bBlock ? entry.strText.substr(0, kDigitsOfANewValue) : entry.strText;
}

Value Named(ITnRobotDataValueGroup& group, const char* lpszName) {
    ITnRobotDataValue* pValue = nullptr;
    group.GetValue(lpszName, &pValue);
    return tn::Adopt(pValue);
}

}  // namespace

TEST(SavedGroupFile, IsWrittenAsOnEveryProcessor) {
    const TempDirectory directory;
    const std::string path = directory / "written.group";
    SaveTo(path, *GroupOf(Entries()));
    EXPECT_FALSE(ReadBytes(kKeptFile).empty());
    EXPECT_EQ(ReadBytes(path), ReadBytes(kKeptFile));
}

TEST(SavedGroupFile, OfAnotherProcessorGivesTheSameValues) {
    const Group group = LoadedFrom(kKeptFile);
    for (const Entry& entry : Entries()) {
        SCOPED_TRACE(entry.lpszName);
        const Value loaded = Named(*group, entry.lpszName);
        ASSERT_NE(loaded, nullptr);
        ASSERT_EQ(loaded->GetDataValueType(), entry.value->GetDataValueType());
        EXPECT_EQ(SavedFormOf(*loaded), SavedFormOf(*entry.value));
        EXPECT_EQ(entry.value->Convert2String(nullptr), entry.strText);
        EXPECT_EQ(loaded->Convert2String(nullptr), LoadedText(entry));
    }
}

// A char is the same eight bits everywhere; which number they make is the application's compiler's
// choice, and signed char makes it the one of x86-64.
TEST(SavedGroupFile, CharactersAreTheSameBitsOnEveryProcessor) {
    const Group group = LoadedFrom(kKeptFile);
    const struct {
        const char* lpszName;
        int nSigned;
        char chExpected;
    } rows[] = {
        {"char x", 120, 'x'},      {"char 0", 0, '\0'},     {"char 127", 127, '\x7F'}, {"char -128", -128, '\x80'},
        {"char -61", -61, '\xC3'}, {"char -2", -2, '\xFE'}, {"char -1", -1, '\xFF'},
    };
    for (const auto& row : rows) {
        int nError = -1;
        const char chRead = group->CharData(row.lpszName, &nError);
        EXPECT_EQ(nError, 0) << row.lpszName;
        EXPECT_EQ(chRead, row.chExpected) << row.lpszName;
        EXPECT_EQ(static_cast<signed char>(chRead), row.nSigned) << row.lpszName;
    }
}

TEST(SavedGroupFile, LoadedAndSavedAgainIsTheSame) {
    const TempDirectory directory;
    const std::string path = directory / "again.group";
    SaveTo(path, *LoadedFrom(kKeptFile));
    EXPECT_EQ(ReadBytes(path), ReadBytes(kKeptFile));
}
