// Paths that the system does not open, pipes, a process without descriptors, and a file system that
// is really full.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
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
constexpr auto kEnd = ITnRobotFile::SEEK_DIRECT_END;

// A group whose saved form has so many bytes and some more.
Group LargeGroup(std::size_t nBytes) {
    Group group = NewGroup();
    const Bytes block = Noise(nBytes, 1);
    group->SetValue("block", block.data(), static_cast<unsigned int>(block.size()));
    return group;
}

int Transfer(ITnRobotDataValueGroup& group, ITnRobotFile& file, bool bStoring) {
    const TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
    EXPECT_TRUE(archive->Attach(&file, bStoring));
    const int nResult = group.Serialize(archive.get());
    archive->Flush();
    return nResult;
}

class RefusedPath : public FaultTest {
protected:
    void TearDown() override {
        EXPECT_EQ(Census::Take(), m_before);
        FaultTest::TearDown();
    }

    std::string Path(const std::string& name) const { return m_directory / name; }

    // What every operation answers for a path that cannot be opened for writing.
    void ExpectNothingWritten(const std::string& path) {
        const TnRobotPtr<ITnRobotFile> file = MakeFile();
        EXPECT_FALSE(file->Open(path.c_str(), true));
        EXPECT_EQ(file->Write("x", 1), 0);
        EXPECT_FALSE(file->Close());
        EXPECT_EQ(TnRobotUtils::WriteFile(path.c_str(), "abc", 3, false), 0);
        const TnRobotPtr<ITnRobotSurface> picture = m_source.Filled(TN_IMAGE_GRAY8, 4, 2, Counting(8));
        for (const char* lpszEnding : {".bmp", ".jpg"}) {
            EXPECT_EQ(TnRobotImageUtils::SaveImage((path + lpszEnding).c_str(), picture.get()), 0);
        }
        CountInjected(4);
    }

    // What every operation answers for a path that cannot be opened for reading.
    void ExpectNothingRead(const std::string& path) {
        const TnRobotPtr<ITnRobotFile> file = MakeFile();
        EXPECT_FALSE(file->Open(path.c_str(), false));
        char buffer[4] = "###";
        EXPECT_EQ(file->Read(buffer, 1), -1);
        EXPECT_EQ(file->Seek(0, kBegin), -1);
        EXPECT_FALSE(file->Close());
        int nLength = 77;
        EXPECT_EQ(TnRobotUtils::ReadFile(path.c_str(), buffer, &nLength), -1);
        EXPECT_EQ(nLength, 77);
        EXPECT_STREQ(buffer, "###");
        EXPECT_EQ(TnRobotUtils::GetFileSize(path.c_str()), 0);
        EXPECT_EQ(TnRobotUtils::IsFileExist(path.c_str(), 0), -1);
        std::vector<std::string> files;
        TnRobotUtils::FindFile(path.c_str(), "*", files);
        EXPECT_TRUE(files.empty());
        for (const char* lpszEnding : {".bmp", ".jpg"}) {
            ITnRobotSurface* pSurface = nullptr;
            EXPECT_EQ(TnRobotImageUtils::LoadImage((path + lpszEnding).c_str(), m_source.pool.get(), &pSurface), -1);
            EXPECT_EQ(pSurface, nullptr);
        }
        CountInjected(5);
    }

    const Census m_before = Census::Take();
    const TempDirectory m_directory;
    SurfaceSource m_source;
};

}  // namespace

TEST_F(RefusedPath, APathThatCannotBeOpenedIsRefusedEverywhere) {
    WriteBytes(Path("file"), FromText("x"));
    for (const char* lpszLoop : {"loop", "loop.bmp", "loop.jpg"}) {
        std::filesystem::create_symlink(Path(lpszLoop), Path(lpszLoop));
    }
    for (const std::string& path :
         {Path("missing/file"), Path("file/below"), Path("loop"), Path(std::string(300, 'n')), std::string()}) {
        SCOPED_TRACE(path);
        if (path.empty()) {
            EXPECT_FALSE(MakeFile()->Open(path.c_str(), true));
            EXPECT_FALSE(MakeFile()->Open(path.c_str(), false));
            CountInjected(2);
            continue;
        }
        ExpectNothingWritten(path);
        ExpectNothingRead(path);
    }
    // No entry came to be.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_directory.Path()), {}), 4);
}

