// What tnrobot-inspect says about archives that begin with a map header.

#include <string>

#include "tools/InspectProgram.h"

using namespace tntest;

namespace {

class InspectArchives : public InspectProgram {};

const char kArm[] = "c1b7e2d4-63f0-4c58-9e0d-71a5d8f42b90";
const char kTool[] = "5d0c3f1e-9d3a-4f6b-8a44-2b6f3e0c7a11";

Bytes TwoObjects(std::uint64_t nFirst = 0x1122334455667788, const std::string& name = "left") {
    return SavedMapHeader({kArm, kTool}, {{nFirst, 0}, {2, 1}}) + ObjectRecord(true, 0) + SavedString(name) +
           ObjectRecord(true, 1);
}

// What is wrong with a file, as `verify` says it; nothing of one that is as it should be.
std::string DamageIn(const ChildResult& result) {
    const std::size_t nDamage = result.output.find("  damage at ");
    EXPECT_EQ(result.nExitCode, nDamage == std::string::npos ? 0 : 1) << result.output;
    return nDamage == std::string::npos ? "" : result.output.substr(nDamage);
}

}  // namespace

TEST_F(InspectArchives, InfoSaysWhereItsKnowledgeEnds) {
    Write("g.tnr", TwoObjects());
    ExpectOutput({"info", "g.tnr"}, 0,
                 "g.tnr: archive, 121 bytes\n"
                 "  classes         2\n"
                 "  objects         2\n"
                 "  object data     17 bytes at 104\n"
                 "  begins with     object 0\n"
                 "  not shown       only the program that has the classes can read the objects' own bytes\n"
                 "  condition       tables good, objects not checked\n");
}

TEST_F(InspectArchives, DumpShowsTheTables) {
    Write("g.tnr", TwoObjects());
    ExpectOutput({"dump", "g.tnr"}, 0,
                 "g.tnr: archive, 121 bytes, tables good, objects not checked\n"
                 "classes\n"
                 "  offset    class     identifier\n"
                 "  2         0         c1b7e2d4-63f0-4c58-9e0d-71a5d8f42b90\n"
                 "  42        1         5d0c3f1e-9d3a-4f6b-8a44-2b6f3e0c7a11\n"
                 "objects\n"
                 "  offset    object    class     identity\n"
                 "  84        0         0         0x1122334455667788\n"
                 "  94        1         1         0x0000000000000002\n"
                 "object data: 17 bytes at 104\n"
                 "  not shown: only the program that has the classes can read the objects' own bytes\n");
}

