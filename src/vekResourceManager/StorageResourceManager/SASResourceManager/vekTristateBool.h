#pragma once

#include <cstdint>

// A yes/no answer that may not have been decided yet, so that a choice made
// once (from the first report that settles it) is not made again.
enum TRISTATE_BOOL : int8_t {
    VEK_TRISTATE_UNDECIDED = -1,
    VEK_TRISTATE_FALSE = 0,
    VEK_TRISTATE_TRUE = 1,
};
