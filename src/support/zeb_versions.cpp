#include "zeb_versions.h"

#include <cstdlib>
#include <cstring>

namespace zeb {

int compareVersions(const std::string& a, const std::string& b) {
    const char* left = a.c_str();
    const char* right = b.c_str();
    for (;;) {
        int x = atoi(left);
        int y = atoi(right);
        if (x != y) return x > y ? 1 : -1;
        const char* nextLeft = strchr(left, '.');
        const char* nextRight = strchr(right, '.');
        if (nextLeft && !nextRight) return 1;
        if (!nextLeft && nextRight) return -1;
        if (!nextLeft) return 0;
        left = nextLeft + 1;
        right = nextRight + 1;
    }
}

}  // namespace zeb
