// How the library that ships is protected, as its file shows it.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/bytes/ElfFile.h"

using namespace tntest;

namespace {

std::vector<std::string> Imports(const ElfFile& file) {
    std::vector<std::string> names;
    for (const auto& symbol : file.Symbols()) {
        if (!symbol.bDefined && !symbol.name.empty()) {
            names.push_back(symbol.name);
        }
    }
    return names;
}

bool Has(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

TEST(Hardening, TheStackIsNotExecutable) {
    const auto stack = ElfFile(TNROBOT_LIBRARY).Segment(PT_GNU_STACK);
    ASSERT_TRUE(stack.has_value());
    EXPECT_EQ(stack->p_flags & PF_X, 0U);
}

TEST(Hardening, NoMemoryIsWritableAndExecutable) {
    const ElfFile file(TNROBOT_LIBRARY);
    ASSERT_TRUE(file.Segment(PT_LOAD).has_value());
    for (const Elf64_Phdr& segment : file.Segments()) {
        EXPECT_NE(segment.p_flags & (PF_W | PF_X), static_cast<Elf64_Word>(PF_W | PF_X));
    }
}

TEST(Hardening, TablesOfPointersAreReadOnlyOnceLoaded) {
    const ElfFile file(TNROBOT_LIBRARY);
    EXPECT_TRUE(file.Segment(PT_GNU_RELRO).has_value());
    // All names are bound at load, so that the table of imported functions can be closed too.
    EXPECT_NE(file.Dynamic(DT_FLAGS).value_or(0) & DF_BIND_NOW, 0U);
    EXPECT_NE(file.Dynamic(DT_FLAGS_1).value_or(0) & DF_1_NOW, 0U);
}

TEST(Hardening, CodeIsNotPatchedAtLoad) {
    const ElfFile file(TNROBOT_LIBRARY);
    EXPECT_FALSE(file.Dynamic(DT_TEXTREL).has_value());
    EXPECT_EQ(file.Dynamic(DT_FLAGS).value_or(0) & DF_TEXTREL, 0U);
}

TEST(Hardening, LibrariesAreLookedForWhereTheSystemHasThem) {
    const ElfFile file(TNROBOT_LIBRARY);
    EXPECT_FALSE(file.Dynamic(DT_RPATH).has_value());
    EXPECT_FALSE(file.Dynamic(DT_RUNPATH).has_value());
}

TEST(Hardening, ReturnAddressesAreGuarded) {
    EXPECT_TRUE(Has(Imports(ElfFile(TNROBOT_LIBRARY)), "__stack_chk_fail"));
}

TEST(Hardening, CallsOfTheCLibraryAreChecked) {
    const auto imports = Imports(ElfFile(TNROBOT_LIBRARY));
    EXPECT_TRUE(Has(imports, "__memcpy_chk"));
    EXPECT_TRUE(Has(imports, "__vsnprintf_chk"));
    EXPECT_TRUE(Has(imports, "__longjmp_chk"));
}

namespace {

using Code = std::vector<unsigned char>;

struct Entry {
    std::string name;
    Code code;  // the first four bytes
};

// Everything that can be called from outside.
std::vector<Entry> Entries(const ElfFile& file) {
    std::vector<Entry> entries;
    for (const auto& symbol : file.Symbols()) {
        if (symbol.bDefined && symbol.bFunction) {
            entries.push_back({symbol.name, file.BytesAt(symbol.nAddress, 4)});
        }
    }
    return entries;
}

}  // namespace

#ifdef __x86_64__

TEST(Hardening, BranchesAreTrackedAndReturnsShadowed) {
    const auto nProperty = ElfFile(TNROBOT_LIBRARY).Property(GNU_PROPERTY_X86_FEATURE_1_AND);
    EXPECT_NE(nProperty & GNU_PROPERTY_X86_FEATURE_1_IBT, 0U);
    EXPECT_NE(nProperty & GNU_PROPERTY_X86_FEATURE_1_SHSTK, 0U);
}

// The mark above is a promise; this is what it promises. The C runtime's _init and _fini have no
// landing pad everywhere, so the loader must not be told of them.
TEST(Hardening, WhateverIsCalledFromOutsideIsALandingPad) {
    const ElfFile file(TNROBOT_LIBRARY);
    EXPECT_FALSE(file.Dynamic(DT_INIT).has_value());
    EXPECT_FALSE(file.Dynamic(DT_FINI).has_value());
    const std::vector<Entry> entries = Entries(file);
    EXPECT_GT(entries.size(), 100U);
    for (const Entry& entry : entries) {
        EXPECT_EQ(entry.code, (Code{0xF3, 0x0F, 0x1E, 0xFA})) << entry.name;
    }
}

#endif

#ifdef __aarch64__

// A function that keeps its return address in memory signs it first, which is a landing pad too;
// the others have one of their own. Processors without either pass over both. (The file is not
// marked as having them throughout: the C runtime's start-up code, which is in it, has none.)
TEST(Hardening, ReturnAddressesAreSignedAndCallsFromOutsideLand) {
    const Code sign = {0x3F, 0x23, 0x03, 0xD5};
    const Code land = {0x5F, 0x24, 0x03, 0xD5};
    const std::vector<Entry> entries = Entries(ElfFile(TNROBOT_LIBRARY));
    EXPECT_GT(entries.size(), 100U);
    const auto isSigned = [&sign](const Entry& entry) { return entry.code == sign; };
    EXPECT_GE(std::count_if(entries.begin(), entries.end(), isSigned), 20);
    for (const Entry& entry : entries) {
        EXPECT_TRUE(isSigned(entry) || entry.code == land) << entry.name;
    }
}

#endif
