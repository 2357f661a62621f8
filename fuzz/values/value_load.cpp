// Loads a value, which may hold something already, from untrusted bytes.

#include "FuzzBudget.h"
#include "archive/FuzzArchive.h"
#include "values/ValueReading.h"

using namespace tnfuzz;

namespace {

using Value = TnRobotPtr<ITnRobotDataValue>;

// A loaded value keeps the length it had before, so it matters what that was.
Value MakeValue(FuzzInput& input) {
    ITnRobotDataValue* pValue = nullptr;
    switch (input.Below(6)) {
        case 0:
            TnCreateRobotBoolData(true, &pValue);
            break;
        case 1:
            TnCreateRobotDoubleData(1e308, &pValue);
            break;
        case 2:
            TnCreateRobotStringData("a text that is longer than any number", &pValue);
            break;
        case 3:
            TnCreateRobotBlockData(nullptr, 0, &pValue);
            break;
        case 4:
            TnCreateRobotCharData('c', &pValue);
            break;
        default: {
            const Bytes bytes(100, 'b');
            TnCreateRobotBlockData(bytes.data(), static_cast<unsigned int>(bytes.size()), &pValue);
        }
    }
    return tn::Adopt(pValue);
}

// A text is kept from before the load when one was asked for then.
void MaybeMakeText(FuzzInput& input, ITnRobotDataValue& value) {
    if (input.Below(2) == 1) {
        value.Convert2String(nullptr);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const FuzzBudget budget(nSize);
    FuzzInput input(pData, nSize);
    const Value value = MakeValue(input);
    const Value other = MakeValue(input);
    MaybeMakeText(input, *value);
    const LoadingArchive archive(input.Rest());
    while (value->Serialize(archive.Get()) == 1) {
        ReadEverything(*value);
    }
    ReadEverything(*value);

    const Bytes saved = SavedForm(*value);
    const Value clone(value->Clone(), tn::kAdopt);
    Require(SavedForm(*clone) == saved, "a clone is saved as the same bytes");
    ReadEverything(*clone);
    other->Copy(value.get());
    Require(SavedForm(*other) == saved, "and so is a copy");
    ReadEverything(*other);
    value->Copy(value.get());
    Require(SavedForm(*value) == saved, "and a value copied onto itself");
    ReadEverything(*value);

    const LoadingArchive again(saved);
    Require(other->Serialize(again.Get()) == 1 && SavedForm(*other) == saved, "what was saved loads");
    ReadEverything(*other);
    return 0;
}
