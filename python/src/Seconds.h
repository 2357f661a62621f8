/// @file
/// Time limits as Python has them, and waits that hear of signals.

#ifndef PYTHON_SECONDS_H_
#define PYTHON_SECONDS_H_

#include <algorithm>
#include <chrono>

#include "Interpreter.h"
#include "TnRobotKernel/tn/cancel.h"
#include "TnRobotKernel/tn/detail/Waiting.h"

namespace tnrobot::python {

/// @return seconds as a time limit, rounded up; None is no limit, and what is below 0 is 0.
/// @param[in] seconds  a number; TypeError for anything else, ValueError for one that is none (NaN).
std::chrono::milliseconds LimitOf(const py::object& seconds);

/// To be called between the steps of a wait, without the interpreter's lock.
/// @return false when a signal has come that ends the wait: its exception is what Python has to raise next.
bool SignalsAllowWaiting();

/// Waits without the interpreter's lock, in steps between which Python hears of signals.
/// @param[in] limit  longest wait.
/// @param[in] step   `bool(unsigned int nMs)`: waits up to so long, and answers whether that was all.
/// @return the last answer. Throws what a signal's handler has raised, KeyboardInterrupt above all.
template <typename Step>
bool WaitInSteps(std::chrono::milliseconds limit, Step step) {
    constexpr std::chrono::milliseconds kStep{20};
    const auto end = tn::detail::After(limit);
    bool bDone = false;
    bool bGoOn = true;
    {
        const WithoutGil others;
        while (bGoOn && !bDone) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - tn::detail::Clock::now());
            const auto now = std::clamp(left, std::chrono::milliseconds(0), kStep);
            bDone = step(static_cast<unsigned int>(now.count()));
            bGoOn = bDone || (left > std::chrono::milliseconds(0) && SignalsAllowWaiting());
        }
    }
    if (PyErr_Occurred() != nullptr) {
        throw py::error_already_set();
    }
    return bDone;
}

}  // namespace tnrobot::python

#endif  // PYTHON_SECONDS_H_
