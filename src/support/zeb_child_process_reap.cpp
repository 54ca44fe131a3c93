#include "zeb_child_process_reap.h"

#include <sys/wait.h>

#include <cerrno>
#include <string_view>
#include <thread>

namespace zeb {

int exitStatusOf(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

void reapInBackground(pid_t pid) {
    if (pid <= 0) return;
    std::thread([pid] {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
    }).detach();
}

std::string shellWord(const std::string& path) {
    bool plain = !path.empty();
    for (char c : path) {
        bool safe = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    std::string_view("/._-+,:=@%").find(c) != std::string_view::npos;
        if (!safe) plain = false;
    }
    if (plain) return path;
    std::string word = "'";
    for (char c : path) {
        if (c == '\'')
            word += "'\\''";
        else
            word += c;
    }
    return word + "'";
}

}  // namespace zeb
