// Files on a disk that is full, that cannot be read, that are cut short under their reader, or that
// cannot be opened: what every operation on files answers then, and that it leaves nothing behind.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "TnRobotKernel/TnRobotKernel.h"
#include "support/bytes/FileBytes.h"
#include "support/fakes/EveryFault.h"
#include "support/fakes/TestSurfaces.h"
#include "support/objects/Archives.h"
#include "support/objects/Files.h"
#include "support/objects/Groups.h"
#include "support/objects/Values.h"
#include "support/processes/Limits.h"
#include "support/processes/TempDirectory.h"

using namespace tntest;

namespace {

constexpr auto kBegin = ITnRobotFile::SEEK_DIRECT_BEGIN;

using HeldFile = TnRobotPtr<ITnRobotFile>;

HeldFile OpenFile(const std::string& path, bool bWrite) {
    HeldFile file = MakeFile();
    EXPECT_TRUE(file->Open(path.c_str(), bWrite)) << path;
    return file;
}

Bytes First(const Bytes& bytes, std::size_t nCount) {
    return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(nCount, bytes.size())));
}

// The places at which a saved form of that length is cut: all of a short one, and of a longer one
// its beginning, its end and some between.
std::vector<std::size_t> Cuts(std::size_t nLength) {
    constexpr std::size_t kAll = 300;
    const std::size_t nStep = nLength <= kAll ? 1 : nLength / 97 + 1;
    std::vector<std::size_t> cuts;
    for (std::size_t n = 0; n < nLength; n += n < 60 || n + 60 > nLength ? 1 : nStep) {
        cuts.push_back(n);
    }
    return cuts;
}

// Stores something serialisable in a disk file. @return its result.
template <typename Serialisable>
int StoreOnDisk(Serialisable& object, ITnRobotFile& file) {
    const TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
    EXPECT_TRUE(archive->Attach(&file, true));
    const int nResult = object.Serialize(archive.get());
    archive->Flush();
    return nResult;
}

template <typename Serialisable>
int LoadFromDisk(Serialisable& object, ITnRobotFile& file) {
    const TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
    EXPECT_TRUE(archive->Attach(&file, false));
    return object.Serialize(archive.get());
}

// Paths that can be opened for reading, and whose every read fails.
struct UnreadablePath {
    const char* lpszName;
    const char* lpszTarget;
};
constexpr UnreadablePath kUnreadable[] = {{"a directory", "/proc/self"}, {"memory without a page", "/proc/self/mem"}};

class DiskFailure : public FaultTest {
protected:
    void TearDown() override {
        EXPECT_EQ(Census::Take(), m_before);
        FaultTest::TearDown();
    }

    std::string Path(const std::string& name) const { return m_directory / name; }

    // A failed file: every operation says so until it is closed, and it can be opened again.
    void ExpectFailedButUsable(ITnRobotFile& file) {
        char ch = 'x';
        EXPECT_EQ(file.Write(&ch, 1), 0);
        EXPECT_EQ(file.Seek(0, kBegin), -1);
        EXPECT_EQ(file.GetPos(), -1);
        file.Flush();
        EXPECT_TRUE(file.Close());
        EXPECT_FALSE(file.Close());
        const std::string path = Path("again");
        ASSERT_TRUE(file.Open(path.c_str(), true));
        EXPECT_EQ(file.Write("again", 5), 1);
        EXPECT_TRUE(file.Close());
        EXPECT_EQ(ReadBytes(path), FromText("again")) << "nothing of the failed file follows";
    }

    // Loads a picture while libjpeg's messages are kept away.
    int LoadPicture(const std::string& path, TnRobotPtr<ITnRobotSurface>* pLoaded = nullptr) {
        ITnRobotSurface* pSurface = nullptr;
        testing::internal::CaptureStderr();
        const int nResult = TnRobotImageUtils::LoadImage(path.c_str(), m_source->pool.get(), &pSurface);
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(pSurface != nullptr, nResult == 0);
        TnRobotPtr<ITnRobotSurface> surface(pSurface, tn::kAdopt);
        if (pLoaded != nullptr) {
            *pLoaded = std::move(surface);
        }
        return nResult;
    }

    void SetUp() override { m_source = std::make_unique<SurfaceSource>(); }

    const Census m_before = Census::Take();
    const TempDirectory m_directory;
    std::unique_ptr<SurfaceSource> m_source;
};

}  // namespace

