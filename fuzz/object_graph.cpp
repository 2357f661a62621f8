// Reads a map header and the objects behind it from untrusted bytes.

#include "FuzzArchive.h"

namespace {

// A node with a name and up to two others.
class CNode final : public CTnRobotObject, public ITnRobotSerialize, public ITnUnknown {
public:
    ~CNode() override {
        for (CTnRobotObject* pOther : m_pOthers) {
            if (auto* pNode = dynamic_cast<CNode*>(pOther)) {
                pNode->Release();
            }
        }
    }

    STnRuntimeClass* GetRuntimeClass() override { return &s_class; }
    static CTnRobotObject* Create() { return new CNode; }
    static STnRuntimeClass s_class;

    int Serialize(ITnRobotArchive* pArchive) override {
        int nLength = 0;
        int nError = 0;
        pArchive->ReadString(nLength, &nError);
        for (CTnRobotObject*& pOther : m_pOthers) {
            pArchive->ReadObject(&pOther);
        }
        return nError == 0 ? 1 : 0;
    }

private:
    CTnRobotObject* m_pOthers[2] = {};
};

STnRuntimeClass CNode::s_class = {"00000000-0000-0000-0000-00000000000a", &CNode::Create, nullptr, nullptr};
const TN_REG_CLASS s_registerNode(&CNode::s_class);

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize) {
    const FuzzArchive archive(pData, nSize);
    if (archive->ReadMapHeader() == 0) {
        return 0;
    }
    // Roots stay alive until everything is read: later records may refer to them.
    std::vector<CNode*> roots;
    CTnRobotObject* pObject = nullptr;
    while (archive->ReadObject(&pObject) == 1) {
        roots.push_back(dynamic_cast<CNode*>(pObject));
    }
    for (CNode* pRoot : roots) {
        pRoot->Release();
    }
    return 0;
}
