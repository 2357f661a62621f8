// What tnrobot-inspect says about value groups.

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>

#include "TnRobotKernel/make.h"
#include "support/objects/Values.h"
#include "tools/InspectProgram.h"

using namespace tntest;

namespace {

class InspectGroups : public InspectProgram {};

Bytes SmallGroup() {
    return SavedGroup({{"a", SavedInt(5)}, {"text", SavedText("hi")}});
}

// A group with one entry of type INT, as `dump --json` prints it.
std::string JsonGroup(int nOffset, int nBytes, int nDeclared, const std::string& name, int nValue) {
    const std::string value = std::to_string(nValue);
    return R"(    {
      "offset": )" +
           std::to_string(nOffset) + R"(,
      "bytes": )" +
           std::to_string(nBytes) + R"(,
      "declared": )" +
           std::to_string(nDeclared) + R"(,
      "entries": [
        {
          "name": ")" +
           name + R"(",
          "type": "INT",
          "offset": )" +
           std::to_string(nOffset + 5) + R"(,
          "bytes": 4,
          "value": )" +
           value + R"(,
          "text": ")" +
           value + R"("
        }
      ]
    })";
}

}  // namespace

TEST_F(InspectGroups, InfoCounts) {
    Write("g.tnr", SmallGroup());
    ExpectOutput({"info", "g.tnr"}, 0,
                 "g.tnr: value groups, 45 bytes\n"
                 "  groups          1\n"
                 "  entries         2\n"
                 "  condition       good\n");
}

TEST_F(InspectGroups, DumpShowsPositionsTypesAndValues) {
    Write("g.tnr", SmallGroup());
    ExpectOutput({"dump", "g.tnr"}, 0,
                 "g.tnr: value groups, 45 bytes, good\n"
                 "group 0 at 0: 2 entries, 45 bytes\n"
                 "  offset    type       bytes     name  value\n"
                 "  5         INT        4         a     5\n"
                 "  24        STRING     3         text  hi\n");
}

TEST_F(InspectGroups, SeveralGroupsFollowEachOther) {
    Write("g.tnr", SavedGroup({{"a", SavedInt(1)}}) + SavedGroup({}));
    ExpectOutput({"dump", "g.tnr"}, 0,
                 "g.tnr: value groups, 29 bytes, good\n"
                 "group 0 at 0: 1 entries, 24 bytes\n"
                 "  offset    type       bytes     name  value\n"
                 "  5         INT        4         a     1\n"
                 "group 1 at 24: 0 entries, 5 bytes\n"
                 "  offset    type       bytes     name  value\n");
}

TEST_F(InspectGroups, FilesOfManyGroupsAreGoodAsTheyAreWritten) {
    tn::GroupFileWriter writer((m_directory / "g.tnr").c_str());
    for (int i = 0; i < 3; ++i) {
        const auto group = tn::MakeValueDataGroup();
        tn::Set(*group, "a", i);
        ASSERT_TRUE(writer.Write(*group));
    }
    ASSERT_TRUE(writer.Save());
    ExpectOutput({"verify", "g.tnr"}, 0, "g.tnr: good (value groups, 72 bytes)\n");
    ExpectOutput({"dump", "g.tnr"}, 0,
                 "g.tnr: value groups, 72 bytes, good\n"
                 "group 0 at 0: 1 entries, 24 bytes\n"
                 "  offset    type       bytes     name  value\n"
                 "  5         INT        4         a     0\n"
                 "group 1 at 24: 1 entries, 24 bytes\n"
                 "  offset    type       bytes     name  value\n"
                 "  29        INT        4         a     1\n"
                 "group 2 at 48: 1 entries, 24 bytes\n"
                 "  offset    type       bytes     name  value\n"
                 "  53        INT        4         a     2\n");
}

TEST_F(InspectGroups, JsonHoldsTheSame) {
    Write("g.tnr", SavedGroup({{"a", SavedInt(5)}}));
    ExpectOutput({"dump", "--json", "g.tnr"}, 0, R"({
  "file": "g.tnr",
  "kind": "value groups",
  "bytes": 24,
  "damaged": false,
  "problems": [],
  "groups": [
)" + JsonGroup(0, 24, 1, "a", 5) + R"(
  ]
}
)");
}

