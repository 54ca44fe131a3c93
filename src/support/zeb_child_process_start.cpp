// Programs started by the worker: commands run to their end, children held
// until the caller releases them, and elevated starts.
#include "zeb_child_process.h"
#include "zeb_child_process_reap.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

namespace zeb {

std::string joinArguments(const std::string& path, const std::vector<std::string>& arguments) {
    std::string line = path;
    for (const auto& argument : arguments) line += " " + argument;
    return line;
}

std::string runCommand(const std::string& commandLine, int& exitCode) {
    SyncRedirector redirector;
    redirector.run(commandLine, exitCode);
    return std::move(redirector.output);
}

std::string runProgram(const std::string& path, const std::vector<std::string>& arguments, int& exitCode) {
    // The path is one word even when it holds blanks; the arguments keep
    // their own quoting.
    return runCommand(joinArguments(shellWord(path), arguments), exitCode);
}

std::string findProgram(const std::string& name) {
    auto executable = [](const std::string& path) {
        struct stat info {};
        return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && access(path.c_str(), X_OK) == 0;
    };
    if (name.empty()) return {};
    if (name.find('/') != std::string::npos) return executable(name) ? name : std::string();
    const char* variable = std::getenv("PATH");
    std::string search = variable && *variable ? variable : "/usr/local/bin:/usr/bin:/bin";
    size_t start = 0;
    while (start <= search.size()) {
        size_t end = search.find(':', start);
        if (end == std::string::npos) end = search.size();
        std::string folder = search.substr(start, end - start);
        if (folder.empty()) folder = ".";
        std::string candidate = folder + "/" + name;
        if (executable(candidate)) return candidate;
        start = end + 1;
    }
    return {};
}

namespace {

// The highest descriptor now open, read before fork: the child may only make
// async-signal-safe calls, so it can't list its descriptors itself.
int highestOpenFd() {
    int highest = 2;
    if (DIR* folder = opendir("/proc/self/fd")) {
        while (dirent* entry = readdir(folder)) {
            int fd = std::atoi(entry->d_name);
            if (fd > highest) highest = fd;
        }
        closedir(folder);
    } else {
        long limit = sysconf(_SC_OPEN_MAX);
        highest = limit > 0 && limit < 65536 ? static_cast<int>(limit) : 65536;
    }
    return highest + 64;  // room for descriptors other threads open meanwhile
}

}  // namespace

SuspendedProcess startSuspended(const std::string& path, const std::vector<std::string>& arguments) {
    std::string program = findProgram(path);
    if (program.empty()) return {};
    std::string shell = "/bin/sh", dashC = "-c";
    std::string line = "exec " + joinArguments(shellWord(program), arguments);
    char* argv[] = {shell.data(), dashC.data(), line.data(), nullptr};
    int release[2];
    if (pipe2(release, O_CLOEXEC) != 0) return {};
    int highest = highestOpenFd();
    pid_t pid = fork();
    if (pid < 0) {
        ::close(release[0]);
        ::close(release[1]);
        return {};
    }
    if (pid == 0) {
        // The child: only async-signal-safe calls until exec.
        struct sigaction action {};
        action.sa_handler = SIG_DFL;
        sigaction(SIGPIPE, &action, nullptr);
        sigset_t empty;
        sigemptyset(&empty);
        sigprocmask(SIG_SETMASK, &empty, nullptr);
        // Descriptors meant to close at exec close now, so that a held child
        // keeps no other child's pipe open while it waits.
        for (int fd = 3; fd <= highest; ++fd) {
            if (fd == release[0]) continue;
            int flags = fcntl(fd, F_GETFD);
            if (flags >= 0 && (flags & FD_CLOEXEC)) ::close(fd);
        }
        char go = 0;
        ssize_t got;
        do {
            got = read(release[0], &go, 1);
        } while (got < 0 && errno == EINTR);
        if (got != 1) _exit(127);  // the caller dropped us without a release
        execv(argv[0], argv);
        _exit(127);
    }
    ::close(release[0]);
    return SuspendedProcess(pid, release[1]);
}

bool runElevated(const std::string& path, const std::vector<std::string>& arguments) {
    std::string program = findProgram(path);
    if (program.empty()) return false;
    // pkexec takes only absolute paths.
    std::error_code error;
    program = std::filesystem::absolute(program, error).string();
    if (geteuid() == 0) {
        SuspendedProcess child = startSuspended(program, arguments);
        return child.valid() && child.resume();
    }
    std::string pkexec = findProgram("pkexec");
    std::string sudo = findProgram("sudo");
    std::vector<std::string> elevated = {shellWord(program)};
    elevated.insert(elevated.end(), arguments.begin(), arguments.end());
    if (pkexec.empty()) {
        if (sudo.empty()) return false;
        elevated.insert(elevated.begin(), "-n");
        SuspendedProcess child = startSuspended(sudo, elevated);
        return child.valid() && child.resume();
    }
    SuspendedProcess child = startSuspended(pkexec, elevated);
    if (!child.valid() || !child.resume()) return false;
    // pkexec answers 126 when the user dismissed the prompt and 127 when no
    // agent could ask or the user may not: then sudo -n gets its turn.
    std::thread([child = std::move(child), sudo, elevated]() mutable {
        int code = child.wait();
        if ((code == 126 || code == 127) && !sudo.empty()) {
            elevated.insert(elevated.begin(), "-n");
            SuspendedProcess fallback = startSuspended(sudo, elevated);
            if (fallback.valid()) fallback.resume();
        }
    }).detach();
    return true;
}

}  // namespace zeb

