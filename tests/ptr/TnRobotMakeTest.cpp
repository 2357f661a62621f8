#include "TnRobotKernel/make.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <limits>
#include <string>

#include "support/fakes/TestBlocks.h"
#include "support/fakes/TestSurfaces.h"
#include "support/objects/ValuePool.h"
#include "support/processes/TempDirectory.h"
#include "support/threads/ThreadTest.h"

using namespace tntest;

namespace {

using Value = TnRobotPtr<ITnRobotDataValue>;

constexpr Desc kColour{6, 4, 0, TN_IMAGE_BGR24, {0, 0}};

/// A block pool, a surface pool on it, and surfaces of a test.
class MakeImages : public testing::Test {
protected:
    TnRobotPtr<ITnRobotSurface> Surface(const Desc& desc = kColour, unsigned char byFill = 0x40) const {
        TnRobotPtr<ITnRobotSurface> surface = tn::QuerySurface(*m_pool, desc);
        if (surface) {
            ITnRobotSurface::STnLockSurface lock{};
            surface->LockSurface(lock);
            std::memset(lock.pData, byFill, lock.nDataSize);
            surface->UnLockSurface();
        }
        return surface;
    }

    TnRobotPtr<ITnRobotMemoryBlockPool> m_blocks = tn::MakeMemoryBlockPool();
    TnRobotPtr<ITnRobotSurfacePool> m_pool = tn::MakeSurfacePool(m_blocks.get());
};

struct ValueCase {
    const char* lpszName;
    ETnRobotDataValueType eType;
    std::function<Value()> make;
    std::string strText;
};

const ValueCase kValues[] = {
    {"bool", DATA_TYPE_BOOL, [] { return tn::MakeBoolData(true); }, "1"},
    {"char", DATA_TYPE_CHAR, [] { return tn::MakeCharData('x'); }, "x"},
    {"byte", DATA_TYPE_BYTE, [] { return tn::MakeByteData(0x1C8); }, "200"},
    {"short", DATA_TYPE_SHORT, [] { return tn::MakeShortData(-2); }, "-2"},
    {"ushort", DATA_TYPE_USHORT, [] { return tn::MakeUShortData(65534); }, "65534"},
    {"int", DATA_TYPE_INT, [] { return tn::MakeIntData(-7); }, "-7"},
    {"uint", DATA_TYPE_UINT, [] { return tn::MakeUintData(4000000000U); }, "4000000000"},
    {"float", DATA_TYPE_FLOAT, [] { return tn::MakeFloatData(-1.5F); }, "-1.500000"},
    {"double", DATA_TYPE_DOUBLE, [] { return tn::MakeDoubleData(0.25); }, "0.250000"},
    {"longlong", DATA_TYPE_LONGLONG, [] { return tn::MakeLonglongData(-8000000000LL); }, "-8000000000"},
    {"ulonglong", DATA_TYPE_ULONGLONG, [] { return tn::MakeULonglongData(8000000000ULL); }, "8000000000"},
    {"string", DATA_TYPE_STRING, [] { return tn::MakeStringData("ab"); }, "ab"},
    {"block", DATA_TYPE_BLOCK, [] { return tn::MakeBlockData("\x0A\xFF", 2); }, "0aff"},
};

}  // namespace

TEST(Make, ValuesOfEveryTypeComeWithOneReference) {
    for (const ValueCase& entry : kValues) {
        SCOPED_TRACE(entry.lpszName);
        Value value = entry.make();
        ASSERT_TRUE(value);
        EXPECT_EQ(value->GetDataValueType(), entry.eType);
        EXPECT_EQ(value->Convert2String(nullptr), entry.strText);
        EXPECT_EQ(value.detach()->Release(), 1) << "the pool's own reference is left";
    }
}

TEST(Make, ValuesAndGroupsAreEmptyWithoutTheValuePool) {
    const NoValuePool none;
    for (const ValueCase& entry : kValues) {
        EXPECT_FALSE(entry.make()) << entry.lpszName;
    }
    EXPECT_FALSE(tn::MakeBlockData(nullptr));
    EXPECT_FALSE(tn::MakeValueDataGroup());
}