TEST_F(InspectArchives, JsonHoldsTheSame) {
    Write("g.tnr", SavedMapHeader({kArm}, {{255, 0}}) + ObjectRecord(true, 0));
    ExpectOutput({"dump", "g.tnr", "--json"}, 0, R"({
  "file": "g.tnr",
  "kind": "archive",
  "bytes": 58,
  "damaged": false,
  "problems": [],
  "classes": [
    {
      "offset": 2,
      "identifier": "c1b7e2d4-63f0-4c58-9e0d-71a5d8f42b90"
    }
  ],
  "objects": [
    {
      "offset": 44,
      "class": 0,
      "identity": "0x00000000000000ff"
    }
  ],
  "objectData": {
    "offset": 54,
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

TEST_F(InspectArchives, TablesWithoutAnObjectAreGood) {
    Write("classes.tnr", SavedMapHeader({kArm}, {}));
    ExpectOutput({"verify", "classes.tnr"}, 0, "classes.tnr: good (archive, 44 bytes)\n");
    Write("empty.tnr", SavedMapHeader({}, {}));
    ExpectOutput({"verify", "empty.tnr"}, 0, "empty.tnr: good (archive, 4 bytes)\n");
}

// Nobody else knows where an object's own bytes end.
TEST_F(InspectArchives, VerifySaysWhatItLookedAt) {
    Write("g.tnr", TwoObjects());
    ExpectOutput({"verify", "g.tnr"}, 0, "g.tnr: tables good, objects not checked (archive, 121 bytes)\n");
}

// Every object of the table has the beginning of its record in the file.
TEST_F(InspectArchives, CutOnesAreDamaged) {
    const Bytes whole = TwoObjects();
    for (std::size_t nSize = 1; nSize < whole.size(); ++nSize) {
        Write("g.tnr", Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(nSize)));
        const ChildResult result = Run({"verify", "--kind", "archive", "g.tnr"});
        EXPECT_EQ(result.nExitCode, 1) << nSize << "\n" << result.output;
    }
    Write("g.tnr", Bytes(whole.begin(), whole.begin() + 104));
    EXPECT_EQ(DamageIn(Run({"verify", "g.tnr"})),
              "  damage at 104: no objects follow the tables: the file was cut, or they are kept elsewhere\n");
    Write("g.tnr", Bytes(whole.begin(), whole.begin() + 120));
    EXPECT_EQ(DamageIn(Run({"verify", "g.tnr"})),
              "  damage at 120: object 1 of the table is nowhere in the file: the file was cut or changed\n");
}

TEST_F(InspectArchives, RecordsOfObjectsAreLookedForInTheirOrder) {
    const Bytes header = SavedMapHeader({kArm}, {{1, 0}, {2, 0}, {3, 0}});
    const Bytes first = ObjectRecord(true, 0);
    const Bytes second = ObjectRecord(true, 1);
    const Bytes third = ObjectRecord(true, 2);
    const std::string missing = "of the table is nowhere in the file: the file was cut or changed\n";
    const struct {
        Bytes objects;
        std::string damage;
    } cases[] = {
        {first + SavedString("a") + second + ObjectRecord(false, 0) + third, ""},
        {first + U8(1) + second + U8(1) + third, ""},
        {U8(0) + first + second + third, ""},
        {ObjectRecord(true, 1) + third, ""},  // the first one is in a file that the same archive wrote before
        {first + third + second, "  damage at 86: object 2 " + missing},
        {first + third, "  damage at 82: object 1 " + missing},
        {U8(0) + first + second, "  damage at 83: object 2 " + missing},
        {U8(0), "  damage at 75: object 2 " + missing},
    };
    for (const auto& archive : cases) {
        Write("g.tnr", header + archive.objects);
        EXPECT_EQ(DamageIn(Run({"verify", "g.tnr"})), archive.damage);
    }
}

TEST_F(InspectArchives, IdentifiersThatAreNoneAreDamage) {
    for (const char* lpszIdentifier :
         {"x", "c1b7e2d4-63f0-4c58-9e0d-71a5d8f42b9", "c1b7e2d4-63f0-4c58-9e0d-71a5d8f42b900",
          "g1b7e2d4-63f0-4c58-9e0d-71a5d8f42b90", "c1b7e2d4063f0-4c58-9e0d-71a5d8f42b90"}) {
        Write("g.tnr", SavedMapHeader({kArm, lpszIdentifier}, {{1, 0}}) + ObjectRecord(true, 0));
        EXPECT_EQ(DamageIn(Run({"verify", "g.tnr"})),
                  "  damage at 42: no class identifier, which has 8-4-4-4-12 hexadecimal digits\n");
    }
    Write("g.tnr", SavedMapHeader({"C1B7E2D4-63F0-4C58-9E0D-71A5D8F42B90"}, {{1, 0}}) + ObjectRecord(true, 0));
    EXPECT_EQ(DamageIn(Run({"verify", "g.tnr"})), "");
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
    ExpectOutput({"diff", "a.tnr", "b.tnr"}, 1, "~ object data: 17 -> 18 bytes, equal up to byte 4\n");
}

TEST_F(InspectArchives, DiffComparesTables) {
    Write("a.tnr", SavedMapHeader({kArm}, {{1, 0}}) + ObjectRecord(true, 0));
    Write("b.tnr", SavedMapHeader({kArm, kTool}, {{1, 1}, {2, 0}}) + ObjectRecord(true, 0) + ObjectRecord(true, 1));
    ExpectOutput({"diff", "a.tnr", "b.tnr"}, 1,
                 std::string("~ object 0: ") + kArm + " -> " + kTool + "\n+ object 1: " + kArm +
                     "\n~ class table: 1 -> 2 classes\n~ object data: 4 -> 8 bytes, equal up to byte 4\n");
}

TEST_F(InspectArchives, DifferentKindsDiffer) {
    Write("a.tnr", SavedMapHeader({kArm}, {{1, 0}}) + ObjectRecord(true, 0));
    Write("b.tnr", SavedGroup({{"a", SavedInt(1)}}));
    ExpectOutput({"diff", "a.tnr", "b.tnr"}, 1, "~ kind: archive -> value groups\n");
}
