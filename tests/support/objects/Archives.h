// Archives over test files, ready to store or to load.

#ifndef TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_ARCHIVES_H_
#define TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_ARCHIVES_H_

#include <utility>

#include "TnRobotKernel/archive.h"
#include "support/fakes/TestFile.h"

namespace tntest {

inline TnRobotPtr<ITnRobotArchive> MakeArchive() {
    ITnRobotArchive* pArchive = nullptr;
    TnCreateRobotArchive(&pArchive);
    return tn::Adopt(pArchive);
}

/// An archive with its file, both released at the end of the scope.
struct Channel {
    TnRobotPtr<TestFile> file;
    TnRobotPtr<ITnRobotArchive> archive;

    ITnRobotArchive* operator->() const { return archive.get(); }
    ITnRobotArchive* Get() const { return archive.get(); }
};

inline Channel Storing() {
    Channel channel{TestFile::Create(), MakeArchive()};
    channel.archive->Attach(channel.file.get(), true);
    return channel;
}

inline Channel Loading(Bytes bytes) {
    Channel channel{TestFile::Create(std::move(bytes)), MakeArchive()};
    channel.archive->Attach(channel.file.get(), false);
    return channel;
}

/// What an object writes through a fresh archive.
template <typename Serialisable>
Bytes SavedFormOf(Serialisable& object) {
    Channel channel = Storing();
    object.Serialize(channel.Get());
    return channel.file->Content();
}

/// Loads an object from bytes. @return its result.
template <typename Serialisable>
int LoadFrom(Serialisable& object, Bytes bytes) {
    Channel channel = Loading(std::move(bytes));
    return object.Serialize(channel.Get());
}

}  // namespace tntest

#endif  // TNROBOTKERNEL_TESTS_SUPPORT_OBJECTS_ARCHIVES_H_