// Small writes wait in the stream's buffer: the failure shows at the flush.
TEST_F(DiskFailure, AFullDiskFailsTheFileAtItsNextFlush) {
    const Bytes content = Noise(200, 1);
    for (std::size_t nRoom : Cuts(content.size())) {
        SCOPED_TRACE(nRoom);
        const std::string path = Path("small");
        const HeldFile file = OpenFile(path, true);
        std::array<long long, 2> positions = {};
        {
            const FileSizeLimit limit(nRoom);
            for (std::size_t n = 0; n < content.size(); n += 10) {
                file->Write(content.data() + n, 10);
            }
            positions[0] = file->GetPos();
            file->Flush();
            positions[1] = file->GetPos();
        }
        EXPECT_EQ(positions[0], static_cast<long long>(content.size()));
        EXPECT_EQ(positions[1], -1);
        EXPECT_EQ(ReadBytes(path), First(content, nRoom));
        ExpectFailedButUsable(*file);
        EXPECT_EQ(ReadBytes(path), First(content, nRoom)) << "closing adds nothing";
        CountInjected();
    }
}

// A write that is larger than any buffer reports the failure itself.
TEST_F(DiskFailure, AFullDiskFailsALargeWriteAtOnce) {
    const Bytes content = Noise(300000, 2);
    for (std::size_t nRoom : Cuts(content.size())) {
        SCOPED_TRACE(nRoom);
        const std::string path = Path("large");
        const HeldFile file = OpenFile(path, true);
        long long nWritten = 0;
        {
            const FileSizeLimit limit(nRoom);
            nWritten = file->Write(content.data(), static_cast<long long>(content.size()));
        }
        EXPECT_EQ(nWritten, 0);
        EXPECT_TRUE(ReadBytes(path) == First(content, nRoom));
        ExpectFailedButUsable(*file);
        EXPECT_TRUE(ReadBytes(path) == First(content, nRoom)) << "closing adds nothing";
        CountInjected();
    }
}

// A large write takes what waits in the buffer along, which must not be written a second time.
TEST_F(DiskFailure, AFullDiskDropsWhatWaitsInFrontOfALargeWrite) {
    const Bytes content = Noise(30000, 8);
    for (std::size_t nRoom : Cuts(content.size())) {
        SCOPED_TRACE(nRoom);
        const std::string path = Path("mixed");
        const HeldFile file = OpenFile(path, true);
        EXPECT_EQ(file->Write(content.data(), 100), 1);
        long long nWritten = 0;
        {
            const FileSizeLimit limit(nRoom);
            nWritten = file->Write(content.data() + 100, static_cast<long long>(content.size() - 100));
        }
        EXPECT_EQ(nWritten, 0);
        ExpectFailedButUsable(*file);
        EXPECT_EQ(ReadBytes(path), First(content, nRoom));
        CountInjected();
    }
}

// Moving the position writes first what waits; that failure is one of the file too.
TEST_F(DiskFailure, AFullDiskFailsASeekThatHasToWriteFirst) {
    const Bytes content = Noise(50, 9);
    for (std::size_t nRoom = 0; nRoom < content.size(); ++nRoom) {
        SCOPED_TRACE(nRoom);
        const std::string path = Path("sought");
        const HeldFile file = OpenFile(path, true);
        EXPECT_EQ(file->Write(content.data(), static_cast<long long>(content.size())), 1);
        long long nResult = 0;
        {
            const FileSizeLimit limit(nRoom);
            nResult = file->Seek(10, kBegin);
        }
        EXPECT_EQ(nResult, -1);
        ExpectFailedButUsable(*file);
        EXPECT_EQ(ReadBytes(path), First(content, nRoom)) << "closing adds nothing";
        CountInjected();
    }
}

// A file that fails as late as in its Close, or is just released, still gives its descriptor back.
TEST_F(DiskFailure, AFullDiskAtTheEndStillClosesTheFile) {
    const std::string path = Path("file");
    for (bool bClose : {true, false}) {
        HeldFile file = OpenFile(path, true);
        EXPECT_EQ(file->Write("abcdef", 6), 1);
        bool bClosed = bClose;
        {
            const FileSizeLimit limit(4);
            bClosed = bClose && file->Close();
            if (!bClose) {
                file.reset();
            }
        }
        EXPECT_EQ(bClosed, bClose) << "it was open";
        EXPECT_EQ(ReadBytes(path), FromText("abcd"));
        if (file != nullptr) {
            ASSERT_TRUE(file->Open(path.c_str(), false));
            char text[8] = {};
            EXPECT_EQ(file->Read(text, sizeof(text)), 4);
            EXPECT_STREQ(text, "abcd");
        }
        CountInjected();
    }
}

