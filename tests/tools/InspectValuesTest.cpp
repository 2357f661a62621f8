// What tnrobot-inspect says about a value that has a file of its own.

#include <TnRobotKernel/make.h>

#include <string>

#include "support/objects/Values.h"
#include "tools/InspectProgram.h"

using namespace tntest;

namespace {

class InspectValues : public InspectProgram {};

}  // namespace

TEST_F(InspectValues, WhatALibrarySavesIsGood) {
    ASSERT_TRUE(tn::SaveTo((m_directory / "v.tnr").c_str(), *tn::MakeStringData("hi")));
    ExpectOutput({"info", "v.tnr"}, 0,
                 "v.tnr: value, 12 bytes\n"
                 "  type            STRING\n"
                 "  value bytes     3\n"
                 "  condition       good\n");
    ExpectOutput({"dump", "v.tnr"}, 0,
                 "v.tnr: value, 12 bytes, good\n"
                 "  offset    type       bytes     value\n"
                 "  0         STRING     3         hi\n");
    ExpectOutput({"verify", "v.tnr"}, 0, "v.tnr: good (value, 12 bytes)\n");
}

TEST_F(InspectValues, JsonHoldsTheSame) {
    Write("v.tnr", SavedInt(5));
    ExpectOutput({"dump", "--json", "v.tnr"}, 0, R"({
  "file": "v.tnr",
  "kind": "value",
  "bytes": 13,
  "damaged": false,
  "problems": [],
  "value": {
    "type": "INT",
    "offset": 0,
    "bytes": 4,
    "value": 5,
    "text": "5"
  }
}
)");
}

TEST_F(InspectValues, EveryTypeIsRecognised) {
    for (const ValueSample& sample : ValueSamples()) {
        const Bytes bytes = SavedValue(sample.eType, sample.bytes);
        Write("v.tnr", bytes);
        ExpectOutput({"verify", "v.tnr"}, 0, "v.tnr: good (value, " + std::to_string(bytes.size()) + " bytes)\n");
        EXPECT_NE(Run({"dump", "v.tnr"}).output.find("  " + sample.strText + "\n"), std::string::npos)
            << sample.lpszName;
    }
    for (const std::size_t nSize : {std::size_t{0}, std::size_t{8}}) {
        Write("none.tnr", SavedValue(DATA_TYPE_NONE, Bytes(nSize, 0)));
        EXPECT_EQ(Run({"verify", "none.tnr"}).output.rfind("none.tnr: good (value, ", 0), 0U) << nSize;
    }
}

TEST_F(InspectValues, CutOnesAreDamaged) {
    const Bytes whole = SavedText("a text of some length");
    for (std::size_t nSize = 1; nSize < whole.size(); ++nSize) {
        Write("v.tnr", Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(nSize)));
        EXPECT_EQ(Run({"verify", "v.tnr"}).nExitCode, 1) << nSize;
        EXPECT_EQ(Run({"verify", "--kind", "value", "v.tnr"}).nExitCode, 1) << nSize;
    }
    Write("v.tnr", Bytes(whole.begin(), whole.end() - 1));
    ExpectOutput({"verify", "v.tnr"}, 1,
                 "v.tnr: damaged (value, 30 bytes)\n  damage at 0: a value of 22 bytes, but only 21 are left\n");
}

TEST_F(InspectValues, DamageIsSaid) {
    const struct {
        Bytes bytes;
        std::string problem;
    } cases[] = {
        {FromHex("01 0400"), "0: the file ends within the header of a value"},
        {FromHex("02 04000000 04000000 05000000"), "0: value of version 2"},
        {FromHex("01 0B000000 FFFFFFFF"), "0: negative byte count -1"},
        {SavedValue(14, FromHex("00")), "0: there is no type 14"},
        {SavedValue(DATA_TYPE_INT, FromHex("0000")), "0: 2 bytes in a value of type INT, which has 4"},
        {SavedValue(DATA_TYPE_STRING, FromText("abc")), "0: a text without a zero byte at its end"},
        {SavedInt(5) + U8(1), "13: bytes behind the value"},
    };
    for (const auto& damaged : cases) {
        Write("v.tnr", damaged.bytes);
        for (const char* lpszCommand : {"info", "dump", "verify"}) {
            const ChildResult result = Run({lpszCommand, "--kind", "value", "v.tnr"});
            EXPECT_EQ(result.nExitCode, 1) << damaged.problem;
            EXPECT_NE(result.output.find("  damage at " + damaged.problem + "\n"), std::string::npos) << result.output;
        }
    }
}

// A group of two entries that is cut behind its first name "a" has the bytes of a SHORT.
TEST_F(InspectValues, NumbersThatCouldBeACutGroupAreNoted) {
    const Bytes bytes = FromHex("01 02000000") + SavedString("a");
    Write("v.tnr", bytes);
    ExpectOutput({"verify", "v.tnr"}, 0,
                 "v.tnr: good (value, 11 bytes)\n"
                 "  note at 0: a group of 2 entries that was cut behind its first name would have the same bytes\n");
    ExpectOutput({"verify", "--kind", "group", "v.tnr"}, 1,
                 "v.tnr: damaged (value groups, 11 bytes)\n"
                 "  damage at 11: the file ends within the header of a value\n");
}

TEST_F(InspectValues, DiffComparesTypeAndBytes) {
    Write("a.tnr", SavedInt(5));
    Write("b.tnr", SavedInt(6));
    Write("c.tnr", SavedText("5"));
    Write("d.tnr", SavedGroup({{"a", SavedInt(5)}}));
    ExpectOutput({"diff", "a.tnr", "a.tnr"}, 0, "equal\n");
    ExpectOutput({"diff", "a.tnr", "b.tnr"}, 1, "~ value: INT 5 -> INT 6\n");
    ExpectOutput({"diff", "a.tnr", "c.tnr"}, 1, "~ value: INT 5 -> STRING 5\n");
    ExpectOutput({"diff", "a.tnr", "d.tnr"}, 1, "~ kind: value -> value groups\n");
}