SuspendedProcess::~SuspendedProcess() {
    release();
    if (pid_ > 0 && !reaped_) zeb::reapInBackground(pid_);
}

SuspendedProcess::SuspendedProcess(SuspendedProcess&& other) noexcept
    : pid_(other.pid_), releaseFd_(other.releaseFd_), reaped_(other.reaped_), status_(other.status_) {
    other.pid_ = -1;
    other.releaseFd_ = -1;
}

SuspendedProcess& SuspendedProcess::operator=(SuspendedProcess&& other) noexcept {
    if (this != &other) {
        release();
        if (pid_ > 0 && !reaped_) zeb::reapInBackground(pid_);
        pid_ = std::exchange(other.pid_, -1);
        releaseFd_ = std::exchange(other.releaseFd_, -1);
        reaped_ = other.reaped_;
        status_ = other.status_;
    }
    return *this;
}

void SuspendedProcess::release() {
    if (releaseFd_ >= 0) ::close(releaseFd_);
    releaseFd_ = -1;
}

bool SuspendedProcess::setAffinity(uint64_t mask) {
    if (pid_ <= 0 || mask == 0) return false;
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int bit = 0; bit < 64; ++bit)
        if (mask & (uint64_t(1) << bit)) CPU_SET(bit, &set);
    return sched_setaffinity(pid_, sizeof set, &set) == 0;
}

bool SuspendedProcess::resume() {
    if (releaseFd_ < 0) return false;
    char go = 1;
    ssize_t put;
    do {
        put = write(releaseFd_, &go, 1);
    } while (put < 0 && errno == EINTR);
    release();
    return put == 1;
}

bool SuspendedProcess::running(int& exitCode) {
    exitCode = status_;
    if (pid_ <= 0 || reaped_) return false;
    int status = 0;
    pid_t ended = waitpid(pid_, &status, WNOHANG);
    if (ended == 0) return true;
    reaped_ = true;
    status_ = ended > 0 ? zeb::exitStatusOf(status) : -1;
    exitCode = status_;
    return false;
}

void SuspendedProcess::terminate() {
    if (pid_ <= 0 || reaped_) return;
    release();
    kill(pid_, SIGKILL);
    wait();
}

int SuspendedProcess::wait() {
    if (pid_ <= 0) return -1;
    if (reaped_) return status_;
    // A child never released would wait for ever: dropping the release ends it.
    release();
    int status = 0;
    pid_t ended;
    do {
        ended = waitpid(pid_, &status, 0);
    } while (ended < 0 && errno == EINTR);
    reaped_ = true;
    status_ = ended > 0 ? zeb::exitStatusOf(status) : -1;
    return status_;
}
