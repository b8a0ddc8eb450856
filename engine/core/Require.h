#pragma once
// Programming-fault checks: always compiled in, they print the failed
// condition and stop the process. Bad input never reaches one of these;
// readers report it as an error instead.

namespace korv::detail {
[[noreturn]] void requireFailed(const char* condition, const char* file, int line);
}

#define KORV_REQUIRE(cond)                                                                                   \
    do {                                                                                                     \
        if (!(cond)) [[unlikely]]                                                                            \
            ::korv::detail::requireFailed(#cond, __FILE__, __LINE__);                                        \
    } while (0)
