// The functions that the fake borrows from the Linux platform. They are compiled a second time under these names
// (see CMakeLists.txt), so that their plain names can fail on demand.
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

decltype(memcpy_s) linux_memcpy_s;
decltype(memset_s) linux_memset_s;
decltype(strcpy_s) linux_strcpy_s;
decltype(strncpy_s) linux_strncpy_s;
int linux_vsnprintf_s(char* dest, size_t destMax, size_t count, const char* format, va_list args)
    __attribute__((format(printf, 4, 0)));

decltype(OsAccess) linux_OsAccess;
decltype(OsOpenDir) linux_OsOpenDir;
decltype(OsReadDir) linux_OsReadDir;
decltype(OsCloseDir) linux_OsCloseDir;
decltype(OsCopyFile) linux_OsCopyFile;
decltype(OsGetStat) linux_OsGetStat;
decltype(OsMkDir) linux_OsMkDir;
decltype(OsRemove) linux_OsRemove;
decltype(OsRmDir) linux_OsRmDir;

decltype(OsSigEmptySet) linux_OsSigEmptySet;
decltype(OsSigAddSet) linux_OsSigAddSet;
decltype(OsPthreadSigmask) linux_OsPthreadSigmask;
}

namespace kivo::fake {

/// Calls `function`, unless its failure is planned under `name`: the planned code then, or null.
template <typename Function, typename... Arguments>
auto CallLinux(std::string_view name, Function* function, Arguments... arguments) {
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
