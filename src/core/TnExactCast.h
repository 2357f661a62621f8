// The checked cast to a class from which nothing is derived.

#ifndef TNROBOTKERNEL_SRC_CORE_TNEXACTCAST_H_
#define TNROBOTKERNEL_SRC_CORE_TNEXACTCAST_H_

#include <type_traits>
#include <typeinfo>

namespace tnrobot {

/// Says as much as a dynamic_cast, because the class is final, and costs less: one look at the type.
/// @return null for null and for an object of another class.
template <typename Class, typename Base>
inline Class* ExactCast(Base* pObject) {
    static_assert(std::is_final_v<Class>, "an object of a derived class would not be recognised");
    return pObject != nullptr && typeid(*pObject) == typeid(Class) ? static_cast<Class*>(pObject) : nullptr;
}

}  // namespace tnrobot

#endif  // TNROBOTKERNEL_SRC_CORE_TNEXACTCAST_H_
