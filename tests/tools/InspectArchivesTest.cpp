// What tnrobot-inspect says about archives that begin with a map header.

#include <string>

#include "tools/InspectProgram.h"

using namespace tntest;

namespace {

class InspectArchives : public InspectProgram {};

const char kArm[] = "c1b7e2d4-63f0-4c58-9e0d-71a5d8f42b90";
const char kTool[] = "5d0c3f1e-9d3a-4f6b-8a44-2b6f3e0c7a11";

Bytes TwoObjects(std::uint64_t nFirst = 0x1122334455667788, const std::string& name = "left") {
    return SavedMapHeader({kArm, kTool}, {{nFirst, 0}, {2, 1}}) + ObjectRecord(true, 0) + SavedString(name);
}

}  // namespace

TEST_F(InspectArchives, InfoSaysWhereItsKnowledgeEnds) {
    Write("g.tnr", TwoObjects());
    ExpectOutput({"info", "g.tnr"}, 0,
                 "g.tnr: archive, 117 bytes\n"
                 "  classes         2\n"
                 "  objects         2\n"
                 "  object data     13 bytes at 104\n"
                 "  begins with     object 0\n"
                 "  not shown       only the program that has the classes can read the objects' own bytes\n"
                 "  condition       good\n");
}

TEST_F(InspectArchives, DumpShowsTheTables) {
    Write("g.tnr", TwoObjects());
    ExpectOutput({"dump", "g.tnr"}, 0,
                 "g.tnr: archive, 117 bytes, good\n"
                 "classes\n"
                 "  offset    class     identifier\n"
                 "  2         0         c1b7e2d4-63f0-4c58-9e0d-71a5d8f42b90\n"
                 "  42        1         5d0c3f1e-9d3a-4f6b-8a44-2b6f3e0c7a11\n"
                 "objects\n"
                 "  offset    object    class     identity\n"
                 "  84        0         0         0x1122334455667788\n"
                 "  94        1         1         0x0000000000000002\n"
                 "object data: 13 bytes at 104\n"
                 "  not shown: only the program that has the classes can read the objects' own bytes\n");
}

TEST_F(InspectArchives, JsonHoldsTheSame) {
    Write("g.tnr", SavedMapHeader({"x"}, {{255, 0}}) + ObjectRecord(true, 0));
    ExpectOutput({"dump", "g.tnr", "--json"}, 0, R"({
  "file": "g.tnr",
  "kind": "archive",
  "bytes": 23,
  "damaged": false,
  "problems": [],
  "classes": [
    {
      "offset": 2,
      "identifier": "x"
    }
  ],
  "objects": [
    {
      "offset": 9,
      "class": 0,
      "identity": "0x00000000000000ff"
    }
  ],
  "objectData": {
    "offset": 19,
    "bytes": 4,
    "notShown": "only the program that has the classes can read the objects' own bytes"
  }
}
)");
}

TEST_F(InspectArchives, JsonKeepsTheBytesOfIdentifiers) {
    Write("g.tnr", SavedMapHeader({"x\xfe"}, {{255, 0}}) + ObjectRecord(true, 0));
    const ChildResult result = Run({"dump", "--kind", "archive", "g.tnr", "--json"});
    EXPECT_NE(result.output.find("      \"identifier\": \"x\\\\xfe\",\n      \"identifierHex\": \"78fe\"\n"),
              std::string::npos)
        << result.output;
}

TEST_F(InspectArchives, TablesAloneAreGood) {
    Write("g.tnr", SavedMapHeader({kArm}, {{1, 0}}));
    ExpectOutput({"verify", "g.tnr"}, 0,
                 "g.tnr: good (archive, 54 bytes)\n  note at 54: no objects follow the tables\n");
    Write("empty.tnr", SavedMapHeader({}, {}));
    ExpectOutput({"verify", "empty.tnr"}, 0, "empty.tnr: good (archive, 4 bytes)\n");
}

TEST_F(InspectArchives, DamageIsSaid) {
    const struct {
        Bytes bytes;
        std::string problem;
    } cases[] = {
        {SavedMapHeader({kArm}, {{1, 5}}), "44: object of class 5, but there are 1 classes"},
        {SavedMapHeader({kArm}, {{1, 0}}) + ObjectRecord(true, 9),
         "54: the first object record names object 9, but there are 1 objects"},
        {SavedMapHeader({kArm}, {{1, 0}}) + FromHex("0101"), "54: the file ends within the first object record"},
        {U16(1) + U32(36) + FromText(kArm), "42: the file ends where the number of objects should be"},
        {U16(2) + U32(36) + FromText(kArm), "42: the file ends after 1 of 2 classes"},
        {U16(2) + U32(36) + FromText(kArm) + U32(0xFFFFFFFF),
         "42: a class identifier of 4294967295 bytes, but only 0 are left"},
        {U16(1) + U32(36) + FromText(kArm) + U16(3) + U64(1), "44: the file ends after 0 of 3 objects"},
    };
    for (const auto& damaged : cases) {
        Write("g.tnr", damaged.bytes);
        for (const char* lpszCommand : {"info", "dump", "verify"}) {
            const ChildResult result = Run({lpszCommand, "g.tnr"});
            EXPECT_EQ(result.nExitCode, 1) << damaged.problem;
            EXPECT_NE(result.output.find("  damage at " + damaged.problem + "\n"), std::string::npos) << result.output;
        }
    }
}

TEST_F(InspectArchives, DiffIgnoresIdentities) {
    Write("a.tnr", TwoObjects(1));
    Write("b.tnr", TwoObjects(77));
    ExpectOutput({"diff", "a.tnr", "b.tnr"}, 0, "equal\n");
}

TEST_F(InspectArchives, DiffSaysWhereObjectDataBeginsToDiffer) {
    Write("a.tnr", TwoObjects(1, "left"));
    Write("b.tnr", TwoObjects(1, "lest!"));
    ExpectOutput({"diff", "a.tnr", "b.tnr"}, 1, "~ object data: 13 -> 14 bytes, equal up to byte 4\n");
}

TEST_F(InspectArchives, DiffComparesTables) {
    Write("a.tnr", SavedMapHeader({kArm}, {{1, 0}}));
    Write("b.tnr", SavedMapHeader({kArm, kTool}, {{1, 1}, {2, 0}}));
    ExpectOutput({"diff", "a.tnr", "b.tnr"}, 1,
                 std::string("~ object 0: ") + kArm + " -> " + kTool + "\n+ object 1: " + kArm +
                     "\n~ class table: 1 -> 2 classes\n");
}

TEST_F(InspectArchives, DifferentKindsDiffer) {
    Write("a.tnr", SavedMapHeader({kArm}, {{1, 0}}));
    Write("b.tnr", SavedGroup({{"a", SavedInt(1)}}));
    ExpectOutput({"diff", "a.tnr", "b.tnr"}, 1, "~ kind: archive -> value groups\n");
}