TEST(Make, ValuesOfRefusedArgumentsAreEmpty) {
    EXPECT_FALSE(tn::MakeStringData(nullptr));
    EXPECT_FALSE(tn::MakeBlockData(nullptr, 3));
    EXPECT_TRUE(tn::MakeBlockData(nullptr, 0));
    EXPECT_TRUE(tn::MakeBlockData(nullptr));
}

TEST(Make, GroupsGiveTheirValuesAndCopies) {
    const auto group = tn::MakeValueDataGroup();
    ASSERT_TRUE(group);
    group->SetValue("answer", tn::MakeIntData(42).get());
    const Value answer = tn::GetValue(*group, "answer");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->IntData(nullptr), 42);
    EXPECT_FALSE(tn::GetValue(*group, "question"));
    EXPECT_FALSE(tn::GetValue(*group, nullptr));
    std::error_code ec = tn::errc::file_damaged;
    EXPECT_EQ(tn::GetValue(*group, "answer", ec), answer);
    EXPECT_EQ(ec, std::error_code());
    EXPECT_FALSE(tn::GetValue(*group, "question", ec));
    EXPECT_EQ(ec, tn::errc::no_such_value);
    EXPECT_EQ(ec.message(), "The group has no value of that name");
    for (const char* lpszName : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_FALSE(tn::GetValue(*group, lpszName, ec));
        EXPECT_EQ(ec, std::errc::invalid_argument);
    }

    const auto copy = tn::Clone(*group);
    ASSERT_TRUE(copy);
    group->ClearAllValues();
    EXPECT_EQ(copy->IntData("answer", nullptr), 42);
    const Value clone = tn::Clone(*answer);
    ASSERT_TRUE(clone);
    EXPECT_NE(clone, answer);
    EXPECT_EQ(clone->IntData(nullptr), 42);
}

TEST(Make, FilesArchiveAndStreamsWorkTogether) {
    const TempDirectory directory;
    const std::string strPath = directory / "group.bin";
    {
        const auto group = tn::MakeValueDataGroup();
        group->SetValue("text", "kept");
        const auto file = tn::MakeFile();
        ASSERT_TRUE(file && file->Open(strPath.c_str(), true));
        const auto archive = tn::MakeArchive();
        ASSERT_TRUE(archive && archive->Attach(file.get(), true));
        ASSERT_EQ(group->Serialize(archive.get()), 1);
        archive->Flush();
    }
    const auto file = tn::MakeFile();
    ASSERT_TRUE(file->Open(strPath.c_str(), false));
    const auto archive = tn::MakeArchive();
    ASSERT_TRUE(archive->Attach(file.get(), false));
    const auto group = tn::MakeValueDataGroup();
    ASSERT_EQ(group->Serialize(archive.get()), 1);
    EXPECT_STREQ(group->StringData("text", nullptr), "kept");
}

TEST(Make, MemoryFilesBlocksAndStreams) {
    unsigned char bytes[] = {1, 2, 3};
    const auto memory = tn::MakeMemFile();
    ASSERT_TRUE(memory && memory->OpenMemFile(bytes, 3, false));

    const auto pool = tn::MakeMemoryBlockPool();
    const auto stream = tn::MakeMemDataStream(pool.get());
    ASSERT_TRUE(stream);
    ASSERT_EQ(stream->WriteData(bytes, 3), 0);
    EXPECT_STREQ(tn::MakeBlockData(stream.get())->Convert2String(nullptr), "010203");
    EXPECT_FALSE(tn::MakeMemDataStream(nullptr));

    const auto parent = tn::QueryMemBuff(*pool, 8);
    ASSERT_TRUE(parent);
    unsigned int nSize = 0;
    unsigned char* pData = parent->QueryMemory(nSize);
    EXPECT_EQ(nSize, 8U);
    const auto view = tn::MakeCustomMemBlock(parent.get(), pData + 2, 4);
    ASSERT_TRUE(view);
    EXPECT_EQ(view->QueryMemory(nSize), pData + 2);
    EXPECT_EQ(nSize, 4U);
}

