// What it takes to hand work to threads that wait for it: the queue and the loop of tn/ beside a plain
// thread pool, std::async and OpenCV's loop.
//
// Work of a known length is spun, not slept: a sleeping thread would leave its processor to the others.

#include <algorithm>
#include <chrono>
#include <future>
#include <vector>

#ifdef TNROBOT_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#endif

#include "BenchSupport.h"
#include "TnRobotKernel/make.h"
#include "TnRobotKernel/tn/for_each.h"
#include "TnRobotKernel/tn/run.h"
#include "TnRobotKernel/tn/work_queue.h"
#include "work/PlainPool.h"

namespace {

constexpr unsigned int kThreads = 4;
constexpr int kBatch = 1000;         // empty items of one iteration
constexpr std::size_t kPieces = 12;  // pieces of real work
constexpr std::chrono::microseconds kPiece{300};

void Nothing() {
    benchmark::ClobberMemory();
}

void Spin(std::chrono::microseconds length) {
    const auto end = std::chrono::steady_clock::now() + length;
    while (std::chrono::steady_clock::now() < end) {
    }
}

void Piece() {
    Spin(kPiece);
}

// The parties that take one item at a time. Items of all of them are functions, which a queue of items
// of its own does not need; a plain pool does.

struct OurQueue {
    void Push(void (*pfnItem)()) { m_queue.Push(pfnItem); }
    void Wait() { m_queue.Wait(); }

    TnRobotPtr<ITnRobotTaskPool> m_pool = tn::MakeTaskPool();
    tn::WorkQueue<void (*)()> m_queue{*m_pool, [](void (*pfnItem)()) { pfnItem(); }, {kThreads, kBatch, {}}};
};

struct PlainQueue {
    void Push(void (*pfnItem)()) { m_pool.Post(pfnItem); }
    void Wait() { m_pool.Wait(); }

    bench::PlainPool m_pool{kThreads};
};

struct Async {
    void Push(void (*pfnItem)()) { m_items.push_back(std::async(std::launch::async, pfnItem)); }
    void Wait() {
        for (std::future<void>& item : m_items) {
            item.get();
        }
        m_items.clear();
    }

    std::vector<std::future<void>> m_items;
};

template <typename Party>
void HandOver(benchmark::State& state, void (*pfnItem)(), std::size_t nItems) {
    Party party;
    for (auto _ : state) {
        for (std::size_t n = 0; n < nItems; ++n) {
            party.Push(pfnItem);
        }
        party.Wait();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<long long>(nItems));
}

template <typename Party>
void EmptyItems(benchmark::State& state) {
    HandOver<Party>(state, Nothing, kBatch);
}

template <typename Party>
void OneItem(benchmark::State& state) {
    HandOver<Party>(state, Nothing, 1);
}

template <typename Party>
void Pieces(benchmark::State& state) {
    HandOver<Party>(state, Piece, kPieces);
}

// The parties that have loops.

struct OurLoop {
    template <typename Job>
    void Each(std::size_t nCount, Job job) {
        bench::Require(tn::ForEach(*m_pool, nCount, job, {kThreads, tn::kNoLimit}), "a loop has not ended");
    }

    TnRobotPtr<ITnRobotTaskPool> m_pool = tn::MakeTaskPool();
};

#ifdef TNROBOT_BENCH_OPENCV
struct OpenCvLoop {
    OpenCvLoop() { cv::setNumThreads(static_cast<int>(kThreads)); }

    template <typename Job>
    void Each(std::size_t nCount, Job job) {
        cv::parallel_for_(
            cv::Range(0, static_cast<int>(nCount)),
            [&job](const cv::Range& range) {
                for (int n = range.start; n < range.end; ++n) {
                    job(static_cast<std::size_t>(n));
                }
            },
            static_cast<double>(nCount));
    }
};
#endif

template <typename Party>
void EmptyLoop(benchmark::State& state) {
    Party party;
    party.Each(kPieces, [](std::size_t) { Piece(); });  // whoever starts threads has them now
    for (auto _ : state) {
        party.Each(kBatch, [](std::size_t) { Nothing(); });
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

template <typename Party>
void PiecesLoop(benchmark::State& state) {
    Party party;
    party.Each(kPieces, [](std::size_t) { Piece(); });
    for (auto _ : state) {
        party.Each(kPieces, [](std::size_t) { Piece(); });
    }
}

// The pieces shared out among as many threads as can run, without any hand-over.
void IdealPieces(benchmark::State& state) {
    const auto nAtOnce = std::min(static_cast<long>(kThreads), static_cast<long>(bench::Cores()));
    for (auto _ : state) {
        Spin(kPiece * static_cast<long>(kPieces) / nAtOnce);
    }
}

// A job on its own and its end, the task's start long since paid.
void RunOurs(benchmark::State& state) {
    const auto pool = tn::MakeTaskPool();
    tn::Run(*pool, Nothing).Wait();
    for (auto _ : state) {
        tn::Run(*pool, Nothing).Wait();
    }
}

void RunAsync(benchmark::State& state) {
    for (auto _ : state) {
        std::async(std::launch::async, Nothing).get();
    }
}

// What a task costs that is started for each job, by contract.
void RunByStart(benchmark::State& state) {
    const auto pool = tn::MakeTaskPool();
    for (auto _ : state) {
        std::atomic<bool> bDone{false};
        const auto runner = tn::MakeRunner([&bDone] { bDone = true; });
        const auto task = tn::CreateTask(*pool, runner.get());
        bench::Require(task && task->Start(), "a task cannot be started");
        while (!bDone) {
            std::this_thread::yield();
        }
    }
}

}  // namespace

int main(int nArguments, char** ppszArguments) {
    bench::Program program(nArguments, ppszArguments, "work", "Work in parallel");
    bench::Register("EmptyItems1000/ours", 1, EmptyItems<OurQueue>);
    bench::Register("EmptyItems1000/plain_pool", 1, EmptyItems<PlainQueue>);
    bench::Register("EmptyItems1000/std_async", 1, EmptyItems<Async>);
    bench::Register("OneItem/ours", 1, OneItem<OurQueue>);
    bench::Register("OneItem/plain_pool", 1, OneItem<PlainQueue>);
    bench::Register("OneItem/std_async", 1, OneItem<Async>);
    bench::Register("RunOneJob/ours", 1, RunOurs);
    bench::Register("RunOneJob/std_async", 1, RunAsync);
    bench::Register("RunOneJob/task_start", 1, RunByStart);
    bench::Register("Items12Of300us/ours", 1, Pieces<OurQueue>);
    bench::Register("Items12Of300us/plain_pool", 1, Pieces<PlainQueue>);
    bench::Register("Items12Of300us/std_async", 1, Pieces<Async>);
    bench::Register("Items12Of300us/limit_ideal", 1, IdealPieces);
    bench::Register("Loop12Of300us/ours", 1, PiecesLoop<OurLoop>);
    bench::Register("Loop12Of300us/limit_ideal", 1, IdealPieces);
    bench::Register("EmptyLoop1000/ours", 1, EmptyLoop<OurLoop>);
#ifdef TNROBOT_BENCH_OPENCV
    program.AddPeer(std::string("opencv ") + CV_VERSION);
    bench::Register("Loop12Of300us/opencv", 1, PiecesLoop<OpenCvLoop>);
    bench::Register("EmptyLoop1000/opencv", 1, EmptyLoop<OpenCvLoop>);
#else
    program.AddAbsentPeer("opencv: its core module is not installed");
#endif
    return program.Run();
}
