// The classic mistakes with a counting pointer, each beside what was meant. This file is never
// linked: tests compile it once without a mistake, which must succeed, and once with each, which
// must fail with the message that CMakeLists.txt expects.

#include <string>
#include <vector>

#include "TnRobotKernel/make.h"

namespace {

using File = TnRobotPtr<ITnRobotFile>;

[[maybe_unused]] void AssignRaw(File& file, ITnRobotFile* pRaw) {
#ifdef MISTAKE_ASSIGN_RAW
    file = pRaw;
#else
    file = tn::Retain(pRaw);
#endif
}

[[maybe_unused]] File ConstructWithoutTag(ITnRobotFile* pRaw) {
#ifdef MISTAKE_CONSTRUCT_WITHOUT_TAG
    return File(pRaw);
#else
    return File(pRaw, tn::kAdopt);
#endif
}

[[maybe_unused]] File ReturnRaw(ITnRobotFile* pRaw) {
#ifdef MISTAKE_RETURN_RAW
    return pRaw;
#else
    return tn::Adopt(pRaw);
#endif
}

[[maybe_unused]] File TagByBraces(ITnRobotFile* pRaw) {
#ifdef MISTAKE_TAG_BY_BRACES
    return File(pRaw, {});
#else
    return File(pRaw, tn::kRetain);
#endif
}

[[maybe_unused]] ITnRobotFile* ConvertToRaw(const File& file) {
#ifdef MISTAKE_CONVERT_TO_RAW
    ITnRobotFile* pRaw = file;
#else
    ITnRobotFile* pRaw = file.get();
#endif
    return pRaw;
}

[[maybe_unused]] void PassAddress(File& file) {
#ifdef MISTAKE_PASS_ADDRESS
    TnCreateRobotFile(&file);
#else
    TnCreateRobotFile(file.put());
#endif
}

[[maybe_unused]] void PassAddressOfGet(File& file) {
#ifdef MISTAKE_PASS_ADDRESS_OF_GET
    TnCreateRobotFile(&file.get());
#else
    TnCreateRobotFile(file.put());
#endif
}

[[maybe_unused]] void PutThroughConst(const File& file) {
#ifdef MISTAKE_PUT_THROUGH_CONST
    TnCreateRobotFile(file.put());
#else
    file->Flush();
#endif
}

[[maybe_unused]] void PutIntoAnotherType(File& file, TnRobotPtr<ITnRobotMemFile>& memory) {
#ifdef MISTAKE_PUT_INTO_ANOTHER_TYPE
    TnCreateRobotMemFile(file.put());
#else
    TnCreateRobotMemFile(memory.put());
    file = memory;
#endif
}

[[maybe_unused]] void Delete(File& file) {
#ifdef MISTAKE_DELETE
    delete file;
#else
    file.reset();
#endif
}

[[maybe_unused]] bool CompareUnrelated(const File& file, const TnRobotPtr<ITnRobotEvent>& event) {
#ifdef MISTAKE_COMPARE_UNRELATED
    return file == event;
#else
    return file == nullptr && event == nullptr;
#endif
}

[[maybe_unused]] void MoveToDerived(File& file, TnRobotPtr<ITnRobotMemFile>& memory) {
#ifdef MISTAKE_MOVE_TO_DERIVED
    memory = std::move(file);
#else
    memory = std::move(file).try_as<ITnRobotMemFile>();
#endif
}

[[maybe_unused]] void DropConst(const TnRobotPtr<const ITnRobotFile>& constant, File& file) {
#ifdef MISTAKE_DROP_CONST
    file = constant;
#else
    file = TnRobotPtr<ITnRobotFile>();
    static_cast<void>(constant);
#endif
}

[[maybe_unused]] int CountAsNumber(const File& file) {
#ifdef MISTAKE_COUNT_AS_NUMBER
    return file + 1;
#else
    return file ? 1 : 0;
#endif
}

[[maybe_unused]] int LockTemporary(ITnRobotSurfacePool& pool) {
#ifdef MISTAKE_LOCK_TEMPORARY
    const tn::LockedPixels pixels(tn::QuerySurface(pool, {}));
#else
    const auto surface = tn::QuerySurface(pool, {});
    const tn::LockedPixels pixels(surface);
#endif
    return pixels.Width();
}

[[maybe_unused]] void SetInGroup(ITnRobotDataValueGroup& group, const float* pCurve, const std::string* pText) {
#if defined(MISTAKE_SET_POINTER)
    tn::Set(group, "curve", pCurve);
#elif defined(MISTAKE_SET_ADDRESSES)
    tn::Set(group, "texts", std::vector<const std::string*>{pText});
#elif defined(MISTAKE_SET_STRINGS)
    tn::Set(group, "texts", std::vector<std::string>{*pText});
#elif defined(MISTAKE_SET_LONG_DOUBLE)
    tn::Set(group, "number", static_cast<long double>(*pCurve));
#else
    tn::Set(group, "curve", std::vector<float>(pCurve, pCurve + 3));
    tn::Set(group, "text", *pText);
#endif
}

[[maybe_unused]] bool GetPointer(ITnRobotDataValueGroup& group) {
#ifdef MISTAKE_GET_POINTER
    return tn::Get<const char*>(group, "text").has_value();
#else
    return tn::Get<std::string>(group, "text").has_value();
#endif
}

#pragma GCC diagnostic error "-Wdeprecated-declarations"
[[maybe_unused]] bool CallDeprecated() {
#ifdef MISTAKE_CALL_DEPRECATED
    return TnRobotUtils::MatchWildcard("a.bmp", "*.bmp");
#else
    return TnRobotUtils::GetFileSize("a.bmp") != 0;
#endif
}

#ifdef MISTAKE_HOLD_UNCOUNTED
[[maybe_unused]] void HoldUncounted(CTnRobotObject* pObject) {
    const auto object = tn::Retain(pObject);
}
#endif

// As an error, for a warning is what the attribute asks for.
#pragma GCC diagnostic error "-Wunused-result"
[[maybe_unused]] void ForgetDetached(File& file) {
#ifdef MISTAKE_FORGET_DETACHED
    file.detach();
#else
    file.reset();
#endif
}

}  // namespace
