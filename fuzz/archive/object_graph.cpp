// Reads a map header and the objects behind it from untrusted bytes, and stores what was read: through a
// bare archive, and through a reader that holds what its caller drops.

#include <TnRobotKernel/tn/tn.h>

#include <iterator>
#include <set>
#include <utility>
#include <vector>

#include "FuzzBudget.h"
#include "archive/FuzzArchive.h"

using namespace tnfuzz;

namespace {

// A node with a name and up to two others.
class CNode final : public CTnRobotObject, public ITnRobotSerialize, public ITnUnknown {
public:
    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }
    static CTnRobotObject* Create() { return new CNode; }
    static STnRuntimeClass s_class;

    int Serialize(ITnRobotArchive* pArchive) override {
        return pArchive->IsLoading() ? Load(*pArchive) : Store(*pArchive);
    }

    // Goes over every node that can be reached, each once.
    void Walk(std::set<CNode*>& seen) {
        std::vector<CNode*> waiting = {this};
        while (!waiting.empty()) {
            CNode* pNode = waiting.back();
            waiting.pop_back();
            if (pNode != nullptr && seen.insert(pNode).second) {
                Touch(pNode->m_strName.data(), pNode->m_strName.size());
                waiting.insert(waiting.end(), {pNode->m_others[0].get(), pNode->m_others[1].get()});
            }
        }
    }

private:
    int Load(ITnRobotArchive& archive) {
        int nLength = 0;
        int nError = 0;
        const char* lpszName = archive.ReadString(nLength, &nError);
        m_strName = lpszName != nullptr ? lpszName : "";
        for (TnRobotPtr<CNode>& other : m_others) {
            other = tn::ReadObject<CNode>(archive);
        }
        return nError == 0 ? 1 : 0;
    }

    int Store(ITnRobotArchive& archive) const {
        archive.WriteString(m_strName.c_str());
        for (const TnRobotPtr<CNode>& other : m_others) {
            archive.WriteObject(other.get());
        }
        return 1;
    }

    std::string m_strName;
    TnRobotPtr<CNode> m_others[2];
};

// An object of another type, which nobody expects, and so everybody drops.
class CStranger final : public CTnRobotObject, public ITnRobotSerialize, public ITnUnknown {
public:
    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }
    static CTnRobotObject* Create() { return new CStranger; }
    static STnRuntimeClass s_class;
    int Serialize(ITnRobotArchive* /*pArchive*/) override { return 1; }
};

// An object that nobody counts. Through a bare archive it belongs to nobody: the target keeps a list.
class CUncounted final : public CTnRobotObject, public ITnRobotSerialize {
public:
    CUncounted() { s_all.insert(this); }
    ~CUncounted() override { s_all.erase(this); }
    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }
    static CTnRobotObject* Create() { return new CUncounted; }
    static STnRuntimeClass s_class;
    int Serialize(ITnRobotArchive* /*pArchive*/) override { return 1; }

    static std::size_t Count() { return s_all.size(); }
    static void DeleteAll() {
        while (!s_all.empty()) {
            delete *s_all.begin();
        }
    }

private:
    static std::set<CUncounted*> s_all;
};

std::set<CUncounted*> CUncounted::s_all;
STnRuntimeClass CNode::s_class = {"00000000-0000-0000-0000-00000000000a", &CNode::Create, nullptr, nullptr};
STnRuntimeClass CStranger::s_class = {"00000000-0000-0000-0000-00000000000b", &CStranger::Create, nullptr, nullptr};
STnRuntimeClass CUncounted::s_class = {"00000000-0000-0000-0000-00000000000c", &CUncounted::Create, nullptr, nullptr};
const TN_REG_CLASS s_registerNode(&CNode::s_class);
const TN_REG_CLASS s_registerStranger(&CStranger::s_class);
const TN_REG_CLASS s_registerUncounted(&CUncounted::s_class);

using Roots = std::vector<TnRobotPtr<CNode>>;

