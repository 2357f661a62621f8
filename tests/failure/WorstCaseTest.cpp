// Inputs that are made to cost as much as possible: what they cost grows with their size, and not faster. Memory
// is counted, at one size and at four times that. Instructions cannot be counted everywhere, so time is only
// compared with what a square would take, at one size and at sixteen times that: the best of several runs.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TnRobotKernel/make.h"
#include "support/bytes/BmpBytes.h"
#include "support/bytes/CollidingNames.h"
#include "support/bytes/FileBytes.h"
#include "support/bytes/PlainJpeg.h"
#include "support/fakes/FailingNew.h"
#include "support/fakes/TestObjects.h"
#include "support/fakes/TestSurfaces.h"
#include "support/objects/Archives.h"
#include "support/objects/Groups.h"
#include "support/processes/ResourceUse.h"
#include "support/processes/Sanitizers.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

namespace {

using Work = std::function<void()>;

struct WorstCase {
    const char* lpszName;
    std::size_t nSize;  ///< the smallest that is tried
    /// Makes the input, and what is done with it: as often as wanted.
    Work (*prepare)(std::size_t nSize);
};

void PrintTo(const WorstCase& worst, std::ostream* pOutput) {
    *pOutput << worst.lpszName;
}

// Groups and values.

std::vector<std::string> Colliding(std::size_t nSize) {
    CollidingNames names(7);
    std::vector<std::string> all;
    for (std::size_t n = 0; n < nSize; ++n) {
        all.push_back(names.Next(5));
    }
    return all;
}

Bytes SavedGroup(const std::vector<std::string>& names) {
    Bytes saved = U8(1) + U32(static_cast<std::uint32_t>(names.size()));
    for (const std::string& strName : names) {
        saved += SavedString(strName) + SavedValue(DATA_TYPE_INT, BytesOf(1));
    }
    return saved;
}

Work LoadGroup(const Bytes& saved) {
    return [saved] { EXPECT_EQ(LoadFrom(*NewGroup(), saved), 1); };
}

Work LoadColliding(std::size_t nSize) {
    return LoadGroup(SavedGroup(Colliding(nSize)));
}

Work LoadOneName(std::size_t nSize) {
    return LoadGroup(SavedGroup(std::vector<std::string>(nSize, "always the same name")));
}

Work UseColliding(std::size_t nSize) {
    return [names = Colliding(nSize)] {
        const Group group = NewGroup();
        for (const std::string& strName : names) {
            group->SetValue(strName.c_str(), 1);
        }
        for (const std::string& strName : names) {
            EXPECT_EQ(group->IntData(strName.c_str(), nullptr), 1);
        }
        const Group copy = NewGroup();
        copy->Copy(group.get());
        for (const std::string& strName : names) {
            group->RemoveValue(strName.c_str());
        }
    };
}

// Archives.

Work ReadHeader(const Bytes& header) {
    return [header] {
        const Channel channel = Loading(header);
        EXPECT_EQ(channel->ReadMapHeader(), 1);
    };
}

Work ReadClasses(std::size_t nSize) {
    std::vector<std::string> classes;
    for (std::size_t n = 0; n < nSize; ++n) {
        classes.push_back("class " + std::to_string(n));
    }
    return ReadHeader(SavedMapHeader(classes, {}));
}

Work ReadObjectTable(std::size_t nSize) {
    return ReadHeader(SavedMapHeader({TestNode::kGuid}, std::vector<SavedObject>(nSize, {1, 0})));
}

// @param[in] bDeep  each node in the one before; else all in the first.
Work ReadNodes(std::size_t nSize, bool bDeep) {
    Bytes file = SavedMapHeader({TestNode::kGuid}, std::vector<SavedObject>(nSize, {1, 0}));
    for (std::size_t n = 0; n < nSize; ++n) {
        const std::size_t nBelow = bDeep ? (n + 1 < nSize ? 1 : 0) : (n == 0 ? nSize - 1 : 0);
        file += ObjectRecord(true, static_cast<unsigned int>(n)) +
                SavedNode(static_cast<int>(n), static_cast<unsigned int>(nBelow));
    }
    return [file] {
        const Channel channel = Loading(file);
        EXPECT_EQ(channel->ReadMapHeader(), 1);
        CTnRobotObject* pObject = nullptr;
        EXPECT_EQ(channel->ReadObject(&pObject), 1);
        if (pObject != nullptr) {
            static_cast<TestNode*>(pObject)->Release();
        }
    };
}

Work ReadDeep(std::size_t nSize) {
    return ReadNodes(nSize, true);
}

Work ReadWide(std::size_t nSize) {
    return ReadNodes(nSize, false);
}

Work WriteDeep(std::size_t nSize) {
    TnRobotPtr<TestNode> root = TestNode::Create(0);
    for (std::size_t n = 1; n < nSize; ++n) {
        const TnRobotPtr<TestNode> parent = TestNode::Create(static_cast<int>(n));
        parent->Add(root.get());
        root = parent;
    }
    return [root] {
        const Channel channel = Storing();
        EXPECT_EQ(channel->WriteObject(root.get()), 1);
        EXPECT_EQ(channel->WriteMapHeader(), 1);
    };
}

// Pictures.

int LoadPicture(const Bytes& jpeg) {
    const auto blocks = tn::MakeMemoryBlockPool();
    const auto pool = tn::MakeSurfacePool(blocks.get());
    TnRobotPtr<ITnRobotSurface> surface;
    testing::internal::CaptureStderr();
    const int nResult =
        TnRobotImageUtils::LoadImage(jpeg.data(), static_cast<unsigned int>(jpeg.size()), pool.get(), surface.put());
    testing::internal::GetCapturedStderr();
    return nResult;
}

Work LoadScans(std::size_t nSize) {
    return [jpeg = EmptyProgressiveJpeg(200, 200, static_cast<int>(nSize))] { LoadPicture(jpeg); };
}

// The size is what the header says; there is a scan without coefficients behind it.
Work LoadWideJpeg(std::size_t nSize) {
    return [jpeg = EmptyProgressiveJpeg(static_cast<int>(nSize), 64, 1)] { LoadPicture(jpeg); };
}

Work LoadWideBmp(std::size_t nSize) {
    const auto directory = std::make_shared<TempDirectory>();
    const std::string strPath = *directory / "wide.bmp";
    WriteBytes(strPath, BmpFile24(static_cast<int>(nSize), 64, Bytes(24, 1)));
    return [directory, strPath] {
        const auto blocks = tn::MakeMemoryBlockPool();
        const auto pool = tn::MakeSurfacePool(blocks.get());
        TnRobotPtr<ITnRobotSurface> surface;
        TnRobotImageUtils::LoadImage(strPath.c_str(), pool.get(), surface.put());
    };
}

TnRobotPtr<ITnRobotSurface> GreyPicture(ITnRobotSurfacePool& pool, int nWidth, int nHeight) {
    TnRobotPtr<ITnRobotSurface> surface;
    const Bytes pixels = Counting(static_cast<std::size_t>(nWidth) * static_cast<std::size_t>(nHeight), 1);
    EXPECT_EQ(TnRobotImageUtils::NlImage2Surface(Record(TN_IMAGE_GRAY8, nWidth, nHeight, pixels), &pool, surface.put()),
              0);
    return surface;
}

// One pixel of each row, and joined to itself again.
Work ClipColumn(std::size_t nSize) {
    return [nHeight = static_cast<int>(nSize)] {
        const auto blocks = tn::MakeMemoryBlockPool();
        const auto pool = tn::MakeSurfacePool(blocks.get());
        const auto surface = GreyPicture(*pool, 8, nHeight);
        TnRobotPtr<ITnRobotSurface> column;
        EXPECT_EQ(TnRobotImageUtils::ClipImage(pool.get(), surface.get(), {7, 8, 0, nHeight}, column.put()), 0);
        TnRobotPtr<ITnRobotSurface> joined;
        EXPECT_EQ(TnRobotImageUtils::PieceImage(pool.get(), column.get(), column.get(), joined.put()), 1);
    };
}

// Texts, paths and rectangles.

Work SplitSeparators(std::size_t nSize) {
    return [strText = std::string(nSize, ';')] {
        std::vector<std::string> parts;
        TnRobotStringUtils::SplitString(strText.c_str(), ';', parts);
    };
}

Work ReadSpacesAsHex(std::size_t nSize) {
    return [strText = "1" + std::string(nSize, ' ')] {
        std::vector<unsigned char> bytes(strText.size());
        TnRobotStringUtils::String2Hex(strText.c_str(), bytes.data());
    };
}

Work DecodeSeparators(std::size_t nSize) {
    return [strText = "QUJD" + std::string(nSize, '\n') + "QUJD"] {
        std::vector<unsigned char> bytes(strText.size());
        TnRobotTextCodec::Base64Decode(strText.c_str(), bytes.data());
    };
}

Work CutSeparators(std::size_t nSize) {
    return [strPath = std::string(nSize, '/') + "name"] {
        char szPart[TnRobotUtils::kPathSize];
        EXPECT_EQ(TnRobotUtils::GetPurePath(strPath.c_str(), szPart), 0);
        EXPECT_EQ(TnRobotUtils::GetPureName(strPath.c_str(), szPart), 0);
    };
}

Work FilterQuotes(std::size_t nSize) {
    return [strText = std::string(nSize, '\'')] { TnRobotSQLUtils::CreateFilter("field", strText.c_str()); };
}

// Without an area, and all of them alike.
Work MergeEmptyRects(std::size_t nSize) {
    return [rects = std::vector<STnNLRect>(nSize, STnNLRect{5, 5, 5, 5})] {
        STnNLRect largest{};
        EXPECT_EQ(TnRobotRectUtils::findLargestRect(rects.data(), static_cast<unsigned int>(rects.size()), largest), 0);
        EXPECT_LE(TnRobotRectUtils::mergeRects(rects.data(), static_cast<unsigned int>(rects.size())).size(),
                  rects.size());
    };
}

// Each is larger than all before it, and starts where those end that were merged so far.
Work MergeGrowingRects(std::size_t nSize) {
    std::vector<STnNLRect> rects;
    for (int n = 0; n < static_cast<int>(nSize); ++n) {
        rects.push_back({n, n + 1, 0, n + 1});
    }
    return [rects] {
        STnNLRect largest{};
        const auto nCount = static_cast<unsigned int>(rects.size());
        EXPECT_EQ(TnRobotRectUtils::findLargestRect(rects.data(), nCount, largest), static_cast<int>(nCount) - 1);
        EXPECT_EQ(TnRobotRectUtils::mergeRects(rects.data(), nCount).size(), 1U);
    };
}

const WorstCase kWorstCases[] = {
    {"colliding_names_loaded", 300, LoadColliding},
    {"colliding_names_used", 300, UseColliding},
    {"one_name_loaded", 500, LoadOneName},
    {"table_of_classes", 1000, ReadClasses},
    {"table_of_objects", 4000, ReadObjectTable},
    {"objects_in_objects_read", 200, ReadDeep},
    {"objects_in_objects_written", 200, WriteDeep},
    {"objects_beside_objects", 1000, ReadWide},
    {"scans_of_a_jpeg", 6, LoadScans},
    {"size_of_a_jpeg", 500, LoadWideJpeg},
    {"size_of_a_bmp", 500, LoadWideBmp},
    {"separators_split", 50000, SplitSeparators},
    {"spaces_as_hex", 50000, ReadSpacesAsHex},
    {"separators_decoded", 50000, DecodeSeparators},
    {"separators_of_paths", 50000, CutSeparators},
    {"quotes_filtered", 50000, FilterQuotes},
    {"empty_rectangles", 5000, MergeEmptyRects},
    {"growing_rectangles", 5000, MergeGrowingRects},
    {"columns_of_pictures", 4000, ClipColumn},
};

class WorstCases : public testing::TestWithParam<WorstCase> {
protected:
    void SetUp() override {
        if (kThreadSanitizer) {
            GTEST_SKIP() << kKeepsEveryStack;
        }
    }
};

Allocated MemoryOf(const Work& work) {
    work();  // what is made once for the process
    const Allocated before = AllocatedSoFar();
    work();
    const Allocated after = AllocatedSoFar();
    return {after.nCount - before.nCount, after.nBytes - before.nBytes};
}

double BestTimeOf(const Work& work) {
    constexpr int kRuns = 5;
    double dBest = SecondsFor(work);
    for (int nRun = 1; nRun < kRuns; ++nRun) {
        dBest = std::min(dBest, SecondsFor(work));
    }
    return dBest;
}

std::string NameOf(const testing::TestParamInfo<WorstCase>& info) {
    return info.param.lpszName;
}

}  // namespace

TEST_P(WorstCases, TakeMemoryInProportion) {
    constexpr long long kSizes = 4;
    const Allocated small = MemoryOf(GetParam().prepare(GetParam().nSize));
    const Allocated large = MemoryOf(GetParam().prepare(GetParam().nSize * kSizes));
    EXPECT_LE(2 * large.nCount, 3 * kSizes * small.nCount);
    EXPECT_LE(2 * large.nBytes, 3 * kSizes * small.nBytes);
}

TEST_P(WorstCases, TakeLessTimeThanASquare) {
    if (kSanitizerOwnsMemory) {
        GTEST_SKIP() << "most of the time would be the sanitizer's";
    }
    constexpr std::size_t kSizes = 16;
    constexpr double kMostTimes = 80;  // a square takes 256
    constexpr double kMoment = 0.001;  // for what is too short to be compared
    const double dSmall = BestTimeOf(GetParam().prepare(GetParam().nSize));
    const double dLarge = BestTimeOf(GetParam().prepare(GetParam().nSize * kSizes));
    EXPECT_LE(dLarge, kMostTimes * dSmall + kMoment) << dSmall;
}

INSTANTIATE_TEST_SUITE_P(Inputs, WorstCases, testing::ValuesIn(kWorstCases), NameOf);
