// Conditions of an SQL statement as text. Nothing is escaped: that is the caller's part.

#include "TnRobotKernel/utilities.h"

namespace {

// Texts are turned into strings one by one: a null one then throws instead of being read.
std::string Join(const char* lpszField, const char* lpszOperator, const char* lpszValue) {
    return std::string(lpszField) + lpszOperator + std::string(lpszValue);
}

}  // namespace

std::string TnRobotSQLUtils::CreateFilter(const char* lpszField, const char* lpszValue) {
    return Join(lpszField, " LIKE '", lpszValue) + "'";
}

std::string TnRobotSQLUtils::CreateFilter(const char* lpszField, ETnRobotSQLOpera eOpera, const char* lpszValue) {
    switch (eOpera) {
        case SQL_OPERA_GREATER:
            return Join(lpszField, " > ", lpszValue);
        case SQL_OPERA_LESS:
            return Join(lpszField, " < ", lpszValue);
        default:
            return {};
    }
}