Roots ReadRoots(const LoadingArchive& archive) {
    Roots roots;
    std::error_code ec;
    do {
        TnRobotPtr<CNode> root = tn::ReadObject<CNode>(*archive.Get(), ec);
        if (!root && !ec) {
            break;  // a null, or nothing
        }
        if (root) {
            roots.push_back(std::move(root));
        }
    } while (!ec || ec == tn::errc::wrong_type);
    return roots;
}

std::size_t CountNodes(const Roots& roots) {
    std::set<CNode*> seen;
    for (const auto& root : roots) {
        root->Walk(seen);
    }
    return seen.size();
}

// A graph as it is saved: header, and objects apart from it.
struct SavedGraph {
    Bytes header;
    Bytes objects;
};

SavedGraph Save(const Roots& roots) {
    const StoringArchive objects;
    for (const auto& root : roots) {
        Require(objects->WriteObject(root.get()) == 1, "a graph that was read can be written");
    }
    Bytes bytes = objects.Content();
    return {MapHeaderOf(*objects.Get()), std::move(bytes)};
}

// A bare archive: nothing that is gone comes back, and what was read is written as it came.
void ReadThroughArchive(const Bytes& bytes) {
    const LoadingArchive archive(bytes);
    if (archive->ReadMapHeader() == 0) {
        return;
    }
    const Roots roots = ReadRoots(archive);
    if (roots.empty()) {
        return;
    }
    using tntest::operator+;
    const SavedGraph saved = Save(roots);
    const LoadingArchive again(saved.header + saved.objects);
    Require(again->ReadMapHeader() == 1, "a header that was written can be read");
    const Roots copies = ReadRoots(again);
    Require(copies.size() == roots.size() && CountNodes(copies) == CountNodes(roots), "all nodes come back");
    Require(Save(copies).objects == saved.objects, "and are saved as the same bytes");
}

// Reads all nodes of a file and drops every second one at once.
Roots ReadAndDrop(const Bytes& bytes, int nDropped) {
    Bytes copy = bytes;
    const auto file = tn::MakeMemFile();
    file->OpenMemFile(copy.data(), static_cast<long long>(copy.size()), false);
    tn::ObjectReader reader(*file);
    Roots kept;
    std::error_code ec;
    for (int nRoot = 0; !reader.Reason(); ++nRoot) {
        TnRobotPtr<CNode> root = reader.Read<CNode>(ec);
        Require(!root || !ec, "what is there has no reason not to be");
        if (root && nRoot % 2 != nDropped) {
            kept.push_back(std::move(root));
        }
    }
    CountNodes(kept);
    return kept;
}

// Everything that a writer writes for nodes; empty when they are nested too deep from this side.
Bytes Written(const Roots& roots) {
    tn::ObjectWriter writer;
    std::error_code ec;
    for (const auto& root : roots) {
        if (!writer.Write(root.get(), ec)) {
            Require(ec == tn::errc::too_deep, "a graph that was read can be written");
            return {};
        }
    }
    const auto file = tntest::TestFile::Create();
    Require(writer.WriteTo(*file), "memory takes everything");
    return file->Content();
}

void ReadThroughReader(const Bytes& bytes) {
    const Roots kept = ReadAndDrop(bytes, 1);
    const Bytes written = Written(kept);
    if (written.empty()) {
        return;
    }
    constexpr int kNone = -1;
    const Roots copies = ReadAndDrop(written, kNone);
    Require(copies.size() == kept.size() && CountNodes(copies) == CountNodes(kept), "all nodes come back");
    Require(Written(copies) == written, "and are saved as the same bytes");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const FuzzBudget budget(nSize);
    const Bytes bytes(pData, pData + nSize);
    ReadThroughReader(bytes);
    Require(CUncounted::Count() == 0, "a reader leaves nothing behind");
    ReadThroughArchive(bytes);
    CUncounted::DeleteAll();
    return 0;
}
