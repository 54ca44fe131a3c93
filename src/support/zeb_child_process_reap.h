// Small process helpers shared by the child-process files.
#pragma once

#include <sys/types.h>

#include <string>

namespace zeb {

// Exit code of a waitpid status: the code, or 128 plus the signal number.
int exitStatusOf(int status);
// Waits for `pid` on a detached thread, so that an ended child leaves no
// zombie behind when nobody asks for its status.
void reapInBackground(pid_t pid);
// `path` as one shell word: unchanged when it has no special characters,
// else in single quotes.
std::string shellWord(const std::string& path);

}  // namespace zeb