TEST_F(RefusedPath, ADirectoryIsNotWrittenTo) {
    const std::string directory = Path("directory");
    for (const std::string& path : {directory, directory + ".bmp", directory + ".jpg"}) {
        std::filesystem::create_directory(path);
    }
    ExpectNothingWritten(directory);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory), {}), 0);
}

// UndefinedBehaviorSanitizer looks at the class of an object through a pipe, which a process without
// descriptors cannot make.
#ifdef TNROBOT_TEST_WITHOUT_DESCRIPTORS

TEST_F(RefusedPath, SettingsAndDatedNamesNeedNoFile) {
    char szPath[TnRobotUtils::kPathSize] = {};
    TnRobotUtils::MakeValidFile(Path("missing").c_str(), "name", "txt", szPath);
    EXPECT_EQ(std::string(szPath).rfind(Path("missing") + "/name_", 0), 0U);
    EXPECT_EQ(TnRobotUtils::IsFileExist(szPath, 0), -1);
    const DescriptorLimit none(0);
    EXPECT_EQ(TnRobotIniFileUtils::GetStringValue("section", "key", "default"), "");
    EXPECT_EQ(TnRobotIniFileUtils::GetIntValue("section", "key", 42), 0);
    EXPECT_EQ(TnRobotIniFileUtils::GetShortValue("section", "key", 42), 42);
    EXPECT_TRUE(TnRobotIniFileUtils::GetBoolValue("section", "key", true));
    EXPECT_EQ(TnRobotIniFileUtils::GetFloatValue("section", "key", 1.5F), 1.5F);
    EXPECT_EQ(TnRobotIniFileUtils::SetIntValue("section", "key", 7), 0);
    EXPECT_EQ(TnRobotIniFileUtils::SetBoolValue("section", "key", true), 0);
    CountInjected(8);
}

TEST_F(RefusedPath, WithoutADescriptorEverythingFailsAndWorksAgainLater) {
    const std::string good = Path("good");
    const std::string bmp = Path("good.bmp");
    WriteBytes(good, FromText("content"));
    const TnRobotPtr<ITnRobotSurface> picture = m_source.Filled(TN_IMAGE_GRAY8, 4, 2, Counting(8));
    const TnRobotPtr<ITnRobotFile> file = MakeFile();
    char buffer[8] = "#######";
    int nLength = 0;
    std::vector<std::string> files;
    ITnRobotSurface* pSurface = nullptr;
    {
        const DescriptorLimit none(0);
        EXPECT_FALSE(file->Open(good.c_str(), false));
        EXPECT_FALSE(file->Open(Path("new").c_str(), true));
        EXPECT_EQ(TnRobotImageUtils::SaveImage(bmp.c_str(), picture.get()), 0);
        EXPECT_EQ(TnRobotImageUtils::LoadImage(bmp.c_str(), m_source.pool.get(), &pSurface), -1);
        EXPECT_EQ(TnRobotUtils::WriteFile(Path("new").c_str(), "abc", 3, false), 0);
        TnRobotUtils::FindFile(m_directory.Path().c_str(), "*", files);
        EXPECT_EQ(TnRobotUtils::ReadFile(good.c_str(), buffer, &nLength), 0) << "callers rely on it";
    }
    CountInjected(7);
    EXPECT_EQ(nLength, 7);
    EXPECT_STREQ(buffer, "#######") << "what cannot be read leaves the buffer alone";
    EXPECT_TRUE(files.empty());
    EXPECT_FALSE(std::filesystem::exists(Path("new")));
    EXPECT_FALSE(std::filesystem::exists(bmp));

    const DescriptorLimit one(1);
    EXPECT_TRUE(file->Open(good.c_str(), false));
    EXPECT_FALSE(MakeFile()->Open(good.c_str(), false)) << "the last one is taken";
    EXPECT_TRUE(file->Close());
    EXPECT_EQ(TnRobotUtils::ReadFile(good.c_str(), buffer, &nLength), 0);
    EXPECT_EQ(std::string(buffer, 7), "content");
    TnRobotUtils::FindFile(m_directory.Path().c_str(), "*", files);
    EXPECT_EQ(files, std::vector<std::string>{good});
}

