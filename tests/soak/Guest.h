// What the soak test and its plug-in know of each other.

#ifndef TNROBOTKERNEL_TESTS_SOAK_GUEST_H_
#define TNROBOTKERNEL_TESTS_SOAK_GUEST_H_

namespace tnsoak {

/// What the plug-in did with the library.
enum class Visit {
    kWorked,
    kRefused,  ///< something that takes memory was refused
    kWrong     ///< something came back as something else
};

/// Saves and loads an object of a class that the plug-in has registered.
using VisitFunction = Visit (*)(int nNumber);

constexpr char kVisit[] = "TnSoakVisit";

}  // namespace tnsoak

#endif  // TNROBOTKERNEL_TESTS_SOAK_GUEST_H_
