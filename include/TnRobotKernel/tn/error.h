/// @file
/// Reasons of failure, for the helpers whose last parameter is a std::error_code.
///
/// What the system refused (a missing file, a permission, a full disk) comes with the system's own code;
/// what the library found comes as a tn::errc. Either has a message() that reads as a sentence.

#ifndef TNROBOTKERNEL_TN_ERROR_H_
#define TNROBOTKERNEL_TN_ERROR_H_

#include <cerrno>
#include <string>
#include <system_error>
#include <type_traits>

namespace tn {

/// @addtogroup saving
/// @{

/// What can be wrong beside what the system refuses.
enum class errc {
    not_a_regular_file = 1,  ///< a path leads to a FIFO, a device or a socket
    file_incomplete,         ///< the file ends before everything was read
    file_damaged,            ///< the file holds something that its reader does not know
    file_has_more,           ///< bytes follow that nobody read
    end_of_file,             ///< the file ends here, where it may
    object_refused,          ///< an object's Serialize answered 0
    needs_a_graph,           ///< an object writes other objects, and SaveTo has no tables for them
    not_serialisable,        ///< an object is no ITnRobotSerialize, or has no class record
    class_not_registered,    ///< no class of that identifier is registered in this program
    wrong_type,              ///< an object is there, but of another type than asked for
    not_loaded_yet,          ///< a reference to an object that is not loaded completely, as in a ring
    too_deep,                ///< objects are nested deeper than 4,096
    too_many_objects,        ///< more than 65,535 objects for one file
    not_a_picture,           ///< the file does not begin as its ending says
    picture_incomplete,      ///< the picture ends too early; what there is of it may have come all the same
    picture_damaged,         ///< a picture that cannot be decoded
    picture_too_large,       ///< more pixels than a surface or a file can have, or than so few bytes account for
    format_not_supported,    ///< a form of pixels or of files that the library does not read or write
    no_surface,              ///< the surface pool has no surface of that kind
    no_such_value,           ///< a group has no value of that name
    block_too_large,         ///< a block pool never has a block of so many bytes; as std::errc: value_too_large
};

namespace detail {

class ErrorCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "tnrobot"; }
    std::string message(int nValue) const override { return Sentence(static_cast<errc>(nValue)); }

    // Programs may compare with what the standard calls it.
    std::error_condition default_error_condition(int nValue) const noexcept override {
        return static_cast<errc>(nValue) == errc::block_too_large
                   ? std::make_error_condition(std::errc::value_too_large)
                   : std::error_condition(nValue, *this);
    }

private:
    static const char* Sentence(errc eValue) noexcept {
        switch (eValue) {
            case errc::not_a_regular_file:
                return "The path leads to something that is not a regular file";
            case errc::file_incomplete:
                return "The file ends too early";
            case errc::file_damaged:
                return "The file is damaged, or is not what was expected";
            case errc::file_has_more:
                return "The file holds more than was read";
            case errc::end_of_file:
                return "The file holds nothing more";
            case errc::object_refused:
                return "An object could not save or load itself";
            case errc::needs_a_graph:
                return "The object writes other objects: only SaveGraph can save it";
            case errc::not_serialisable:
                return "An object cannot be saved: it has no class identifier or is not serialisable";
            case errc::class_not_registered:
                return "The class of an object is not registered in this program";
            case errc::wrong_type:
                return "The object is of another type than the one expected";
            case errc::not_loaded_yet:
                return "The file refers to an object that is not loaded";
            case errc::too_deep:
                return "Objects are nested deeper than 4096";
            case errc::too_many_objects:
                return "There are more objects than the 65535 that a file can hold";
            case errc::not_a_picture:
                return "The file is not a picture of the kind that its name says";
            case errc::picture_incomplete:
                return "The picture ends too early";
            case errc::picture_damaged:
                return "The picture is damaged";
            case errc::picture_too_large:
                return "The picture is too large";
            case errc::format_not_supported:
                return "Pictures of this form cannot be read or written";
            case errc::no_surface:
                return "The surface pool has no surface for the picture";
            case errc::no_such_value:
                return "The group has no value of that name";
            case errc::block_too_large:
                return "The pool never has a block of so many bytes";
        }
        return "Unknown reason";
    }
};

// The reason of a system call that has just failed.
inline std::error_code SystemError() noexcept {
    return {errno, std::generic_category()};
}

}  // namespace detail

/// @return the category of tn::errc. Thread-safe.
inline const std::error_category& error_category() noexcept {
    static const detail::ErrorCategory s_category;
    return s_category;
}

/// @return the reason as a code, found by the standard library where one is compared or assigned.
/// @param[in] eReason  reason.
inline std::error_code make_error_code(errc eReason) noexcept {
    return {static_cast<int>(eReason), error_category()};
}

/// @}

}  // namespace tn

/// Lets a tn::errc be assigned to a std::error_code and compared with one.
template <>
struct std::is_error_code_enum<tn::errc> : std::true_type {};

#endif  // TNROBOTKERNEL_TN_ERROR_H_
