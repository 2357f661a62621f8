// Saving into and loading from a file that fails: every call of it, in every way. What a load gives
// is compared with what the documented steps give over a file that fails in the same place.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "TnRobotKernel/archive.h"
#include "TnRobotKernel/memory.h"
#include "TnRobotKernel/values.h"
#include "support/fakes/EveryFault.h"
#include "support/fakes/TestObjects.h"
#include "support/objects/Archives.h"
#include "support/objects/Groups.h"
#include "support/objects/Memory.h"
#include "support/objects/Values.h"

using namespace tntest;

namespace {

constexpr std::size_t kLoadStep = std::size_t{1} << 20;  // the most that is asked of a file at once

using FileFailure = FaultTest;

TnRobotPtr<ITnRobotArchive> ArchiveOver(TestFile& file, bool bStoring) {
    TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
    EXPECT_TRUE(archive->Attach(&file, bStoring));
    return archive;
}

Bytes SavedText(const std::string& strText) {
    return U32(static_cast<unsigned int>(strText.size() + 1)) + FromText(strText) + U8(0);
}

bool IsPrefix(const Bytes& part, const Bytes& whole) {
    return part.size() <= whole.size() && std::equal(part.begin(), part.end(), whole.begin());
}

bool IsSubsequence(const Bytes& part, const Bytes& whole) {
    auto it = part.begin();
    for (unsigned char by : whole) {
        it += it != part.end() && *it == by ? 1 : 0;
    }
    return it == part.end();
}

// A write that failed left out its bytes and nothing else; once all of them fail, nothing follows.
void ExpectOnlyFailedBytesMissing(const TestFile& file, const FileFault& fault, const Bytes& whole) {
    if (file.FailedCalls() == 0) {
        EXPECT_EQ(file.Content(), whole);
    } else if (fault.bFromThenOn && fault.nAnswer != TestFile::kShort) {
        EXPECT_TRUE(IsPrefix(file.Content(), whole));
        EXPECT_LT(file.Content().size(), whole.size());
    } else {
        EXPECT_TRUE(IsSubsequence(file.Content(), whole));
    }
}

// Whether a call reported its failure. A write's answer is a success flag, and -1 is not false.
bool IsReported(const TestFile& file, const FileFault& fault) {
    return file.FailedCalls() != 0 && !(fault.eCall == FileCall::kWrite && fault.nAnswer == -1);
}

// What a value is after loading.
struct LoadedValue {
    int nResult;
    int nType;
    Bytes storage;

