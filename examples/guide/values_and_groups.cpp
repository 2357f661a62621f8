// Values of thirteen types, and a group that knows them by name.

#include <TnRobotKernel/make.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace {

// [values]
void ShowValues() {
    const auto exposure = tn::MakeDoubleData(12.5);
    int nError = 0;
    std::printf("as a double: %.1f, error %d\n", exposure->DoubleData(&nError), nError);
    const int nWrong = exposure->IntData(&nError);  // values never convert to another number
    std::printf("as an int:   %d, error %d\n", nWrong, nError);
    std::printf("as text:     %s\n", exposure->Convert2String(nullptr));
}
// [/values]

// [list]
// The order of a group is that of its hash table: sort where order matters.
void List(const char* lpszTitle, ITnRobotDataValueGroup& group) {
    std::vector<std::pair<std::string, ETnRobotDataValueType>> names;
    group.GetAllDataName(names);
    std::sort(names.begin(), names.end());
    std::printf("%s\n", lpszTitle);
    for (const auto& [strName, eType] : names) {
        const auto value = tn::GetValue(group, strName.c_str());
        std::printf("  %-9s type %2d  %s\n", strName.c_str(), eType, value->Convert2String(nullptr));
    }
}
// [/list]

}  // namespace

int main() {
    ShowValues();

    // [group]
    const auto camera = tn::MakeValueDataGroup();
    camera->SetValue("name", "left");
    camera->SetValue("exposure", 12.5);
    camera->SetValue("enabled", true);
    camera->SetValue("frames", 18000000000LL);
    const unsigned char key[] = {0xca, 0xfe, 0x01};
    camera->SetValue("key", key, sizeof(key));

    const auto copy = tn::Clone(*camera);  // values are copied too
    copy->SetValue("name", "right");
    copy->SetValue("exposure", "automatic");  // another type is another value
    copy->RemoveValue("key");

    List("camera:", *camera);
    List("copy:", *copy);
    // [/group]

    // [missing]
    int nError = 0;
    const double dGain = camera->DoubleData("gain", &nError);
    std::printf("gain: %.1f, error %d, there: %s\n", dGain, nError, camera->HasValue("gain") ? "yes" : "no");
    // [/missing]
}
