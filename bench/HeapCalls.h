// How often a program asks for heap memory.

#ifndef TNROBOTKERNEL_BENCH_HEAPCALLS_H_
#define TNROBOTKERNEL_BENCH_HEAPCALLS_H_

namespace bench {

/// @return calls of malloc and its kin so far, of all threads, by the libraries under test too. Each is
///         slower than in a program without this.
long long HeapCalls();

}  // namespace bench

#endif  // TNROBOTKERNEL_BENCH_HEAPCALLS_H_
