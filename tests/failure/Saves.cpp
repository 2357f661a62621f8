#include "failure/Saves.h"

#include <cstdio>

#include "TnRobotKernel/make.h"
#include "support/fakes/TestObjects.h"

namespace tntest {

namespace {

constexpr int kGroups = 3;

std::string Text(int nContent, std::size_t nLength) {
    return std::string(nLength + static_cast<std::size_t>(nContent), static_cast<char>('a' + nContent));
}

TnRobotPtr<ITnRobotDataValueGroup> Group(int nContent, std::size_t nLength) {
    TnRobotPtr<ITnRobotDataValueGroup> group = tn::MakeValueDataGroup();
    group->SetValue("number", nContent);
    group->SetValue("text", Text(nContent, nLength).c_str());
    return group;
}

bool SaveGroup(const char* lpszPath, int nContent) {
    return tn::SaveTo(lpszPath, *Group(nContent, 20));
}

// More than the file's buffer takes, so that there are several writes.
bool SaveLongGroup(const char* lpszPath, int nContent) {
    return tn::SaveTo(lpszPath, *Group(nContent, 150000), tn::Durability::kFlushed);
}

bool SaveGraph(const char* lpszPath, int nContent) {
    const TnRobotPtr<TestNode> root = TestNode::Create(nContent);
    const TnRobotPtr<TestNode> child = TestNode::Create(10 + nContent);
    for (int n = 0; n < nContent; ++n) {
        root->Add(child.get());
    }
    return tn::SaveGraph(lpszPath, *root);
}

bool SaveGroups(const char* lpszPath, int nContent) {
    tn::GroupFileWriter writer(lpszPath);
    for (int n = 0; n < kGroups; ++n) {
        static_cast<void>(writer.Write(*Group(nContent, static_cast<std::size_t>(n))));
    }
    return writer.Save();
}

// As programs do it that know of archives only.
bool StoreGroups(const char* lpszPath, int nContent) {
    const auto file = tn::MakeFile();
    const auto archive = tn::MakeArchive();
    bool bStored = file->Open(lpszPath, true);
    archive->Attach(file.get(), true);
    for (int n = 0; bStored && n < kGroups; ++n) {
        bStored = Group(nContent, static_cast<std::size_t>(n))->Serialize(archive.get()) == 1;
        archive->Flush();
        bStored = bStored && file->GetPos() != -1;
    }
    file->Close();
    return bStored;
}

struct Picture {
    explicit Picture(int nContent) : strPixels(Text(nContent, 4 * 4 * 4)) {
        image.pData = reinterpret_cast<unsigned char*>(strPixels.data());
        image.nDataSize = 16 * static_cast<unsigned int>(2 + nContent);
        image.nWidth = 4;
        image.nHeight = 2 + nContent;
        image.eImageType = TN_IMAGE_BGRX32;
        image.nBitsPerChannel = 8;
        image.nChannels = 4;
    }
    std::string strPixels;
    STnNLImageData image{};
};

bool SavePicture(const char* lpszPath, int nContent) {
    std::error_code ec;
    return tn::SaveImage(lpszPath, Picture(nContent).image, 16, ec);
}

bool SaveOwnPicture(const char* lpszPath, int nContent) {
    const Picture picture(nContent);
    return TnRobotImageUtils::SaveImage(lpszPath, &picture.image) == 0;
}

bool WriteFile(const char* lpszPath, int nContent) {
    const std::string strText = Text(nContent, 60);
    return TnRobotUtils::WriteFile(lpszPath, strText.data(), static_cast<unsigned int>(strText.size()), false) == 0;
}

bool WriteToFile(const char* lpszPath, int nContent) {
    const auto file = tn::MakeFile();
    const std::string strText = Text(nContent, 20);
    bool bWritten = file->Open(lpszPath, true);
    for (int n = 0; n < 3; ++n) {
        file->Write(strText.data(), static_cast<long long>(strText.size()));
    }
    file->Flush();
    bWritten = bWritten && file->GetPos() != -1;
    file->Close();
    return bWritten;
}

}  // namespace

const std::vector<Save>& AllSaves() {
    static const std::vector<Save> s_saves = {
        {"group", ".grp", Leaves::kOldOrNew, true, SaveGroup},
        {"long group", ".grp", Leaves::kOldOrNew, true, SaveLongGroup},
        {"graph", ".grp", Leaves::kOldOrNew, true, SaveGraph},
        {"groups", ".grp", Leaves::kOldOrNew, true, SaveGroups},
        {"bmp", ".bmp", Leaves::kOldOrNew, true, SavePicture},
        {"jpeg", ".jpg", Leaves::kOldOrNew, true, SavePicture},
        {"groups in place", ".grp", Leaves::kBeginning, true, StoreGroups},
        {"bytes in place", ".bin", Leaves::kBeginning, true, WriteToFile},
        {"bmp in place", ".bmp", Leaves::kBeginning, false, SaveOwnPicture},
        {"jpeg in place", ".jpg", Leaves::kBeginning, false, SaveOwnPicture},
        {"whole file in place", ".bin", Leaves::kBeginning, false, WriteFile},
    };
    return s_saves;
}

int WholeGroups(const std::string& strPath, int nContent) {
    tn::GroupFileReader reader(strPath.c_str());
    int nGroups = 0;
    while (const auto group = reader.ReadGroup()) {
        const char* lpszText = group->StringData("text", nullptr);
        if (group->IntData("number", nullptr) != nContent || lpszText == nullptr ||
            lpszText != Text(nContent, static_cast<std::size_t>(nGroups))) {
            return -1;
        }
        ++nGroups;
    }
    return nGroups;
}

}  // namespace tntest