TEST(Make, BlocksThatAPoolRefusesAreEmptyWhateverItAnswers) {
    const auto general = tn::MakeMemoryBlockPool();
    EXPECT_FALSE(tn::QueryMemBuff(*general, 0));
    const auto circle = tn::MakeCircleMemoryBlockPool();
    EXPECT_TRUE(tn::QueryMemBuff(*circle, 16));
    EXPECT_FALSE(tn::QueryMemBuff(*circle, 25165825));
    const auto pretending = TestBlockPool::Create();
    pretending->PretendOnly();
    EXPECT_FALSE(tn::QueryMemBuff(*pretending, 16));
}

// A pool of somebody else's that hands out a block together with a failure.
TEST(Make, AnObjectThatComesWithAFailureIsGivenBack) {
    class Contradicting final : public ITnRobotMemoryBlockPool {
    public:
        int QueryMemBuff(unsigned int nSize, ITnRobotMemoryBlock** ppBlock) override {
            *ppBlock = new TestBlock(nSize, 0);
            return 0;
        }
        void FreeUnuseMemory() override {}
    };
    const int nLive = TestBlock::LiveCount();
    const auto pool = tn::MakeObject<Contradicting>();
    EXPECT_FALSE(tn::QueryMemBuff(*pool, 16));
    EXPECT_EQ(TestBlock::LiveCount(), nLive);
}

TEST_F(MakeImages, SurfacesHavePixelsOrAreEmpty) {
    Desc desc = kColour;
    EXPECT_FALSE(tn::QuerySurface(*m_pool, Desc{}));
    EXPECT_TRUE(tn::QuerySurface(*m_pool, desc));
    EXPECT_EQ(desc.nPitch, 20);
    // A free surface is there now, which the pool hands out for any request.
    EXPECT_FALSE(tn::QuerySurface(*m_pool, Desc{}));
    desc.nHeight = 0;
    EXPECT_FALSE(tn::QuerySurface(*m_pool, desc));
    EXPECT_TRUE(tn::QuerySurface(*m_pool, kColour));
    EXPECT_FALSE(tn::QuerySurface(*tn::MakeSurfacePool(nullptr), kColour));
    const auto foreign = TestSurfacePool::Create(-1, nullptr);
    EXPECT_FALSE(tn::QuerySurface(*foreign, kColour));
}

TEST_F(MakeImages, PicturesAreClippedAndJoined) {
    const auto picture = Surface();
    ASSERT_TRUE(picture);
    const auto part = tn::ClipImage(m_pool.get(), picture.get(), {1, 5, 1, 3});
    ASSERT_TRUE(part);
    Desc desc{};
    part->GetSurfaceDesc(desc);
    EXPECT_EQ(desc.nWidth, 4);
    EXPECT_EQ(desc.nHeight, 2);
    EXPECT_FALSE(tn::ClipImage(m_pool.get(), picture.get(), {1, 7, 1, 3}));
    // Without a surface the operation below answers success.
    EXPECT_FALSE(tn::ClipImage(tn::MakeSurfacePool(nullptr).get(), picture.get(), {1, 5, 1, 3}));

    const auto both = tn::PieceImage(m_pool.get(), picture.get(), picture.get());
    ASSERT_TRUE(both);
    both->GetSurfaceDesc(desc);
    EXPECT_EQ(desc.nWidth, 12);
    EXPECT_FALSE(tn::PieceImage(m_pool.get(), picture.get(), nullptr));

    STnNLImageData image{};
    ASSERT_EQ(TnRobotImageUtils::Surface2NlImage(picture.get(), image), 0);
    EXPECT_TRUE(tn::NlImage2Surface(image, m_pool.get()));
    image.eImageType = TN_IMAGE_NONE;
    EXPECT_FALSE(tn::NlImage2Surface(image, m_pool.get()));
}

