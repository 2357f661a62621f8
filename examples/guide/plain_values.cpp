// Values in and out of a group as C++ types.

#include <TnRobotKernel/make.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

enum class Side { kLeft, kRight };

int main() {
    // [set]
    const auto camera = tn::MakeValueDataGroup();
    bool bOk = tn::Set(*camera, "name", std::string("left")) &&     // text
               tn::Set(*camera, "frames", std::size_t{18'000}) &&   // a whole number of any type
               tn::Set(*camera, "side", Side::kRight) &&            // an enumeration
               tn::Set(*camera, "curve", std::vector{0.5F, 1.0F});  // a block: the floats' bytes
    // [/set]

    // [get]
    const auto frames = tn::Get<int>(*camera, "frames");            // fits, so it is there
    const auto narrow = tn::Get<unsigned char>(*camera, "frames");  // does not fit, so it is not
    const auto curve = tn::Get<std::vector<float>>(*camera, "curve");
    const auto gain = tn::Get<double>(*camera, "gain").value_or(1.0);
    // [/get]
    bOk = bOk && frames && curve && tn::Get<Side>(*camera, "side") == Side::kRight;
    std::printf("frames %d, as a byte: %s\n", frames.value_or(0), narrow ? "yes" : "no");
    std::printf("curve of %zu, gain %.1f\n", curve ? curve->size() : 0, gain);

    // [items]
    auto items = tn::Items(*camera);
    std::sort(items.begin(), items.end());
    for (const auto& [strName, value] : items) {
        std::printf("%s: %zu bytes of block\n", strName.c_str(), tn::BlockBytes(*value));
    }
    // [/items]
    return bOk ? 0 : 1;
}