TEST_F(InspectGroups, EveryTypeHasTheLibrarysText) {
    std::vector<std::pair<std::string, Bytes>> entries;
    for (const ValueSample& sample : ValueSamples()) {
        entries.emplace_back(sample.lpszName, SavedValue(sample.eType, sample.bytes));
    }
    entries.emplace_back("none", SavedValue(DATA_TYPE_NONE, Bytes(8, 0)));
    Write("g.tnr", SavedGroup(entries));
    const ChildResult result = Run({"dump", "g.tnr"});
    EXPECT_EQ(result.nExitCode, 0);
    std::string values;
    for (std::size_t nLine = result.output.find("  5 "); nLine < result.output.size();) {
        const std::size_t nEnd = result.output.find('\n', nLine);
        const std::string line = result.output.substr(nLine, nEnd - nLine);
        values += line.substr(line.rfind(' ') + 1) + "\n";
        nLine = nEnd + 1;
    }
    std::string expected;
    for (const ValueSample& sample : ValueSamples()) {
        expected += sample.strText + "\n";
    }
    EXPECT_EQ(values, expected + "0000000000000000\n");
}

TEST_F(InspectGroups, NumbersKeepTheirKindInJson) {
    const double dNotANumber = std::numeric_limits<double>::quiet_NaN();
    Write("g.tnr", SavedGroup({{"b", SavedValue(DATA_TYPE_BOOL, FromHex("01"))},
                               {"d", SavedValue(DATA_TYPE_DOUBLE, BytesOf(0.1))},
                               {"n", SavedValue(DATA_TYPE_DOUBLE, BytesOf(dNotANumber))},
                               {"u", SavedValue(DATA_TYPE_ULONGLONG, Bytes(8, 0xFF))},
                               {"x", SavedValue(DATA_TYPE_BLOCK, FromHex("0AFF"))}}));
    const ChildResult result = Run({"dump", "--json", "g.tnr"});
    EXPECT_EQ(result.nExitCode, 0);
    for (const char* lpszExpected : {R"("value": true,)", R"("value": 0.1,)", R"("value": null,)",
                                     R"("value": 18446744073709551615,)", R"("text": "-1")", R"("value": "0aff",)"}) {
        EXPECT_NE(result.output.find(lpszExpected), std::string::npos) << lpszExpected << "\n" << result.output;
    }
}

