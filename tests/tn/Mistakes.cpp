// What must not compile, each beside what was meant, as in tests/ptr/Mistakes.cpp.

#include <memory>
#include <string>

#include "TnRobotKernel/tn/for_each.h"
#include "TnRobotKernel/tn/run.h"
#include "TnRobotKernel/tn/work_queue.h"

namespace {

[[maybe_unused]] void ReturnAResult(ITnRobotTaskPool& pool) {
    int nResult = 0;
#ifdef MISTAKE_RETURN_A_RESULT
    auto handle = tn::Run(pool, [] { return 7; });
#else
    auto handle = tn::Run(pool, [&nResult] { nResult = 7; });
#endif
    handle.Wait();
    static_cast<void>(nResult);
}

[[maybe_unused]] void TakeSomethingElse(ITnRobotTaskPool& pool) {
#ifdef MISTAKE_TAKE_SOMETHING_ELSE
    tn::ForEach(pool, 3, [](const std::string&) {});
#else
    tn::ForEach(pool, 3, [](std::size_t) {});
#endif
}

[[maybe_unused]] void ChangeTheItem(ITnRobotTaskPool& pool) {
#ifdef MISTAKE_CHANGE_THE_ITEM
    tn::WorkQueue<std::string> queue(pool, [](std::string& strItem) { strItem.clear(); });
#else
    tn::WorkQueue<std::string> queue(pool, [](std::string&& strItem) { strItem.clear(); });
#endif
    queue.Finish();
}

struct ThrowsWhenMoved {
    ThrowsWhenMoved() = default;
    ThrowsWhenMoved(const ThrowsWhenMoved&) {}
};

[[maybe_unused]] void QueueWhatThrowsWhenMoved(ITnRobotTaskPool& pool) {
#ifdef MISTAKE_QUEUE_WHAT_THROWS_WHEN_MOVED
    tn::WorkQueue<ThrowsWhenMoved> queue(pool, [](const ThrowsWhenMoved&) {});
#else
    tn::WorkQueue<std::unique_ptr<ThrowsWhenMoved> > queue(pool, [](const std::unique_ptr<ThrowsWhenMoved>&) {});
#endif
    queue.Finish();
}

// As an error, for a warning is what the attribute asks for.
#pragma GCC diagnostic error "-Wunused-result"

[[maybe_unused]] void ForgetTheHandle(ITnRobotTaskPool& pool) {
#ifdef MISTAKE_FORGET_THE_HANDLE
    tn::Run(pool, [] {});
#else
    tn::Run(pool, [] {}).Wait();
#endif
}

[[maybe_unused]] void ForgetTheLimit(ITnRobotTaskPool& pool) {
    const tn::ForEachOptions options{2, std::chrono::milliseconds(5)};
#ifdef MISTAKE_FORGET_THE_LIMIT
    tn::ForEach(
        pool, 3, [](std::size_t) {}, options);
#else
    if (!tn::ForEach(
            pool, 3, [](std::size_t) {}, options)) {
        return;
    }
#endif
}

}  // namespace
