// Reads a map header and the objects behind it from untrusted bytes, and stores what was read.

#include <iterator>
#include <set>
#include <utility>
#include <vector>

#include "FuzzArchive.h"

using namespace tnfuzz;

namespace {

// A node with a name and up to two others.
class CNode final : public CTnRobotObject, public ITnRobotSerialize, public ITnUnknown {
public:
    ~CNode() override {
        for (CNode* pOther : m_pOthers) {
            if (pOther != nullptr) {
                pOther->Release();
            }
        }
    }

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
                waiting.insert(waiting.end(), std::begin(pNode->m_pOthers), std::end(pNode->m_pOthers));
            }
        }
    }

private:
    int Load(ITnRobotArchive& archive) {
        int nLength = 0;
        int nError = 0;
        const char* lpszName = archive.ReadString(nLength, &nError);
        m_strName = lpszName != nullptr ? lpszName : "";
        for (CNode*& pOther : m_pOthers) {
            CTnRobotObject* pObject = nullptr;
            archive.ReadObject(&pObject);
            pOther = static_cast<CNode*>(pObject);
        }
        return nError == 0 ? 1 : 0;
    }

    int Store(ITnRobotArchive& archive) const {
        archive.WriteString(m_strName.c_str());
        for (CNode* pOther : m_pOthers) {
            archive.WriteObject(pOther);
        }
        return 1;
    }

    std::string m_strName;
    CNode* m_pOthers[2] = {};
};

STnRuntimeClass CNode::s_class = {"00000000-0000-0000-0000-00000000000a", &CNode::Create, nullptr, nullptr};
const TN_REG_CLASS s_registerNode(&CNode::s_class);

// Roots stay alive until everything is read: later records may refer to them.
using Roots = std::vector<tntest::Held<CNode>>;

Roots ReadRoots(const LoadingArchive& archive) {
    Roots roots;
    CTnRobotObject* pObject = nullptr;
    while (archive->ReadObject(&pObject) == 1) {
        roots.emplace_back(static_cast<CNode*>(pObject));
    }
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const LoadingArchive archive(Bytes(pData, pData + nSize));
    if (archive->ReadMapHeader() == 0) {
        return 0;
    }
    const Roots roots = ReadRoots(archive);
    if (roots.empty()) {
        return 0;
    }
    using tntest::operator+;
    const SavedGraph saved = Save(roots);
    const LoadingArchive again(saved.header + saved.objects);
    Require(again->ReadMapHeader() == 1, "a header that was written can be read");
    const Roots copies = ReadRoots(again);
    Require(copies.size() == roots.size() && CountNodes(copies) == CountNodes(roots), "all nodes come back");
    Require(Save(copies).objects == saved.objects, "and are saved as the same bytes");
    return 0;
}