// No text of a file reaches a terminal as it is, and JSON is always UTF-8.
TEST_F(InspectGroups, TextsAreMadeHarmless) {
    Write("g.tnr", SavedGroup({{"a\x1b[2J", SavedText("x\n\xff\xc3\xbc\xc2\x9b")}}));
    ExpectOutput({"dump", "g.tnr"}, 0,
                 "g.tnr: value groups, 32 bytes, good\n"
                 "group 0 at 0: 1 entries, 32 bytes\n"
                 "  offset    type       bytes     name      value\n"
                 "  5         STRING     8         a\\x1b[2J  x\\n\\xff\xc3\xbc\\xc2\\x9b\n");
    const ChildResult result = Run({"dump", "--json", "g.tnr"});
    EXPECT_NE(result.output.find(R"("value": "x\\n\\xff)"), std::string::npos) << result.output;
}

// Marks, embeddings, overrides and isolates change the order in which a terminal shows what follows,
// separators end a line.
TEST_F(InspectGroups, TextsThatChangeTheWritingDirectionAreEscaped) {
    const struct {
        const char* lpszText;
        const char* lpszShown;
        const char* lpszJson;
    } cases[] = {
        {"\xd8\x9c", "\\xd8\\x9c", "\\u061c"},
        {"\xe2\x80\x8e", "\\xe2\\x80\\x8e", "\\u200e"},
        {"\xe2\x80\x8f", "\\xe2\\x80\\x8f", "\\u200f"},
        {"\xe2\x80\xa8", "\\xe2\\x80\\xa8", "\\u2028"},
        {"\xe2\x80\xaa", "\\xe2\\x80\\xaa", "\\u202a"},
        {"\xe2\x80\xae", "\\xe2\\x80\\xae", "\\u202e"},
        {"\xe2\x81\xa6", "\\xe2\\x81\\xa6", "\\u2066"},
        {"\xe2\x81\xa9", "\\xe2\\x81\\xa9", "\\u2069"},
        {"\xc2\x9b", "\\xc2\\x9b", "\\u009b"},
        {"\x7f", "\\x7f", "\\u007f"},
        {"\xe2\x80\xaf", "\xe2\x80\xaf", "\xe2\x80\xaf"},
        {"\xe2\x81\xaa", "\xe2\x81\xaa", "\xe2\x81\xaa"},
    };
    for (const auto& text : cases) {
        const std::string name = std::string("a") + text.lpszText;
        Write(name, SavedGroup({{name, SavedText(name)}}));
        const std::string shown = std::string("a") + text.lpszShown;
        const ChildResult dump = Run({"dump", name});
        EXPECT_EQ(dump.output.rfind(shown + ": value groups", 0), 0U) << dump.output;
        EXPECT_NE(dump.output.find(" " + shown + " "), std::string::npos) << dump.output;
        EXPECT_NE(dump.output.find("  " + shown + "\n"), std::string::npos) << dump.output;
        const ChildResult json = Run({"dump", "--json", name});
        EXPECT_NE(json.output.find("\"value\": \"a" + std::string(text.lpszJson) + "\""), std::string::npos)
            << json.output;
        EXPECT_EQ(nlohmann::json::parse(json.output)["groups"][0]["entries"][0]["name"], name);
    }
}

TEST_F(InspectGroups, JsonTellsABytesEscapeFromTheSameText) {
    Write("g.tnr", SavedGroup({{"byte", SavedText("\xff")},
                               {"text", SavedText("\\xff")},
                               {"n\xff", SavedInt(1)},
                               {"char", SavedValue(DATA_TYPE_CHAR, FromHex("E900"))}}));
    const auto entries = nlohmann::json::parse(Run({"dump", "--json", "g.tnr"}).output)["groups"][0]["entries"];
    EXPECT_EQ(entries[0]["value"], "\\xff");
    EXPECT_EQ(entries[0]["valueHex"], "ff");
    EXPECT_EQ(entries[0]["textHex"], "ff");
    EXPECT_EQ(entries[1]["value"], "\\xff");
    EXPECT_FALSE(entries[1].contains("valueHex"));
    EXPECT_FALSE(entries[1].contains("textHex"));
    EXPECT_EQ(entries[2]["name"], "n\\xff");
    EXPECT_EQ(entries[2]["nameHex"], "6eff");
    EXPECT_EQ(entries[3]["valueHex"], "e9");
}

// Texts are handed on in pieces; no character and no escape may be lost where two of them meet.
TEST_F(InspectGroups, LongTextsComeOutWhole) {
    std::string text;
    for (int i = 0; i < 20000; ++i) {
        text += i % 7 == 0 ? "\xf0\x9f\xa4\x96" : i % 5 == 0 ? "\xc3\xbc" : i % 3 == 0 ? "\"\\\n" : "a";
    }
    Write("g.tnr", SavedGroup({{text, SavedText(text)}, {"bytes", SavedText(text + "\xf0\x9f" + text)}}));
    const auto entries = nlohmann::json::parse(Run({"dump", "--json", "g.tnr"}).output)["groups"][0]["entries"];
    EXPECT_EQ(entries[0]["name"], text);
    EXPECT_EQ(entries[0]["value"], text);
    std::string hex;
    for (const char ch : text + "\xf0\x9f" + text) {
        constexpr char kDigits[] = "0123456789abcdef";
        hex += {kDigits[static_cast<unsigned char>(ch) / 16], kDigits[static_cast<unsigned char>(ch) % 16]};
    }
    EXPECT_EQ(entries[1]["valueHex"], hex);
    std::string printed;
    for (const char ch : text) {
        printed += ch == '\n' ? std::string("\\n") : std::string(1, ch);
    }
    const std::string full = Run({"dump", "--full", "g.tnr"}).output;
    EXPECT_NE(full.find("  " + printed + "  " + printed + "\n"), std::string::npos);
}

// What is wrong is known before the first entry is printed, and what could be read follows.
TEST_F(InspectGroups, JsonOfAFileThatIsDamagedMidwayIsWhole) {
    Bytes cut = SavedGroup({{"a", SavedInt(1)}}) + SavedGroup({{"b", SavedInt(2)}, {"c", SavedInt(3)}});
    cut.pop_back();
    Write("g.tnr", cut);
    ExpectOutput({"dump", "--json", "g.tnr"}, 1, R"({
  "file": "g.tnr",
  "kind": "value groups",
  "bytes": 66,
  "damaged": true,
  "problems": [
    {
      "severity": "damage",
      "offset": 54,
      "text": "a value of 4 bytes, but only 3 are left"
    }
  ],
  "groups": [
)" + JsonGroup(0, 24, 1, "a", 1) + R"(,
)" + JsonGroup(24, 39, 2, "b", 2) + R"(
  ]
}
)");
    for (std::size_t nSize = cut.size(); nSize > 0; --nSize) {
        Write("g.tnr", Bytes(cut.begin(), cut.begin() + static_cast<std::ptrdiff_t>(nSize)));
        const ChildResult result = Run({"dump", "--json", "--kind", "group", "g.tnr"});
        const auto json = nlohmann::json::parse(result.output, nullptr, false);
        ASSERT_TRUE(json.is_object()) << nSize << "\n" << result.output;
        EXPECT_EQ(json["damaged"], result.nExitCode == 1) << nSize;
        EXPECT_EQ(json["problems"].empty(), result.nExitCode == 0) << nSize;
    }
}

