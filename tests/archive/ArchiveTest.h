// What the tests of the archive share.

#ifndef TNROBOTKERNEL_TESTS_ARCHIVE_ARCHIVETEST_H_
#define TNROBOTKERNEL_TESTS_ARCHIVE_ARCHIVETEST_H_

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "TnRobotKernel/archive.h"
#include "support/fakes/TestObjects.h"
#include "support/objects/Archives.h"

namespace tntest {

using Object = std::unique_ptr<CTnRobotObject>;

// Objects and files of a test must all be gone at its end.
class Archive : public ::testing::Test {
protected:
    ~Archive() override {
        EXPECT_EQ(LiveObject::Count(), 0);
        EXPECT_EQ(TestFile::LiveCount(), 0);
    }
};

// The identity under which the archive saves an object.
inline std::uint64_t IdentityOf(CTnRobotObject* pObject) {
    return reinterpret_cast<std::uint64_t>(pObject);
}

// A class table with the node classes and a table of so many nodes.
inline Bytes NodeHeader(unsigned int nNodes, const char* lpszGuid = TestNode::kGuid) {
    std::vector<SavedObject> objects;
    for (unsigned int i = 0; i < nNodes; ++i) {
        objects.push_back({0xDEADBEEF00000000ULL + i, 0});
    }
    return SavedMapHeader({lpszGuid}, objects);
}

// Reads one object that must be a node; the caller owns what comes back.
inline TnRobotPtr<TestNode> ReadNode(ITnRobotArchive& archive) {
    CTnRobotObject* pObject = nullptr;
    EXPECT_EQ(archive.ReadObject(&pObject), 1);
    return tn::Adopt(dynamic_cast<TestNode*>(pObject));
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_ARCHIVE_ARCHIVETEST_H_