TEST_F(MakeImages, WhatIsNotGivenCutOrJoinedSaysWhy) {
    const auto without = tn::MakeSurfacePool(nullptr);
    const auto picture = Surface();
    std::error_code ec = tn::errc::file_damaged;
    EXPECT_TRUE(tn::QuerySurface(*m_pool, kColour, ec));
    EXPECT_EQ(ec, std::error_code());
    constexpr int kMost = std::numeric_limits<int>::max();
    struct Case {
        const char* lpszName;
        Desc desc;
        std::error_code reason;
    };
    const Case cases[] = {
        {"no rows", {4, 0, 0, TN_IMAGE_BGR24, {}}, std::make_error_code(std::errc::invalid_argument)},
        {"no columns", {-1, 4, 0, TN_IMAGE_BGR24, {}}, std::make_error_code(std::errc::invalid_argument)},
        {"no format", {4, 4, 0, TN_IMAGE_NONE, {}}, tn::errc::format_not_supported},
        {"too many rows", {4, kMost, 0, TN_IMAGE_BGR24, {}}, tn::errc::picture_too_large},
        {"too many columns", {kMost, 1, 0, TN_IMAGE_BGR24, {}}, tn::errc::picture_too_large},
    };
    for (const Case& entry : cases) {
        SCOPED_TRACE(entry.lpszName);
        EXPECT_FALSE(tn::QuerySurface(*m_pool, entry.desc, ec));
        EXPECT_EQ(ec, entry.reason) << ec.message();
    }
    EXPECT_FALSE(tn::QuerySurface(*without, kColour, ec));
    EXPECT_EQ(ec, tn::errc::no_surface);

    EXPECT_TRUE(tn::ClipImage(m_pool.get(), picture.get(), {1, 5, 1, 3}, ec));
    EXPECT_EQ(ec, std::error_code());
    for (const STnNLROIRect& region : {STnNLROIRect{1, 7, 1, 3}, STnNLROIRect{-1, 2, 1, 3}, STnNLROIRect{3, 3, 1, 3},
                                       STnNLROIRect{1, 5, 3, 1}, STnNLROIRect{1, 5, 1, 1000}}) {
        EXPECT_FALSE(tn::ClipImage(m_pool.get(), picture.get(), region, ec));
        EXPECT_EQ(ec, std::errc::invalid_argument);
    }
    EXPECT_FALSE(tn::ClipImage(m_pool.get(), nullptr, {1, 5, 1, 3}, ec));
    EXPECT_EQ(ec, std::errc::invalid_argument);
    EXPECT_FALSE(tn::ClipImage(without.get(), picture.get(), {1, 5, 1, 3}, ec));
    EXPECT_EQ(ec, tn::errc::no_surface);
    const auto other = tn::QuerySurface(*m_pool, {4, 4, 0, TN_IMAGE_420, {}});
    EXPECT_FALSE(tn::ClipImage(m_pool.get(), other.get(), {0, 2, 0, 2}, ec));
    EXPECT_EQ(ec, tn::errc::format_not_supported);

    EXPECT_TRUE(tn::PieceImage(m_pool.get(), picture.get(), picture.get(), ec));
    EXPECT_EQ(ec, std::error_code());
    EXPECT_FALSE(tn::PieceImage(m_pool.get(), picture.get(), nullptr, ec));
    EXPECT_EQ(ec, std::errc::invalid_argument);
    const auto small = tn::QuerySurface(*m_pool, {1, 1, 0, TN_IMAGE_BGR24, {}});
    EXPECT_FALSE(tn::PieceImage(m_pool.get(), picture.get(), small.get(), ec));
    EXPECT_EQ(ec, std::errc::invalid_argument);
    EXPECT_FALSE(tn::PieceImage(without.get(), picture.get(), picture.get(), ec));
    EXPECT_EQ(ec, tn::errc::no_surface);
}