TEST_F(DiskFailure, AValueSavedOnAFullDiskIsNotLoadedInPart) {
    const Value value = BlockValue(Noise(150, 3));
    const Bytes whole = SavedFormOf(*value);
    for (std::size_t nRoom : Cuts(whole.size())) {
        SCOPED_TRACE(nRoom);
        const std::string path = Path("value");
        HeldFile file = OpenFile(path, true);
        int nStored = 0;
        {
            const FileSizeLimit limit(nRoom);
            nStored = StoreOnDisk(*value, *file);
        }
        EXPECT_EQ(nStored, 1) << "storing does not look at its writes";
        EXPECT_EQ(file->GetPos(), -1) << "but the file knows";
        EXPECT_TRUE(file->Close());
        EXPECT_EQ(ReadBytes(path), First(whole, nRoom));
        const Value loaded = IntValue(5);
        // Without its count it is an empty value: callers rely on it.
        EXPECT_EQ(LoadFromDisk(*loaded, *OpenFile(path, false)), nRoom == 5 ? 1 : 0);
        EXPECT_EQ(SavedFormOf(*value), whole);
        CountInjected();
    }
}

TEST_F(DiskFailure, AGroupSavedOnAFullDiskLoadsItsWholeEntriesOnly) {
    const Group group = FullGroup();
    const Bytes whole = SavedFormOf(*group);
    for (std::size_t nRoom : Cuts(whole.size())) {
        SCOPED_TRACE(nRoom);
        const std::string path = Path("group");
        const HeldFile file = OpenFile(path, true);
        int nStored = 0;
        {
            const FileSizeLimit limit(nRoom);
            nStored = StoreOnDisk(*group, *file);
        }
        EXPECT_EQ(nStored, 1);
        ExpectFailedButUsable(*file);
        EXPECT_EQ(ReadBytes(path), First(whole, nRoom));
        // Disk and memory hold the same bytes, so they must load alike.
        const Group fromDisk = NewGroup();
        const Group fromMemory = NewGroup();
        EXPECT_EQ(LoadFromDisk(*fromDisk, *OpenFile(path, false)), LoadFrom(*fromMemory, First(whole, nRoom)));
        EXPECT_EQ(SavedFormOf(*fromDisk), SavedFormOf(*fromMemory));
        int nDifferent = 0;
        for (const ValueSample& sample : ValueSamples()) {
            ITnRobotDataValue* pValue = nullptr;
            if (fromDisk->GetValue(sample.lpszName, &pValue) == 0) {
                nDifferent += SavedFormOf(*tn::Adopt(pValue)) == SavedFormOf(*sample.create()) ? 0 : 1;
            }
        }
        EXPECT_LE(nDifferent, 1) << "at most the last entry is cut";
        CountInjected();
    }
}

TEST_F(DiskFailure, AnArchiveOnAFullDiskFailsAndIsNotReadBack) {
    const TnRobotPtr<TestNode> parent = TestNode::Create(1);
    const TnRobotPtr<TestNode> child = TestNode::Create(2);
    parent->Add(child.get());
    const Channel complete = Storing();
    ASSERT_EQ(complete->WriteObject(parent.get()), 1);
    const Bytes body = complete.file->TakeNew();
    ASSERT_EQ(complete->WriteMapHeader(), 1);
    const Bytes whole = complete.file->TakeNew() + body;
    for (std::size_t nRoom : Cuts(whole.size())) {
        SCOPED_TRACE(nRoom);
        const std::string path = Path("archive");
        {
            // As a caller does it: the objects go to memory first, then behind the header.
            const HeldFile file = OpenFile(path, true);
            complete->Detach();
            ASSERT_TRUE(complete->Attach(file.get(), true));
            const FileSizeLimit limit(nRoom);
            complete->WriteMapHeader();
            complete->Write(body.data(), static_cast<long long>(body.size()));
            complete->Flush();
            complete->Detach();
        }
        ASSERT_EQ(ReadBytes(path), First(whole, nRoom));
        const HeldFile file = OpenFile(path, false);
        const TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
        ASSERT_TRUE(archive->Attach(file.get(), false));
        const bool bHeader = archive->ReadMapHeader() == 1;
        CTnRobotObject* pObject = nullptr;
        EXPECT_EQ(archive->ReadObject(&pObject), 0);
        EXPECT_EQ(pObject, nullptr);
        EXPECT_TRUE(bHeader || nRoom < whole.size() - body.size());
        CountInjected();
    }
    EXPECT_EQ(child->References(), 2);
}