// More entries than the library is given at a time.
TEST_F(InspectGroups, LargeGroupsAreCheckedAsAWhole) {
    std::vector<std::pair<std::string, Bytes>> entries;
    for (int i = 0; i < 10000; ++i) {
        entries.emplace_back("n" + std::to_string(i),
                             i == 5000 ? SavedValue(DATA_TYPE_BLOCK, Bytes(2 << 20, 1)) : SavedInt(i));
    }
    Write("g.tnr", SavedGroup(entries));
    EXPECT_EQ(Run({"verify", "g.tnr"}).nExitCode, 0);
    std::string all = "  entries         10000\n";
    EXPECT_NE(Run({"info", "g.tnr"}).output.find(all), std::string::npos);
    entries[9999].first = "n0";
    entries[7].first = "n3";
    Write("g.tnr", SavedGroup(entries));
    const ChildResult result = Run({"verify", "g.tnr"});
    EXPECT_EQ(result.nExitCode, 1);
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 3) << result.output;
    EXPECT_NE(result.output.find("damage at 145: the name is there already"), std::string::npos) << result.output;
}

TEST_F(InspectGroups, LongValuesAreCutInTheTableOnly) {
    const std::string text(100, 'y');
    Write("g.tnr", SavedGroup({{"a", SavedText(text)}}));
    EXPECT_NE(Run({"dump", "g.tnr"}).output.find(" " + text.substr(0, 60) + "...\n"), std::string::npos);
    EXPECT_NE(Run({"dump", "--full", "g.tnr"}).output.find(" " + text + "\n"), std::string::npos);
    EXPECT_NE(Run({"dump", "--json", "g.tnr"}).output.find("\"" + text + "\""), std::string::npos);
}

struct DamagedGroup {
    const char* lpszName;
    Bytes bytes;
    std::string problem;  ///< the line that tells of it
};

void PrintTo(const DamagedGroup& damaged, std::ostream* pStream) {
    *pStream << damaged.lpszName;
}

class InspectDamagedGroups : public InspectProgram, public ::testing::WithParamInterface<DamagedGroup> {};

TEST_P(InspectDamagedGroups, IsSaid) {
    Write("g.tnr", GetParam().bytes);
    for (const char* lpszCommand : {"info", "dump", "verify"}) {
        const ChildResult result = Run({lpszCommand, "--kind", "group", "g.tnr"});
        EXPECT_EQ(result.nExitCode, 1) << lpszCommand;
        EXPECT_NE(result.output.find("  damage at " + GetParam().problem + "\n"), std::string::npos) << result.output;
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, InspectDamagedGroups,
    ::testing::Values(
        DamagedGroup{"version", FromHex("02 00000000"), "0: group of version 2"},
        DamagedGroup{"count", FromHex("01 0000"), "1: the file ends within the entry count"},
        DamagedGroup{"negative_count", FromHex("01 FFFFFFFF"), "1: negative entry count -1"},
        DamagedGroup{"missing_entries", FromHex("01 02000000") + SavedString("a") + SavedInt(1),
                     "24: the file ends after 1 of 2 entries"},
        DamagedGroup{"name_length", FromHex("01 01000000 FFFFFFFF"), "5: negative length -1 of a name"},
        DamagedGroup{"long_name", FromHex("01 01000000 FFFFFF7F 6162"),
                     "5: a name of 2147483647 bytes, but only 2 are left"},
        DamagedGroup{"value_version", SavedGroup({{"a", FromHex("07 04000000 04000000 00000000")}}),
                     "11: value of version 7"},
        DamagedGroup{"value_type", SavedGroup({{"a", SavedValue(14, FromHex("00"))}}), "11: there is no type 14"},
        DamagedGroup{"value_size", SavedGroup({{"a", SavedValue(DATA_TYPE_INT, FromHex("0000"))}}),
                     "11: 2 bytes in a value of type INT, which has 4"},
        DamagedGroup{"value_count", SavedGroup({{"a", FromHex("01 0B000000 FFFFFF7F 00")}}),
                     "11: a value of 2147483647 bytes, but only 1 are left"},
        DamagedGroup{"open_text", SavedGroup({{"a", SavedValue(DATA_TYPE_STRING, FromText("abc"))}}),
                     "11: a text without a zero byte at its end"},
        DamagedGroup{"twice", SavedGroup({{"a", SavedInt(1)}, {"a", SavedInt(2)}}),
                     "24: the name is there already: the library keeps the first value"},
        DamagedGroup{"rest", SavedGroup({}) + FromHex("02"), "5: bytes behind the last group that are no group"}),
    [](const auto& damaged) { return std::string(damaged.param.lpszName); });

TEST_F(InspectGroups, EveryCutFileIsDamaged) {
    const Bytes whole = SavedGroup({{"text", SavedText("hi")}, {"a", SavedInt(5)}});
    for (std::size_t nSize = 1; nSize < whole.size(); ++nSize) {
        Write("g.tnr", Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(nSize)));
        const ChildResult result = Run({"verify", "g.tnr"});
        EXPECT_EQ(result.nExitCode, 1) << nSize << "\n" << result.output;
    }
}

