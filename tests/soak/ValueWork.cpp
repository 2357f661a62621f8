// Values, groups and archives: made, copied, saved, loaded, compared.

#include <string>
#include <vector>

#include "soak/Workshop.h"
#include "support/fakes/TestObjects.h"
#include "support/objects/Archives.h"
#include "support/objects/Files.h"
#include "support/objects/Groups.h"
#include "support/objects/Values.h"

using namespace tntest;

namespace tnsoak {

namespace {

const std::vector<ValueSample>& Samples() {
    static const std::vector<ValueSample> s_samples = ValueSamples();
    return s_samples;
}

std::string RandomText(Worker& worker, int nLongest) {
    std::string strText(static_cast<std::size_t>(worker.Number(1, nLongest)), 'a');
    for (char& ch : strText) {
        ch = static_cast<char>(worker.Number('a', 'z'));
    }
    return strText;
}

// A group of random size; its entries' names say what they hold.
Group RandomGroup(Worker& worker) {
    Group group = NewGroup();
    const int nEntries = worker.Number(1, 30);
    for (int n = 0; n < nEntries; ++n) {
        Require(group->SetValue(("n" + std::to_string(n)).c_str(), n) == 0, "no number");
        const std::string strText = RandomText(worker, 60);
        Require(group->SetValue(("t" + strText).c_str(), strText.c_str()) == 0, "no text");
    }
    const ValueSample& sample = Samples()[static_cast<std::size_t>(worker.Number(0, 12))];
    Require(group->SetValue(sample.lpszName, Have(sample.create()).get()) == 0, "no sample");
    return group;
}

void RequireSameEntries(ITnRobotDataValueGroup& left, ITnRobotDataValueGroup& right) {
    std::vector<std::pair<std::string, ETnRobotDataValueType>> names;
    std::vector<std::pair<std::string, ETnRobotDataValueType>> others;
    Require(left.GetAllDataName(names) == right.GetAllDataName(others), "a group has other entries");
    for (const auto& [strName, eType] : names) {
        ITnRobotDataValue* pLeft = nullptr;
        ITnRobotDataValue* pRight = nullptr;
        Require(left.GetValue(strName.c_str(), &pLeft) == 0, "an entry is missing");
        const Value leftValue(pLeft, tn::kAdopt);
        Require(right.GetValue(strName.c_str(), &pRight) == 0, "an entry was not loaded");
        const Value rightValue(pRight, tn::kAdopt);
        Require(SavedFormOf(*leftValue) == SavedFormOf(*rightValue), "an entry has changed");
    }
}

// What an archive over a memory file of small chunks gets to hold.
template <typename Store>
Bytes Archived(ITnRobotArchive& archive, Store store) {
    const TnRobotPtr<ITnRobotMemFile> file = MakeMemFile();
    Require(file->OpenWriteFile(100) && archive.Attach(file.get(), true), "the memory file is refused");
    store();
    archive.Detach();
    long long nLength = file->GetTotleLen();
    Bytes bytes(static_cast<std::size_t>(nLength));
    Require(file->GetMemData(reinterpret_cast<char*>(bytes.data()), nLength), "the memory file has no content");
    return bytes;
}

// A chain of nodes whose last one every other names too.
TnRobotPtr<TestNode> MakeChain(int nNodes) {
    const TnRobotPtr<TestNode> last = TestNode::Create(nNodes);
    TnRobotPtr<TestNode> first = TestNode::Create(nNodes - 1);
    first->Add(last.get());
    for (int n = nNodes - 2; n > 0; --n) {
        TnRobotPtr<TestNode> next = TestNode::Create(n);
        next->Add(first.get());
        next->Add(last.get());
        first = std::move(next);
    }
    return first;
}

void RequireChain(const TestNode& first, int nNodes) {
    const TestNode* pNode = &first;
    for (int n = 1; n < nNodes; ++n) {
        Insist(pNode->Number() == n && !pNode->Children().empty(), "an object has changed");
        pNode = pNode->Children().front();
    }
    Insist(pNode->Number() == nNodes && pNode->Children().empty(), "the last object has changed");
    Insist(pNode->References() == nNodes - 1, "the last object is not shared");
}

void ArchiveObjects(Worker& worker) {
    const int nNodes = worker.Number(2, 40);
    Bytes saved;
    {
        const TnRobotPtr<TestNode> chain = MakeChain(nNodes);
        const TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
        int nResult = 0;
        const Bytes body = Archived(*archive, [&] { nResult = archive->WriteObject(chain.get()); });
        saved = Archived(*archive, [&] { nResult += archive->WriteMapHeader(); }) + body;
        Require(nResult == 2, "the objects were not written");
    }
    const TnRobotPtr<ITnRobotMemFile> file = MakeMemFile();
    Require(file->OpenMemFile(saved.data(), static_cast<long long>(saved.size()), false), "no file over memory");
    const TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
    Require(archive->Attach(file.get(), false) && archive->ReadMapHeader() == 1, "the header was not read");
    CTnRobotObject* pObject = nullptr;
    Require(archive->ReadObject(&pObject) == 1, "the objects were not read");
    const TnRobotPtr<TestNode> loaded = tn::Adopt(dynamic_cast<TestNode*>(pObject));
    Insist(loaded != nullptr, "another object was read");
    RequireChain(*loaded, nNodes);
}

void TransferGroup(ITnRobotDataValueGroup& group, const std::string& path, bool bStoring) {
    const TnRobotPtr<ITnRobotFile> file = MakeFile();
    Require(file->Open(path.c_str(), bStoring), "the file cannot be opened");
    const TnRobotPtr<ITnRobotArchive> archive = MakeArchive();
    Require(archive->Attach(file.get(), bStoring), "the file is refused");
    Require(group.Serialize(archive.get()) == 1, "the group was not transferred");
    archive->Flush();
    archive->Detach();
    Require(file->Close(), "the file was not open");
}

void ArchiveGroupOnDisk(Worker& worker) {
    const Group group = RandomGroup(worker);
    const Group loaded = NewGroup();
    TransferGroup(*group, worker.Path("group"), true);
    TransferGroup(*loaded, worker.Path("group"), false);
    RequireSameEntries(*group, *loaded);
}

}  // namespace

void UseValues(Worker& worker) {
    const ValueSample& sample = Samples()[static_cast<std::size_t>(worker.Number(0, 12))];
    const Value value = Have(sample.create());
    const Reading reading = ReadAs(*value, sample.eType);
    Insist(reading.nError == 0, "a value has another type");
    Insist(value->Convert2String(nullptr) == sample.strText, "a value has another text");
    const Value clone = tn::Adopt(value->Clone());
    Require(clone != nullptr && SavedFormOf(*clone) == SavedFormOf(*value), "a copy differs");
    const Bytes block(worker.Size(1, 5000), static_cast<unsigned char>(worker.Number(0, 255)));
    const Value blockValue = Have(BlockValue(block));
    Insist(ReadAs(*blockValue, DATA_TYPE_BLOCK).bytes == block, "a block's bytes have changed");
    const Value loaded = Have(IntValue(worker.Number(0, 1000)));
    Require(LoadFrom(*loaded, SavedFormOf(*blockValue)) == 1, "a value was not loaded");
    Require(SavedFormOf(*loaded) == SavedFormOf(*blockValue), "a loaded value differs");
}

void UseGroups(Worker& worker) {
    const Group group = RandomGroup(worker);
    const Group clone = Have(Group(group->Clone(), tn::kAdopt));
    RequireSameEntries(*group, *clone);
    const Group loaded = NewGroup();
    Require(LoadFrom(*loaded, SavedFormOf(*group)) == 1, "a group was not loaded");
    RequireSameEntries(*group, *loaded);
    int nError = -1;
    Insist(group->IntData("n0", &nError) == 0 && nError == 0, "a number has changed");
    Require(group->SetValue("n0", "now a text") == 0, "no text instead of a number");
    Insist(group->GetDataValueType("n0") == DATA_TYPE_STRING, "the entry kept its type");
    Insist(group->RemoveValue("n0") == 0 && !group->HasValue("n0"), "the entry is still there");
}

void UseArchive(Worker& worker) {
    if (worker.Number(1, 4) == 1) {
        ArchiveGroupOnDisk(worker);
    } else {
        ArchiveObjects(worker);
    }
}

}  // namespace tnsoak
