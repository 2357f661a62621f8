// What a value, a group and an object look like as bytes.

#include <TnRobotKernel/make.h>

#include <cstdio>

namespace {

// An object that saves one text.
class Tool final : public CTnRobotObject, public ITnRobotSerialize {
public:
    static STnRuntimeClass s_class;
    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }
    int Serialize(ITnRobotArchive* pArchive) override { return pArchive->WriteString("gripper"); }
};

STnRuntimeClass Tool::s_class = {"5d0c3f1e-9d3a-4f6b-8a44-2b6f3e0c7a11", nullptr, nullptr, nullptr};

// [dump]
// An archive over memory, which prints what each step has added to it.
class Dump {
public:
    Dump() {
        m_file->OpenMemFile(m_bytes, sizeof(m_bytes), true);
        m_archive->Attach(m_file.get(), true);
    }
    ITnRobotArchive* Archive() { return m_archive.get(); }

    void Print(const char* lpszTitle) {
        const auto nEnd = static_cast<std::size_t>(m_file->GetPos());
        std::printf("%s: %zu bytes\n", lpszTitle, nEnd - m_nPrinted);
        for (std::size_t nColumn = 1; m_nPrinted < nEnd; ++nColumn) {
            const unsigned char byOne = m_bytes[m_nPrinted++];
            std::printf("%02x%c", byOne, nColumn % 16 == 0 || m_nPrinted == nEnd ? '\n' : ' ');
        }
    }

private:
    unsigned char m_bytes[256] = {};
    std::size_t m_nPrinted = 0;
    TnRobotPtr<ITnRobotMemFile> m_file = tn::MakeMemFile();
    TnRobotPtr<ITnRobotArchive> m_archive = tn::MakeArchive();
};
// [/dump]

}  // namespace

int main() {
    Dump dump;
    // [main]
    tn::MakeStringData("left")->Serialize(dump.Archive());
    dump.Print("a text");

    const auto group = tn::MakeValueDataGroup();
    group->SetValue("camera", "left");
    group->Serialize(dump.Archive());
    dump.Print("a group with that text");

    Tool tool;
    dump.Archive()->WriteObject(&tool);
    dump.Print("an object");
    dump.Archive()->WriteObject(&tool);
    dump.Print("the same object again");
    // [/main]
}