    Bytes SavedForm() const {
        return U8(1) + BytesOf(nType) + U32(static_cast<unsigned int>(storage.size())) + storage;
    }
};

// The documented steps of loading a value that was `before`.
LoadedValue LoadValueAsDocumented(TestFile& file, LoadedValue before) {
    unsigned char byVersion = 0;
    int nType = 0;
    if (file.Read(&byVersion, 1) < 1 || byVersion != 1 || file.Read(&nType, 4) < 4) {
        return {0, before.nType, before.storage};
    }
    int nCount = 0;
    if (file.Read(&nCount, 4) <= 0 || nCount <= 0) {
        return {1, nType, {}};
    }
    Bytes storage(std::min(static_cast<std::size_t>(nCount), kLoadStep));
    const long long nRead = std::max(0LL, file.Read(storage.data(), static_cast<long long>(storage.size())));
    storage.resize(static_cast<std::size_t>(nRead));
    return {nRead == nCount ? 1 : 0, nType, storage};
}

// The documented steps of reading a text. @return whether it was read.
bool ReadNameAsDocumented(TestFile& file, std::string& strName) {
    int nLength = 0;
    if (file.Read(&nLength, 4) <= 0 || nLength < 0) {
        return false;
    }
    std::vector<char> text(std::min(static_cast<std::size_t>(nLength), kLoadStep) + 1);
    if (nLength != 0 && file.Read(text.data(), static_cast<long long>(text.size() - 1)) <= 0) {
        return false;
    }
    strName = text.data();
    return true;
}

struct LoadedGroup {
    int nResult = 0;
    std::map<std::string, Bytes> entries;  // saved forms by name
};

// The documented steps of loading a group that was empty.
LoadedGroup LoadGroupAsDocumented(TestFile& file) {
    LoadedGroup loaded;
    unsigned char byVersion = 0;
    int nCount = 0;
    if (file.Read(&byVersion, 1) < 1 || byVersion != 1 || file.Read(&nCount, 4) < 4) {
        return loaded;
    }
    for (int i = 0; i < nCount; ++i) {
        std::string strName;
        if (!ReadNameAsDocumented(file, strName)) {
            return loaded;
        }
        const LoadedValue value = LoadValueAsDocumented(file, {0, DATA_TYPE_NONE, Bytes(8)});
        loaded.entries.emplace(strName, value.SavedForm());
    }
    loaded.nResult = 1;
    return loaded;
}

std::map<std::string, Bytes> EntriesOf(ITnRobotDataValueGroup& group) {
    std::vector<std::pair<std::string, ETnRobotDataValueType>> names;
    group.GetAllDataName(names);
    std::map<std::string, Bytes> entries;
    for (const auto& [strName, eType] : names) {
        EXPECT_EQ(group.GetDataValueType(strName.c_str()), eType);
        // An empty name can be loaded, but not be asked for.
        ITnRobotDataValue* pValue = nullptr;
        if (group.GetValue(strName.c_str(), &pValue) == 0) {
            entries.emplace(strName, SavedFormOf(*tn::Adopt(pValue)));
        }
    }
    return entries;
}

// Reads what a value claims to hold with every reader, and copies it.
void ExpectReadable(ITnRobotDataValue& value) {
    for (int nType = DATA_TYPE_BOOL; nType <= DATA_TYPE_BYTE; ++nType) {
        const Reading reading = ReadAs(value, static_cast<ETnRobotDataValueType>(nType));
        EXPECT_TRUE(reading.nError == 0 || reading.bZero) << nType;
    }
    unsigned int nLength = 0;
    const std::string strText = value.Convert2String(&nLength);
    EXPECT_TRUE(nLength == 0 || nLength == strText.size() + 1);
    const Value clone(value.Clone(), tn::kAdopt);
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(SavedFormOf(*clone), SavedFormOf(value));
}

}  // namespace

TEST_F(FileFailure, StoringAValueAnswersOneWhateverItsWritesAnswer) {
    for (const ValueSample& sample : ValueSamples()) {
        SCOPED_TRACE(sample.lpszName);
        const Value value = sample.create();
        const Bytes whole = SavedFormOf(*value);
        FailEveryCall(FileCall::kWrite, {}, [&](TestFile& file, const FileFault& fault) {
            EXPECT_EQ(value->Serialize(ArchiveOver(file, true).get()), 1);
            ExpectOnlyFailedBytesMissing(file, fault, whole);
            EXPECT_EQ(SavedFormOf(*value), whole) << "the value can be stored again";
        });
    }
}

TEST_F(FileFailure, StoringAGroupRunsToItsEnd) {
    const Group group = FullGroup();
    const Bytes whole = SavedFormOf(*group);
    FailEveryCall(FileCall::kWrite, {}, [&](TestFile& file, const FileFault& fault) {
        EXPECT_EQ(group->Serialize(ArchiveOver(file, true).get()), 1);
        ExpectOnlyFailedBytesMissing(file, fault, whole);
        EXPECT_EQ(SavedFormOf(*group), whole);
    });
}