TEST_F(DiskFailure, AStreamSavedOnAFullDiskStaysWhole) {
    ITnRobotMemDataStream* pStream = nullptr;
    ASSERT_EQ(TnCreateRobotMemDataStream(m_source->blocks.get(), &pStream), 1);
    const TnRobotPtr<ITnRobotMemDataStream> stream(pStream, tn::kAdopt);
    const Bytes content = Noise(1500000, 4);
    ASSERT_EQ(stream->WriteData(content.data(), static_cast<unsigned int>(content.size())), 0);
    for (std::size_t nRoom : {0U, 1U, 4095U, 1048575U, 1048576U, 1048577U, 1499999U}) {
        SCOPED_TRACE(nRoom);
        const std::string path = Path("stream");
        HeldFile file = OpenFile(path, true);
        bool bFailed = false;
        {
            const FileSizeLimit limit(nRoom);
            unsigned int nSize = 0;
            stream->BeginReadData();
            while (const unsigned char* pPiece = stream->ReadData(nSize)) {
                bFailed = file->Write(pPiece, nSize) == 0 || bFailed;
            }
            stream->EndReadData();
            file.reset();
        }
        EXPECT_TRUE(bFailed);
        EXPECT_TRUE(ReadBytes(path) == First(content, nRoom));
        EXPECT_EQ(stream->GetTotleLength(), content.size());
        CountInjected();
    }
    Value value;
    ITnRobotDataValue* pValue = nullptr;
    ASSERT_EQ(TnCreateRobotBlockData(stream.get(), &pValue), 0);
    value.attach(pValue);
    unsigned int nLength = 0;
    const auto* pBlock = static_cast<const unsigned char*>(value->BlockData(nLength, nullptr));
    EXPECT_TRUE(Bytes(pBlock, pBlock + nLength) == content);
}

// A picture says nothing about a full disk; its reader notices that the file is cut.
TEST_F(DiskFailure, ABmpSavedOnAFullDiskIsCutAndNotLoaded) {
    // Not 24 bits, whose colour table takes 64 MiB: those are cut below.
    struct Kind {
        ETnNLImageType eType;
        std::size_t nHeaders;
    };
    for (const Kind& kind : {Kind{TN_IMAGE_GRAY8, 1078}, Kind{TN_IMAGE_BGRX32, 58}}) {
        const TnRobotPtr<ITnRobotSurface> picture = m_source->Filled(kind.eType, 8, 5, Counting(40));
        const std::string path = Path("picture.bmp");
        ASSERT_EQ(TnRobotImageUtils::SaveImage(path.c_str(), picture.get()), 0);
        const Bytes whole = ReadBytes(path);
        ASSERT_EQ(whole.size(), kind.nHeaders + SurfaceBytes(picture.get()).size());
        for (std::size_t nRoom : Cuts(whole.size())) {
            SCOPED_TRACE(nRoom);
            int nResult = 0;
            {
                const FileSizeLimit limit(nRoom);
                nResult = TnRobotImageUtils::SaveImage(path.c_str(), picture.get());
            }
            EXPECT_EQ(nResult, 0) << "callers rely on it";
            EXPECT_EQ(ReadBytes(path), First(whole, nRoom));
            EXPECT_EQ(LoadPicture(path), -1);
            CountInjected();
        }
        EXPECT_EQ(TnRobotImageUtils::SaveImage(path.c_str(), picture.get()), 0);
        EXPECT_EQ(ReadBytes(path), whole) << "with room again it is whole again";
    }
}