TEST_F(MakeImages, WhatIsNotCopiedSaysWhy) {
    std::array<unsigned char, 64> pixels{};
    const auto imageOf = [&pixels](ETnNLImageType eType, int nWidth, int nHeight, unsigned int nBytes) {
        return STnNLImageData{pixels.data(), nBytes, {0, 0}, nWidth, nHeight, eType, 8, 3};
    };
    const auto invalid = std::make_error_code(std::errc::invalid_argument);
    constexpr int kMost = std::numeric_limits<int>::max();
    struct Case {
        const char* lpszName;
        STnNLImageData image;
        std::error_code reason;
    };
    const Case cases[] = {
        {"a colour picture", imageOf(TN_IMAGE_BGR24, 4, 2, 24), {}},
        {"fewer bytes", imageOf(TN_IMAGE_BGR24, 4, 2, 5), {}},
        {"no bytes", imageOf(TN_IMAGE_BGR24, 4, 2, 0), invalid},
        {"no columns", imageOf(TN_IMAGE_BGR24, 0, 2, 24), invalid},
        {"rows below 0", imageOf(TN_IMAGE_BGR24, 4, -2, 24), invalid},
        {"more bytes than a colour surface has", imageOf(TN_IMAGE_BGR24, 3, 2, 25), invalid},
        {"more bytes than a grey surface has", imageOf(TN_IMAGE_GRAY8, 3, 2, 7), invalid},
        {"R,G,B", imageOf(TN_IMAGE_RGB24, 4, 2, 24), tn::errc::format_not_supported},
        {"no format", imageOf(TN_IMAGE_NONE, 4, 2, 24), tn::errc::format_not_supported},
        {"too large", imageOf(TN_IMAGE_BGR24, kMost, 2, 24), tn::errc::picture_too_large},
    };
    for (const Case& entry : cases) {
        SCOPED_TRACE(entry.lpszName);
        std::error_code ec = tn::errc::file_damaged;
        EXPECT_EQ(tn::NlImage2Surface(entry.image, m_pool.get(), ec) != nullptr, !entry.reason);
        EXPECT_EQ(ec, entry.reason) << ec.message();
    }
    std::error_code ec;
    EXPECT_FALSE(tn::NlImage2Surface(cases[0].image, nullptr, ec));
    EXPECT_EQ(ec, invalid);
    EXPECT_FALSE(tn::NlImage2Surface(cases[0].image, tn::MakeSurfacePool(nullptr).get(), ec));
    EXPECT_EQ(ec, tn::errc::no_surface);
}

TEST_F(MakeImages, WhatDoesNotBecomeAJpegSaysWhy) {
    const auto picture = Surface();
    const auto pool = TestBlockPool::Create();
    pool->Refuse();
    std::error_code ec = tn::errc::file_damaged;
    EXPECT_TRUE(tn::SaveImage(picture.get(), m_blocks.get(), ec));
    EXPECT_EQ(ec, std::error_code());
    EXPECT_FALSE(tn::SaveImage(picture.get(), nullptr, ec));
    EXPECT_EQ(ec, std::errc::invalid_argument);
    EXPECT_FALSE(tn::SaveImage(static_cast<ITnRobotSurface*>(nullptr), m_blocks.get(), ec));
    EXPECT_EQ(ec, std::errc::invalid_argument);
    EXPECT_FALSE(tn::SaveImage(picture.get(), pool.get(), ec));
    EXPECT_EQ(ec, std::errc::not_enough_memory);
    const auto other = tn::QuerySurface(*m_pool, {4, 4, 0, TN_IMAGE_420, {}});
    EXPECT_FALSE(tn::SaveImage(other.get(), m_blocks.get(), ec));
    EXPECT_EQ(ec, tn::errc::format_not_supported);

    STnNLImageData image{};
    ASSERT_EQ(TnRobotImageUtils::Surface2NlImage(picture.get(), image), 0);
    EXPECT_TRUE(tn::SaveImage(image, m_blocks.get(), ec));
    EXPECT_EQ(ec, std::error_code());
    EXPECT_FALSE(tn::SaveImage(image, pool.get(), ec));
    EXPECT_EQ(ec, std::errc::not_enough_memory);
    EXPECT_FALSE(tn::SaveImage(image, nullptr, ec));
    EXPECT_EQ(ec, std::errc::invalid_argument);
    STnNLImageData wrong = image;
    wrong.nDataSize = 1;
    EXPECT_FALSE(tn::SaveImage(wrong, m_blocks.get(), ec));
    EXPECT_EQ(ec, std::errc::invalid_argument);
    wrong = image;
    wrong.eImageType = TN_IMAGE_NONE;
    EXPECT_FALSE(tn::SaveImage(wrong, m_blocks.get(), ec));
    EXPECT_EQ(ec, tn::errc::format_not_supported);
    wrong = image;
    wrong.nWidth = 65501;
    EXPECT_FALSE(tn::SaveImage(wrong, m_blocks.get(), ec));
    EXPECT_EQ(ec, tn::errc::picture_too_large);
    wrong = image;
    wrong.pData = nullptr;
    EXPECT_FALSE(tn::SaveImage(wrong, m_blocks.get(), ec));
    EXPECT_EQ(ec, std::errc::invalid_argument);
}