// What reached the file before it failed is all that its reader gets.
TEST_F(FileFailure, AGroupStoredHalfwayLoadsItsWholeEntriesOnly) {
    const Group group = FullGroup();
    const std::map<std::string, Bytes> good = EntriesOf(*group);
    FailEveryCall(FileCall::kWrite, {}, [&](TestFile& file, const FileFault& fault) {
        group->Serialize(ArchiveOver(file, true).get());
        if (!fault.bFromThenOn || fault.nAnswer == TestFile::kShort) {
            return;  // the file has bytes behind the failure
        }
        const Group loaded = NewGroup();
        LoadFrom(*loaded, file.Content());
        const std::map<std::string, Bytes> entries = EntriesOf(*loaded);
        const auto nWhole = std::count_if(entries.begin(), entries.end(), [&](const auto& entry) {
            return good.count(entry.first) != 0 && good.at(entry.first) == entry.second;
        });
        EXPECT_LE(static_cast<std::ptrdiff_t>(entries.size()) - nWhole, 1) << "at most the last one is cut";
    });
}

TEST_F(FileFailure, LoadingAValueFollowsTheDocumentedSteps) {
    for (const ValueSample& sample : ValueSamples()) {
        SCOPED_TRACE(sample.lpszName);
        const Bytes saved = SavedFormOf(*sample.create());
        FailEveryCall(FileCall::kRead, saved, [&](TestFile& file, const FileFault& fault) {
            const TnRobotPtr<TestFile> same = TestFile::Create(saved);
            same->Fail(fault);
            const LoadedValue expected = LoadValueAsDocumented(*same, {0, DATA_TYPE_INT, BytesOf(77)});
            const Value value = IntValue(77);
            EXPECT_EQ(value->Serialize(ArchiveOver(file, false).get()), expected.nResult);
            EXPECT_EQ(value->GetDataValueType(), expected.nType);
            EXPECT_EQ(SavedFormOf(*value), expected.SavedForm());
            EXPECT_EQ(file.Position(), same->Position());
            ExpectReadable(*value);
            EXPECT_EQ(LoadFrom(*value, saved), 1) << "the value can be loaded again";
            EXPECT_EQ(SavedFormOf(*value), saved);
        });
    }
}

// Such a value is read in several steps.
TEST_F(FileFailure, ALargeValueKeepsNoMoreThanArrived) {
    Bytes block(2 * kLoadStep + kLoadStep / 2);
    for (std::size_t n = 0; n < block.size(); ++n) {
        block[n] = static_cast<unsigned char>(n * 7 + (n >> 8) + 1);
    }
    const Bytes saved = SavedFormOf(*BlockValue(block));
    FailEveryCall(FileCall::kRead, saved, [&](TestFile& file, const FileFault& fault) {
        const Value value = BlockValue(Bytes(10, 0x11));
        const int nResult = value->Serialize(ArchiveOver(file, false).get());
        const Bytes loaded = SavedFormOf(*value);
        if (fault.nCall > 3 && file.FailedCalls() != 0) {
            EXPECT_EQ(nResult, 0);
            const Bytes arrived(loaded.begin() + 9, loaded.end());
            EXPECT_EQ(arrived.size(), file.Position() - 9);
            EXPECT_TRUE(IsPrefix(arrived, block));
        } else if (file.FailedCalls() == 0) {
            EXPECT_EQ(nResult, 1);
            EXPECT_TRUE(loaded == saved);
        }
        EXPECT_EQ(LoadFrom(*value, SavedFormOf(*IntValue(5))), 1);
        EXPECT_EQ(SavedFormOf(*value), SavedFormOf(*IntValue(5)));
    });
}

TEST_F(FileFailure, LoadingAGroupFollowsTheDocumentedSteps) {
    const Group good = FullGroup();
    const Bytes saved = SavedFormOf(*good);
    FailEveryCall(FileCall::kRead, saved, [&](TestFile& file, const FileFault& fault) {
        const TnRobotPtr<TestFile> same = TestFile::Create(saved);
        same->Fail(fault);
        LoadedGroup expected = LoadGroupAsDocumented(*same);
        const Group group = NewGroup();
        EXPECT_EQ(group->Serialize(ArchiveOver(file, false).get()), expected.nResult);
        EXPECT_EQ(group->HasValue(""), false);
        expected.entries.erase("");
        EXPECT_EQ(EntriesOf(*group), expected.entries);
        EXPECT_EQ(group->ClearAllValues(), 0);
        EXPECT_EQ(LoadFrom(*group, saved), 1) << "the group can be loaded again";
        EXPECT_EQ(EntriesOf(*group), EntriesOf(*good));
    });
}