TEST_F(InspectGroups, ManyProblemsAreCounted) {
    Write("g.tnr", SavedGroup(std::vector<std::pair<std::string, Bytes>>(1101, {"a", SavedInt(1)})));
    const ChildResult result = Run({"verify", "g.tnr"});
    EXPECT_EQ(result.nExitCode, 1);
    EXPECT_NE(result.output.find("the first value\n  and 100 more\n"), std::string::npos);
    EXPECT_NE(Run({"dump", "--json", "g.tnr"}).output.find("\"moreProblems\": 100,"), std::string::npos);
}

TEST_F(InspectGroups, DiffOfEqualGroupsIgnoresTheirOrder) {
    Write("a.tnr", SavedGroup({{"a", SavedInt(1)}, {"b", SavedInt(2)}}));
    Write("b.tnr", SavedGroup({{"b", SavedInt(2)}, {"a", SavedInt(1)}}));
    ExpectOutput({"diff", "a.tnr", "b.tnr"}, 0, "equal\n");
}

TEST_F(InspectGroups, DiffNamesWhatWasAddedRemovedAndChanged) {
    Write("a.tnr", SavedGroup({{"gone", SavedInt(1)},
                               {"kept", SavedInt(2)},
                               {"n", SavedInt(3)},
                               {"t", SavedInt(4)},
                               {"z", SavedValue(DATA_TYPE_DOUBLE, BytesOf(1.0))}}));
    Write("b.tnr", SavedGroup({{"kept", SavedInt(2)},
                               {"n", SavedInt(33)},
                               {"new", SavedText("x")},
                               {"t", SavedText("4")},
                               {"z", SavedValue(DATA_TYPE_DOUBLE, BytesOf(1.0000000000000002))}}));
    ExpectOutput({"diff", "a.tnr", "b.tnr"}, 1,
                 "- gone: INT 1\n"
                 "~ n: INT 3 -> INT 33\n"
                 "~ t: INT 4 -> STRING 4\n"
                 "~ z: DOUBLE 1.000000 (000000000000f03f) -> DOUBLE 1.000000 (010000000000f03f)\n"
                 "+ new: STRING x\n");
}

TEST_F(InspectGroups, DiffComparesGroupByGroup) {
    Write("a.tnr", SavedGroup({{"a", SavedInt(1)}}) + SavedGroup({{"a", SavedInt(2)}}));
    Write("b.tnr", SavedGroup({{"a", SavedInt(1)}}) + SavedGroup({{"a", SavedInt(3)}}) + SavedGroup({}));
    ExpectOutput({"diff", "a.tnr", "b.tnr"}, 1, "~ group 1, a: INT 2 -> INT 3\n+ group 2 of 0 entries\n");
}

TEST_F(InspectGroups, DiffOfADamagedFileIsNeverEqual) {
    const Bytes damaged = FromHex("01 02000000") + SavedString("a") + SavedInt(1);
    Write("a.tnr", damaged);
    ExpectOutput({"diff", "a.tnr", "a.tnr"}, 1,
                 "a.tnr: damaged\n  damage at 24: the file ends after 1 of 2 entries\n"
                 "a.tnr: damaged\n  damage at 24: the file ends after 1 of 2 entries\n");
}
