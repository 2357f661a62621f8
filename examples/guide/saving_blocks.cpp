// A block of bytes in a saved group: its size is kept beside it, because a loaded value does not tell.

#include <TnRobotKernel/make.h>

#include <cstdio>
#include <string>

int main() {
    // [save]
    const std::string strCurve = "rising, flat, falling";
    const auto nCurve = static_cast<unsigned int>(strCurve.size());
    const auto saved = tn::MakeValueDataGroup();
    saved->SetValue("curve", strCurve.data(), nCurve);
    saved->SetValue("curve.size", nCurve);
    // [/save]

    const auto loaded = tn::MakeValueDataGroup();
    if (!tn::SaveTo("curve.tnr", *saved) || !tn::LoadFrom("curve.tnr", *loaded)) {
        return 1;
    }
    // [load]
    unsigned int nReported = 0;
    const void* pCurve = loaded->BlockData("curve", nReported, nullptr);
    const unsigned int nSize = loaded->UintData("curve.size", nullptr);
    const std::string strLoaded = pCurve != nullptr ? std::string(static_cast<const char*>(pCurve), nSize) : "";
    std::printf("size reported %u, kept %u: %s\n", nReported, nSize, strLoaded.c_str());
    // [/load]
    return strLoaded == strCurve ? 0 : 1;
}
