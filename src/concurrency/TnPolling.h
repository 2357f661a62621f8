// How a caller waits for a worker: by asking once a millisecond, without a time limit.

#ifndef TNROBOTKERNEL_SRC_CONCURRENCY_TNPOLLING_H_
#define TNROBOTKERNEL_SRC_CONCURRENCY_TNPOLLING_H_

#include <unistd.h>

#include "core/TnSchedule.h"

namespace tnrobot {

/// Sleeps for one polling step.
inline void PollSleep() {
    SchedulePoint();
    constexpr unsigned int kStepMicroseconds = 1000;
    usleep(kStepMicroseconds);
}

/// Sleeps step by step until the answer is true, which it may be at once.
template <typename Answer>
void PollUntil(Answer answer) {
    while (!answer()) {
        PollSleep();
    }
}

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CONCURRENCY_TNPOLLING_H_
