// crafted_graph KIND PATH: writes a file that examples/machine_samples takes for its graph, and that is
// made to lead a careless reader to objects that are gone or missing.

#include <cstdio>
#include <string>

#include "support/bytes/Bytes.h"
#include "support/bytes/FileBytes.h"

using namespace tntest;

namespace {

constexpr const char* kTool = "5d0c3f1e-9d3a-4f6b-8a44-2b6f3e0c7a11";
constexpr const char* kArm = "c1b7e2d4-63f0-4c58-9e0d-71a5d8f42b90";

Bytes Tool(unsigned int nIndex) {
    return ObjectRecord(true, nIndex) + SavedString("gripper");
}

Bytes Arm(unsigned int nIndex, const std::string& strName, const Bytes& tool) {
    return ObjectRecord(true, nIndex) + SavedString(strName) + tool + U8(0);
}

Bytes Crafted(const std::string& strKind) {
    const Bytes header = SavedMapHeader({kTool, kArm}, {{1, 1}, {2, 0}, {3, 1}});
    if (strKind == "other_type") {  // the arms are one tool
        return header + Tool(1) + ObjectRecord(false, 1);
    }
    if (strKind == "dropped") {  // the first arm's tool is an arm, which the second one refers to
        return header + Arm(0, "left arm", Arm(2, "right arm", Tool(1))) + ObjectRecord(false, 2);
    }
    if (strKind == "null_arm") {
        return header + U8(0) + U8(0);
    }
    if (strKind == "unknown_class") {
        return SavedMapHeader({"nobody knows it"}, {{1, 0}}) + ObjectRecord(true, 0) + ObjectRecord(false, 0);
    }
    Bytes whole = header + Arm(0, "left arm", Tool(1)) + Arm(2, "right arm", ObjectRecord(false, 1));
    whole.pop_back();
    return whole;
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    if (nArguments != 3) {
        std::fprintf(stderr, "usage: %s KIND PATH\n", ppszArguments[0]);
        return 2;
    }
    WriteBytes(ppszArguments[2], Crafted(ppszArguments[1]));
    return 0;
}
