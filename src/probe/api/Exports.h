#pragma once

// Included first by every file that defines exported functions: the declarations get default
// visibility, everything else in the library stays hidden (-fvisibility=hidden).

#pragma GCC visibility push(default)
#include "probe/FakeTarget.h"
#include "probe/Tarvo.h"
#pragma GCC visibility pop