#endif

TEST_F(RefusedPath, APipeIsReadToItsEndAndHasNoPositions) {
    const std::string path = Path("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const Group group = LargeGroup(500000);
    std::thread writer([&] {
        const TnRobotPtr<ITnRobotFile> end = MakeFile();
        EXPECT_TRUE(end->Open(path.c_str(), true));
        EXPECT_EQ(end->Seek(1, kBegin), -1);
        EXPECT_TRUE(end->Close());
    });
    const TnRobotPtr<ITnRobotFile> file = MakeFile();
    ASSERT_TRUE(file->Open(path.c_str(), false));
    EXPECT_EQ(file->Seek(1, kEnd), -1);
    char ch = '#';
    EXPECT_EQ(file->Read(&ch, 1), -1);
    EXPECT_TRUE(file->Close());
    writer.join();

    std::thread sender([&] {
        const TnRobotPtr<ITnRobotFile> end = MakeFile();
        EXPECT_TRUE(end->Open(path.c_str(), true));
        EXPECT_EQ(Transfer(*group, *end, true), 1);
        EXPECT_TRUE(end->Close());
    });
    ASSERT_TRUE(file->Open(path.c_str(), false));
    const Group loaded = NewGroup();
    EXPECT_EQ(Transfer(*loaded, *file, false), 1);
    EXPECT_EQ(file->Read(&ch, 1), 0);
    sender.join();
    EXPECT_TRUE(SavedFormOf(*loaded) == SavedFormOf(*group));
    CountInjected(3);
}

// The other end goes in the middle of the group.
TEST_F(RefusedPath, APipeWhoseReaderIsGoneFailsItsWriter) {
    const IgnoreSignal ignore(SIGPIPE);
    const std::string path = Path("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const Group group = LargeGroup(500000);
    std::thread reader([&] {
        const TnRobotPtr<ITnRobotFile> end = MakeFile();
        EXPECT_TRUE(end->Open(path.c_str(), false));
        char ch = '#';
        EXPECT_EQ(end->Read(&ch, 1), 1);
        EXPECT_EQ(ch, 1) << "the version";
    });
    const TnRobotPtr<ITnRobotFile> file = MakeFile();
    ASSERT_TRUE(file->Open(path.c_str(), true));
    EXPECT_EQ(Transfer(*group, *file, true), 1);
    reader.join();
    file->Flush();
    EXPECT_EQ(file->GetPos(), -1);
    EXPECT_EQ(file->Write("x", 1), 0);
    EXPECT_TRUE(file->Close());
    CountInjected();
}

TEST_F(RefusedPath, APipeWhoseWriterIsGoneEndsTheLoad) {
    const std::string path = Path("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const Bytes whole = SavedFormOf(*LargeGroup(3000));
    for (std::size_t nSent : {0U, 1U, 5U, 9U, 14U, 23U, 3000U}) {
        SCOPED_TRACE(nSent);
        std::thread writer(
            [&] { WriteBytes(path, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(nSent))); });
        const TnRobotPtr<ITnRobotFile> file = MakeFile();
        ASSERT_TRUE(file->Open(path.c_str(), false));
        const Group group = NewGroup();
        // Once some of the name is there the entry counts, however little of its value came.
        EXPECT_EQ(Transfer(*group, *file, false), nSent >= 14 ? 1 : 0);
        EXPECT_EQ(group->HasValue("block"), nSent >= 14);
        writer.join();
        CountInjected();
    }
}

TEST_F(RefusedPath, APipeIsNoPictureAndNobodyWaitsForIt) {
    const std::string path = Path("pipe.bmp");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    ITnRobotSurface* pSurface = nullptr;
    EXPECT_EQ(TnRobotImageUtils::LoadImage(path.c_str(), m_source.pool.get(), &pSurface), -1);
    EXPECT_EQ(pSurface, nullptr);
    char ch = '#';
    EXPECT_EQ(TnRobotUtils::ReadFile(path.c_str(), &ch, nullptr), -1);
    EXPECT_EQ(ch, '#');
    CountInjected(2);
}

namespace {

constexpr int kNoMount = 77;  // the machine does not let the test mount anything

bool WriteTo(const char* lpszPath, const std::string& text) {
    std::ofstream file(lpszPath);
    file << text << std::flush;
    return file.good();
}

// A space of its own to mount in. An ordinary user may have one where nobody but himself is known.
bool LeaveForOwnSpace() {
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    if (geteuid() == 0) {
        return unshare(CLONE_NEWNS) == 0;
    }
    return unshare(CLONE_NEWNS | CLONE_NEWUSER) == 0 && WriteTo("/proc/self/setgroups", "deny") &&
           WriteTo("/proc/self/uid_map", user + " " + user + " 1") &&
           WriteTo("/proc/self/gid_map", group + " " + group + " 1");
}

// Mounts a small file system that only this process sees.
bool MountSmall(const std::string& directory) {
    return LeaveForOwnSpace() && mount("none", "/", "", MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", directory.c_str(), "tmpfs", 0, "size=256k") == 0;
}

bool IsCut(const std::string& path, std::size_t nWhole) {
    return std::filesystem::exists(path) && std::filesystem::file_size(path) < nWhole;
}

// Fills the file system with every kind of file. @return the number of the step that went wrong.
int FillSmall(const std::string& directory, SurfaceSource& source) {
    const Group group = LargeGroup(1000000);
    const std::string path = directory + "/group";
    const TnRobotPtr<ITnRobotFile> file = MakeFile();
    if (!file->Open(path.c_str(), true) || Transfer(*group, *file, true) != 1 || file->GetPos() != -1) {
        return 1;
    }
    if (file->Write("x", 1) != 0 || !file->Close() || !IsCut(path, 1000000)) {
        return 2;
    }
    const Group loaded = NewGroup();
    if (!file->Open(path.c_str(), false) || Transfer(*loaded, *file, false) != 1 || !file->Close()) {
        return 3;  // the entry's value is cut, which a group does not look at
    }
    const std::string picture = directory + "/picture.bmp";
    const TnRobotPtr<ITnRobotSurface> surface = source.Filled(TN_IMAGE_GRAY8, 400, 300, Noise(120000, 2));
    ITnRobotSurface* pSurface = nullptr;
    if (TnRobotImageUtils::SaveImage(picture.c_str(), surface.get()) != 0 || !IsCut(picture, 121078) ||
        TnRobotImageUtils::LoadImage(picture.c_str(), source.pool.get(), &pSurface) != -1) {
        return 4;
    }
    const std::string whole = directory + "/whole";
    if (TnRobotUtils::WriteFile(whole.c_str(), "abc", 3, false) != 0 || !IsCut(whole, 3)) {
        return 5;
    }
    std::filesystem::remove(path);
    if (TnRobotUtils::WriteFile(whole.c_str(), "abc", 3, false) != 0 || ReadBytes(whole) != FromText("abc")) {
        return 6;  // with room again it works again
    }
    return 0;
}

}  // namespace

TEST_F(RefusedPath, ASmallFileSystemThatIsFullFailsLikeALimit) {
    const std::string directory = m_directory.Path().string();
    const pid_t nChild = fork();
    ASSERT_GE(nChild, 0);
    if (nChild == 0) {
        _exit(MountSmall(directory) ? FillSmall(directory, m_source) : kNoMount);
    }
    int nStatus = 0;
    ASSERT_EQ(waitpid(nChild, &nStatus, 0), nChild);
    ASSERT_TRUE(WIFEXITED(nStatus)) << nStatus;
    CountInjected(4);
    if (WEXITSTATUS(nStatus) == kNoMount) {
        GTEST_SKIP() << "this machine mounts nothing for a test";
    }
    EXPECT_EQ(WEXITSTATUS(nStatus), 0) << "the step that went wrong";
}