TEST_F(MakeImages, PicturesAreSavedAndLoaded) {
    const auto picture = Surface();
    const auto jpeg = tn::SaveImage(picture.get(), m_blocks.get());
    ASSERT_TRUE(jpeg);
    EXPECT_TRUE(tn::LoadImage(jpeg.get(), m_pool.get()));
    unsigned int nSize = 0;
    const unsigned char* pData = jpeg->QueryMemory(nSize);
    EXPECT_TRUE(tn::LoadImage(pData, nSize, m_pool.get()));
    EXPECT_FALSE(tn::LoadImage(pData, 2, m_pool.get()));
    EXPECT_FALSE(tn::LoadImage(static_cast<ITnRobotMemoryBlock*>(nullptr), m_pool.get()));

    STnNLImageData image{};
    ASSERT_EQ(TnRobotImageUtils::Surface2NlImage(picture.get(), image), 0);
    EXPECT_TRUE(tn::SaveImage(image, m_blocks.get()));
    EXPECT_FALSE(tn::SaveImage(static_cast<ITnRobotSurface*>(nullptr), m_blocks.get()));
    image.pData = nullptr;
    EXPECT_FALSE(tn::SaveImage(image, m_blocks.get()));

    const TempDirectory directory;
    const std::string strPath = directory / "picture.jpg";
    ASSERT_EQ(TnRobotImageUtils::SaveImage(strPath.c_str(), picture.get()), 0);
    EXPECT_TRUE(tn::LoadImage(strPath.c_str(), m_pool.get()));
    EXPECT_FALSE(tn::LoadImage((directory / "missing.jpg").c_str(), m_pool.get()));
}

TEST(Make, EventsSignalsAndClocks) {
    EXPECT_TRUE(tn::MakeManualEvent(true)->WaitEvent(0));
    EXPECT_FALSE(tn::MakeManualEvent(false)->WaitEvent(0));
    EXPECT_EQ(tn::MakeSignal()->Wait(0), 3U);
    bool bStopped = false;
    EXPECT_FALSE(tn::MakeAlarmClock()->IsTimeOut(bStopped));
    EXPECT_TRUE(bStopped);
}

using MakeThreads = ThreadTest;

TEST_F(MakeThreads, ThreadsEndWithTheirPointer) {
    const auto called = tn::MakeManualEvent(false);
    {
        const auto thread = tn::MakeThread();
        ASSERT_TRUE(thread);
        thread->SetWorkJob([&](ITnRobotEvent*) { called->SetEvent(); });
        ASSERT_TRUE(thread->Run());
        while (!called->WaitEvent(1000)) {
        }
    }
    EXPECT_TRUE(AwaitNewThreads(0));
}

TEST_F(MakeThreads, TasksComeFromTheirPool) {
    const auto pool = tn::MakeTaskPool();
    ASSERT_TRUE(pool);
    auto task = tn::CreateTask(*pool, nullptr);
    ASSERT_TRUE(task);
    EXPECT_FALSE(task->Start()) << "it has no runner";
    EXPECT_EQ(pool->GetTaskCount(), 0U);
    task.reset();
    EXPECT_EQ(pool->GetTaskCount(), 1U);
}