TEST_F(DiskFailure, A24BitBmpOnAFullDiskEndsAfterItsTable) {
    const TnRobotPtr<ITnRobotSurface> picture = m_source->Filled(TN_IMAGE_BGR24, 4, 2, Counting(24));
    const std::string path = Path("picture.bmp");
    for (std::size_t nRoom : {0U, 53U, 54U, 1078U, 262144U, 1000000U}) {
        SCOPED_TRACE(nRoom);
        int nResult = 0;
        {
            const FileSizeLimit limit(nRoom);
            nResult = TnRobotImageUtils::SaveImage(path.c_str(), picture.get());
        }
        EXPECT_EQ(nResult, 0);
        EXPECT_EQ(std::filesystem::file_size(path), nRoom);
        EXPECT_EQ(LoadPicture(path), -1);
        CountInjected();
    }
}

// Every prefix of a good BMP is refused, and so is one whose length fits but whose rows are gone.
TEST_F(DiskFailure, ABmpThatWasCutIsNeverTakenAsAPicture) {
    const std::string path = Path("picture.bmp");
    const Bytes pixels = Counting(24);
    const Bytes header = U16(0x4D42) + U32(78) + U32(0) + U32(54) + U32(40) + U32(4) + U32(2) + U16(1) + U16(24) +
                         U32(0) + U32(24) + U32(0) + U32(0) + U32(0) + U32(0);
    const Bytes whole = header + pixels;
    for (std::size_t nLength = 0; nLength < whole.size(); ++nLength) {
        WriteBytes(path, First(whole, nLength));
        EXPECT_EQ(LoadPicture(path), -1) << nLength;
        CountInjected();
    }
    WriteBytes(path, whole);
    TnRobotPtr<ITnRobotSurface> loaded;
    ASSERT_EQ(LoadPicture(path, &loaded), 0);
    EXPECT_EQ(SurfaceBytes(loaded.get()), Bytes(pixels.begin() + 12, pixels.end()) + First(pixels, 12));
}

TEST_F(DiskFailure, AJpegSavedOnAFullDiskIsCut) {
    const TnRobotPtr<ITnRobotSurface> picture = m_source->Filled(TN_IMAGE_BGR24, 40, 30, SmoothPicture(40, 30, 3, 120));
    const std::string path = Path("picture.jpg");
    ASSERT_EQ(TnRobotImageUtils::SaveImage(path.c_str(), picture.get()), 0);
    const Bytes whole = ReadBytes(path);
    TnRobotPtr<ITnRobotSurface> good;
    ASSERT_EQ(LoadPicture(path, &good), 0);
    const Bytes pixels = SurfaceBytes(good.get());
    for (std::size_t nRoom : Cuts(whole.size())) {
        SCOPED_TRACE(nRoom);
        int nResult = 0;
        {
            const FileSizeLimit limit(nRoom);
            nResult = TnRobotImageUtils::SaveImage(path.c_str(), picture.get());
        }
        EXPECT_EQ(nResult, 0);
        EXPECT_EQ(ReadBytes(path), First(whole, nRoom));
        // libjpeg completes a picture whose data ends early and only warns: what it gives has the
        // right size and begins as the picture does.
        TnRobotPtr<ITnRobotSurface> cut;
        const int nLoaded = LoadPicture(path, &cut);
        EXPECT_TRUE(nLoaded == 0 || nLoaded == -1 || nLoaded == -2) << nLoaded;
        if (nLoaded == 0) {
            EXPECT_EQ(DescOf(cut.get()).nWidth, 40);
            EXPECT_EQ(SurfaceBytes(cut.get()).size(), pixels.size());
        }
        CountInjected();
    }
    EXPECT_EQ(TnRobotImageUtils::SaveImage(path.c_str(), picture.get()), 0);
    EXPECT_EQ(ReadBytes(path), whole) << "with room again it is whole again";
}

TEST_F(DiskFailure, WholeFilesAreWrittenAsFarAsTheyFit) {
    const Bytes content = Noise(20000, 5);
    const std::string path = Path("whole");
    for (std::size_t nRoom : Cuts(content.size())) {
        SCOPED_TRACE(nRoom);
        int nResult = 0;
        {
            const FileSizeLimit limit(nRoom);
            nResult = TnRobotUtils::WriteFile(path.c_str(), reinterpret_cast<const char*>(content.data()),
                                              static_cast<unsigned int>(content.size()), false);
        }
        EXPECT_EQ(nResult, 0) << "nothing says whether the file could be written: callers rely on it";
        EXPECT_EQ(ReadBytes(path), First(content, nRoom));
        int nLength = 77;
        EXPECT_EQ(TnRobotUtils::ReadFile(path.c_str(), nullptr, &nLength), nRoom == 0 ? -1 : 0);
        EXPECT_EQ(nLength, nRoom == 0 ? 77 : static_cast<int>(nRoom)) << "the size tells";
        CountInjected();
    }
}

