// log_clock.hpp - the clock of the log tests: time() is linked to this value.
#pragma once

#include <ctime>

namespace test_clock {

inline std::time_t now = 0x01020304;

}  // namespace test_clock
