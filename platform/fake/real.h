// The functions of platform/common, which the fake compiles under these names (see CMakeLists.txt): the plain names are
// its own, which can fail on demand.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "fake/journal.h"
#include "fake/scheduler.h"
#include "kivo/os_bounds.h"
#include "kivo/os_file.h"
#include "kivo/os_signal.h"

extern "C" {

decltype(memcpy_s) real_memcpy_s;
decltype(memset_s) real_memset_s;
decltype(strcpy_s) real_strcpy_s;
decltype(strncpy_s) real_strncpy_s;
int real_vsnprintf_s(char* dest, size_t destMax, size_t count, const char* format, va_list args)
    __attribute__((format(printf, 4, 0)));

decltype(OsAccess) real_OsAccess;
decltype(OsOpenDir) real_OsOpenDir;
decltype(OsReadDir) real_OsReadDir;
decltype(OsCloseDir) real_OsCloseDir;
decltype(OsCopyFile) real_OsCopyFile;
decltype(OsGetStat) real_OsGetStat;
decltype(OsMkDir) real_OsMkDir;
decltype(OsRemove) real_OsRemove;
decltype(OsRmDir) real_OsRmDir;

decltype(OsSigEmptySet) real_OsSigEmptySet;
decltype(OsSigAddSet) real_OsSigAddSet;
decltype(OsPthreadSigmask) real_OsPthreadSigmask;
}

namespace kivo::fake {

/// Calls `function`, unless its failure is planned under `name`: the planned code then, or null.
template <typename Function, typename... Arguments>
auto CallReal(std::string_view name, Function* function, Arguments... arguments) {
    using Result = std::invoke_result_t<Function, Arguments...>;
    if (const auto code = Failure(Hold(), name)) {
        if constexpr (std::is_pointer_v<Result>) {
            return Result{};
        } else {
            return static_cast<Result>(*code);
        }
    }
    return function(arguments...);
}

}  // namespace kivo::fake