TEST_F(DiskFailure, ADeviceWithoutRoomTakesNothing) {
    const std::array<std::string, 2> pictures = {Path("full.bmp"), Path("full.jpg")};
    const TnRobotPtr<ITnRobotSurface> picture = m_source->Filled(TN_IMAGE_GRAY8, 8, 5, Counting(40));
    for (const std::string& path : pictures) {
        std::filesystem::create_symlink("/dev/full", path);
        EXPECT_EQ(TnRobotImageUtils::SaveImage(path.c_str(), picture.get()), 0);
        EXPECT_EQ(LoadPicture(path), -1) << "a device is no picture";
    }
    EXPECT_EQ(TnRobotUtils::WriteFile("/dev/full", "abc", 3, false), 0);
    const Group group = FullGroup();
    const HeldFile file = OpenFile("/dev/full", true);
    EXPECT_EQ(StoreOnDisk(*group, *file), 1);
    ExpectFailedButUsable(*file);
    CountInjected(4);
}

TEST_F(DiskFailure, AReadErrorDeliversNothingAndFailsTheFile) {
    for (const UnreadablePath& path : kUnreadable) {
        SCOPED_TRACE(path.lpszName);
        for (std::size_t nCount : {1U, 8192U, 100000U}) {
            const HeldFile file = OpenFile(path.lpszTarget, false);
            Bytes buffer(nCount, 0xEE);
            EXPECT_EQ(file->Read(buffer.data(), static_cast<long long>(nCount)), 0);
            EXPECT_EQ(buffer, Bytes(nCount, 0xEE));
            EXPECT_EQ(file->Read(buffer.data(), 1), -1);
            EXPECT_EQ(file->Seek(0, kBegin), -1);
            EXPECT_EQ(file->GetPos(), -1);
            EXPECT_TRUE(file->Close());
            CountInjected();
        }
    }
}

TEST_F(DiskFailure, NothingIsLoadedThroughAReadError) {
    for (const UnreadablePath& path : kUnreadable) {
        SCOPED_TRACE(path.lpszName);
        const Group group = NewGroup();
        EXPECT_EQ(LoadFromDisk(*group, *OpenFile(path.lpszTarget, false)), 0);
        std::vector<std::pair<std::string, ETnRobotDataValueType>> names;
        EXPECT_EQ(group->GetAllDataName(names), 0);
        const Value value = IntValue(5);
        EXPECT_EQ(LoadFromDisk(*value, *OpenFile(path.lpszTarget, false)), 0);
        EXPECT_EQ(value->IntData(nullptr), 5);

        const HeldFile file = OpenFile(path.lpszTarget, false);
        const TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
        ASSERT_TRUE(archive->Attach(file.get(), false));
        EXPECT_EQ(archive->ReadMapHeader(), 0);
        CTnRobotObject* pObject = nullptr;
        EXPECT_EQ(archive->ReadObject(&pObject), 0);
        int nLength = 0;
        int nError = 0;
        EXPECT_EQ(archive->ReadString(nLength, &nError), nullptr);
        EXPECT_EQ(nError, -1);

        for (const char* lpszEnding : {".bmp", ".jpg"}) {
            const std::string picture = Path(std::string(path.lpszName) + lpszEnding);
            std::filesystem::create_symlink(path.lpszTarget, picture);
            EXPECT_EQ(LoadPicture(picture), -1);
        }
        CountInjected(7);
    }
}

// The size is the directory's entry's; its content cannot be read and leaves the buffer alone.
TEST_F(DiskFailure, ADirectoryReadAsAWholeFileLeavesTheBufferAlone) {
    const std::string directory = m_directory.Path().string();
    const long long nSize = TnRobotUtils::GetFileSize(directory.c_str());
    ASSERT_GE(nSize, 0);
    std::vector<char> buffer(static_cast<std::size_t>(nSize) + 1, '#');
    const std::vector<char> untouched = buffer;
    int nLength = 77;
    EXPECT_EQ(TnRobotUtils::ReadFile(directory.c_str(), buffer.data(), &nLength), nSize == 0 ? -1 : 0);
    EXPECT_EQ(buffer, untouched);
    EXPECT_EQ(TnRobotUtils::WriteFile(directory.c_str(), "abc", 3, false), 0);
    EXPECT_EQ(TnRobotUtils::IsFileExist(directory.c_str(), 0), -1);
    const std::string path = Path("file");
    WriteBytes(path, FromText("x"));
    std::vector<std::string> files;
    TnRobotUtils::FindFile(path.c_str(), "*", files);
    EXPECT_TRUE(files.empty()) << "a file is no directory";
    CountInjected(4);
}