// Entries that were there stay as they were, whatever becomes of the load.
TEST_F(FileFailure, AFailedLoadLeavesAGroupsOwnEntriesAlone) {
    const Bytes saved = SavedFormOf(*FullGroup());
    FailEveryCall(FileCall::kRead, saved, [&](TestFile& file, const FileFault& /*fault*/) {
        const Group group = NewGroup();
        group->SetValue("int", "kept");
        group->SetValue("own", 5);
        group->Serialize(ArchiveOver(file, false).get());
        int nError = 77;
        EXPECT_STREQ(group->StringData("int", &nError), "kept");
        EXPECT_EQ(nError, 0);
        EXPECT_EQ(group->IntData("own", &nError), 5);
        EXPECT_EQ(nError, 0);
    });
}

TEST_F(FileFailure, WritingATextReportsEveryFailure) {
    FailEveryCall(FileCall::kWrite, {}, [](TestFile& file, const FileFault& fault) {
        const TnRobotPtr<ITnRobotArchive> archive = ArchiveOver(file, true);
        for (const char* lpszText : {"first", "", "third"}) {
            const int nFailed = file.FailedCalls();
            const int nResult = archive->WriteString(lpszText);
            EXPECT_EQ(nResult, file.FailedCalls() == nFailed || fault.nAnswer == -1 ? 1 : 0) << lpszText;
        }
        ExpectOnlyFailedBytesMissing(file, fault, SavedText("first") + U32(0) + SavedText("third"));
        EXPECT_TRUE(archive->IsStoring());
    });
}

TEST_F(FileFailure, ReadingATextGivesAllOfItOrAnError) {
    const std::string strText = "a text that is read";
    const Bytes saved = SavedText(strText);
    FailEveryCall(FileCall::kRead, saved, [&](TestFile& file, const FileFault& fault) {
        const TnRobotPtr<ITnRobotArchive> archive = ArchiveOver(file, false);
        int nLength = 99;
        int nError = 77;
        const char* lpszText = archive->ReadString(nLength, &nError);
        if (IsReported(file, fault) && fault.nAnswer != TestFile::kShort) {
            EXPECT_EQ(nError, -1);
            EXPECT_EQ(lpszText, nullptr);
        } else {
            // A short read is a success; what is missing reads as zero.
            std::string strExpected = strText;
            Bytes arrived = saved;
            if (fault.nCall == 1 && file.FailedCalls() != 0) {
                arrived = fault.bFromThenOn ? Bytes{0} : Bytes(saved.begin() + 1, saved.end());
            } else if (file.FailedCalls() != 0) {
                arrived = Bytes(saved.begin() + 4, saved.begin() + 5);
            } else {
                arrived.erase(arrived.begin(), arrived.begin() + 4);
            }
            arrived.resize(strText.size() + 1);
            EXPECT_EQ(nError, 0);
            ASSERT_NE(lpszText, nullptr);
            ASSERT_EQ(nLength, static_cast<int>(strText.size() + 1));
            EXPECT_EQ(Bytes(lpszText, lpszText + nLength), arrived);
        }
        archive->Detach();
        const TnRobotPtr<TestFile> again = TestFile::Create(saved);
        ASSERT_TRUE(archive->Attach(again.get(), false));
        lpszText = archive->ReadString(nLength, &nError);
        EXPECT_EQ(nError, 0);
        EXPECT_EQ(lpszText, strText) << "the archive can be used again";
    });
}
