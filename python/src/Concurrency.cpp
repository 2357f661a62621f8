// Events, signals and alarm clocks. All of them are thread-safe in the library, and need no mutex here.

#include "Concurrency.h"

#include <chrono>
#include <limits>
#include <thread>
#include <utility>

#include "Errors.h"
#include "Seconds.h"
#include "TnRobotKernel/make.h"

namespace tnrobot::python {

namespace {

// An object of the library that never changes; zero bytes are none.
template <typename T>
class Holder final : public Bound {
public:
    explicit Holder(TnRobotPtr<T> object) : m_object(std::move(object)) {}

    T& Get() const {
        if (!m_object) {
            throw py::value_error("this object was never made: its __init__ was never called");
        }
        return *m_object;
    }

private:
    TnRobotPtr<T> m_object;
};

using Event = Holder<ITnRobotEvent>;
using Signal = Holder<ITnRobotSignal>;
using AlarmClock = Holder<ITnRobotAlarmClock>;

constexpr unsigned int kArmed = 3;

bool WaitEvent(const Event& self, const py::object& timeout) {
    ITnRobotEvent& event = self.Get();
    return WaitInSteps(LimitOf(timeout), [&event](unsigned int nMs) { return event.WaitEvent(nMs); });
}

py::object WaitSignal(const Signal& self, const py::object& timeout) {
    ITnRobotSignal& signal = self.Get();
    unsigned int nState = kArmed;
    WaitInSteps(LimitOf(timeout), [&](unsigned int nMs) {
        nState = signal.Wait(nMs);
        return nState != kArmed;
    });
    return Enumerator("SignalState", static_cast<int>(nState));
}

// The library's own wait has no limit and hears of no signals. This one asks as often.
bool WaitClock(const AlarmClock& self) {
    ITnRobotAlarmClock& clock = self.Get();
    bool bStopped = false;
    WaitInSteps(tn::kNoLimit, [&](unsigned int nMs) {
        bool bOver = clock.IsTimeOut(bStopped) || bStopped;
        for (; !bOver && nMs > 0; --nMs) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            bOver = clock.IsTimeOut(bStopped) || bStopped;
        }
        return bOver;
    });
    return bStopped;
}

void StartClock(const AlarmClock& self, const py::object& seconds) {
    ITnRobotAlarmClock& clock = self.Get();
    if (seconds.is_none()) {
        Raise(PyExc_TypeError, "an alarm clock has a limit in seconds");
    }
    const std::chrono::milliseconds limit = LimitOf(seconds);
    if (limit.count() > std::numeric_limits<unsigned int>::max()) {
        Raise(PyExc_OverflowError, "an alarm clock's limit is below 4294967.296 seconds");
    }
    clock.StartRecord(static_cast<unsigned int>(limit.count()));
}

bool IsStopped(const AlarmClock& self) {
    bool bStopped = false;
    self.Get().IsTimeOut(bStopped);
    return bStopped;
}

bool IsExpired(const AlarmClock& self) {
    bool bStopped = false;
    return self.Get().IsTimeOut(bStopped);
}

void BindEvent(py::module_& module) {
    py::class_<Event>(module, "Event", R"(A flag that threads wait for. It stays set until somebody clears it.)")
        .def(py::init([](bool bSet) { return std::make_unique<Event>(tn::MakeManualEvent(bSet)); }),
             py::arg("is_set") = false)
        .def(
            "set", [](const Event& self) { self.Get().SetEvent(); }, "Set the flag and end every wait.")
        .def(
            "clear", [](const Event& self) { self.Get().ResetEvent(); }, "Reset the flag; waits go on.")
        .def(
            "is_set", [](const Event& self) { return self.Get().WaitEvent(0); }, "Whether the flag is set.")
        .def("wait", &WaitEvent, py::arg("timeout") = py::none(),
             "Wait until the flag is set, at most so many seconds; return the flag. Ctrl-C ends the wait.");
}

void BindSignal(py::module_& module) {
    py::class_<Signal>(module, "Signal",
                       "A latch that is signalled or cancelled, whichever comes first, and tells its waiters which.")
        .def(py::init([] { return std::make_unique<Signal>(tn::MakeSignal()); }))
        .def(
            "signal", [](const Signal& self) { self.Get().Signal(); }, "Signal it, if it is armed.")
        .def(
            "cancel", [](const Signal& self) { self.Get().CanCel(); }, "Cancel it, if it is armed.")
        .def(
            "arm", [](const Signal& self) { self.Get().ClearResource(); }, "Arm it again, whatever it is.")
        .def("wait", &WaitSignal, py::arg("timeout") = py::none(),
             R"(Wait until it is not armed, at most so many seconds; return its SignalState. Ctrl-C ends the wait.)")
        .def_property_readonly(
            "state", [](const Signal& self) { return Enumerator("SignalState", static_cast<int>(self.Get().Wait(0))); },
            "Its SignalState.");
}

void BindClock(py::module_& module) {
    py::class_<AlarmClock>(module, "AlarmClock",
                           R"(A stopwatch with a time limit, which goes on when it is past the limit.

It measures with the wall clock: setting the system's time changes the time that has passed.)")
        .def(py::init([] { return std::make_unique<AlarmClock>(tn::MakeAlarmClock()); }))
        .def("start", &StartClock, py::arg("seconds"), "Start it with a limit, also anew.")
        .def(
            "restart", [](const AlarmClock& self) { self.Get().ReStartRecord(); },
            "Start a running clock anew with the limit it has.")
        .def(
            "stop", [](const AlarmClock& self) { self.Get().StopRecord(); }, "Stop it, and end waits.")
        .def("wait", &WaitClock, "Wait until it is stopped (True) or past its limit (False). Ctrl-C ends the wait.")
        .def_property_readonly("stopped", &IsStopped, "Whether it is stopped, as a new one is.")
        .def_property_readonly("expired", &IsExpired, "Whether it runs and is past its limit.");
}

}  // namespace

void BindConcurrency(py::module_& module) {
    BindEvent(module);
    BindSignal(module);
    BindClock(module);
}

}  // namespace tnrobot::python