// The reader has the file open, and has perhaps read some of it ahead, when it is cut.
TEST_F(DiskFailure, AFileCutUnderItsReaderEndsThere) {
    const Bytes content = Noise(100000, 6);
    const std::string path = Path("cut");
    for (std::size_t nFirst : {0U, 1U, 8191U, 20000U}) {
        for (std::size_t nLeft : {0U, 1U, 8192U, 50000U, 99999U}) {
            SCOPED_TRACE(testing::Message() << nFirst << " read, cut at " << nLeft);
            WriteBytes(path, content);
            const HeldFile file = OpenFile(path, false);
            Bytes buffer(content.size() + 1, 0xEE);
            ASSERT_EQ(file->Read(buffer.data(), static_cast<long long>(nFirst)), static_cast<long long>(nFirst));
            std::filesystem::resize_file(path, nLeft);
            const long long nRead = file->Read(buffer.data() + nFirst, static_cast<long long>(buffer.size() - nFirst));
            ASSERT_GE(nRead, 0);
            const std::size_t nArrived = nFirst + static_cast<std::size_t>(nRead);
            EXPECT_GE(nArrived, std::max(nFirst, nLeft));
            EXPECT_LT(nArrived, content.size());
            EXPECT_TRUE(First(buffer, nArrived) == First(content, nArrived));
            EXPECT_EQ(buffer[nArrived], 0xEE);
            EXPECT_EQ(file->Read(buffer.data(), 1), -1) << "the end has been met";
            CountInjected();
        }
    }
}

TEST_F(DiskFailure, AValueWhoseFileIsCutUnderItIsNotLoaded) {
    const Bytes block = Noise(3000000, 7);
    const Bytes whole = SavedFormOf(*BlockValue(block));
    const std::string path = Path("value");
    for (std::size_t nLeft : {9U, 10000U, 1048585U, 2999999U}) {
        SCOPED_TRACE(nLeft);
        WriteBytes(path, U32(1) + FromText("x") + whole);
        const HeldFile file = OpenFile(path, false);
        const TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
        ASSERT_TRUE(archive->Attach(file.get(), false));
        Bytes first(5);
        ASSERT_EQ(archive->Read(first.data(), 5), 5);
        std::filesystem::resize_file(path, nLeft + 5);
        const Value value = IntValue(5);
        EXPECT_EQ(value->Serialize(archive.get()), 0);
        const Bytes loaded = SavedFormOf(*value);
        EXPECT_TRUE(std::equal(loaded.begin() + 9, loaded.end(), block.begin()));
        EXPECT_LT(loaded.size(), whole.size());
        CountInjected();
    }
}

// Between the question for the size and the reading.
TEST_F(DiskFailure, AWholeFileThatChangesSizeIsReadWithinTheSizeItHas) {
    const std::string path = Path("whole");
    for (std::size_t nLater : {1U, 5U, 9U, 10U}) {
        WriteBytes(path, FromText("0123456789"));
        int nLength = 0;
        ASSERT_EQ(TnRobotUtils::ReadFile(path.c_str(), nullptr, &nLength), 0);
        ASSERT_EQ(nLength, 10);
        std::filesystem::resize_file(path, nLater);
        std::string buffer(12, '#');
        EXPECT_EQ(TnRobotUtils::ReadFile(path.c_str(), buffer.data(), &nLength), 0);
        EXPECT_EQ(nLength, static_cast<int>(nLater));
        EXPECT_EQ(buffer, std::string("0123456789").substr(0, nLater) + std::string(12 - nLater, '#'));
        CountInjected();
    }
    std::filesystem::resize_file(path, 0);
    std::string buffer(12, '#');
    int nLength = 77;
    EXPECT_EQ(TnRobotUtils::ReadFile(path.c_str(), buffer.data(), &nLength), -1);
    EXPECT_EQ(nLength, 77);
    EXPECT_EQ(buffer, std::string(12, '#'));
}
