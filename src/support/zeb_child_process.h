// Running other programs: captured console commands, elevated starts and
// children that wait for the caller before they run.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// Runs a command line under /bin/sh with its standard output and standard
// error joined into one pipe, which a thread of its own reads in pieces of at
// most 255 bytes and hands to onStdout. The thread ends once the child has
// ended and everything it left in the pipe has been delivered.
class CRedirector {
public:
    CRedirector() = default;
    virtual ~CRedirector();
    CRedirector(const CRedirector&) = delete;
    CRedirector& operator=(const CRedirector&) = delete;

    // Starts the child and the reading thread; false (with a message to
    // onStatus) when the pipes or the child could not be made.
    bool open(const std::string& commandLine);
    // Stops the reading thread (5 s at most) and closes our pipe ends. A child
    // still running is left to run and is reaped in the background.
    virtual void close();

    // Writes to the child's standard input; false once it is closed.
    bool writeInput(const void* data, size_t size);
    // Closes the child's standard input, so that it sees the end of it.
    void closeInput();
    // Blocks until the reading thread has ended (the child has ended and its
    // output has been delivered, or close() stopped it).
    void waitReader();

    pid_t pid() const { return pid_; }
    // The child's exit status once it has ended: its exit code, 128 plus the
    // signal number for a child killed by a signal; -1 while unknown.
    int exitCode() const;

protected:
    // A piece of output, at most 255 bytes; the default prints it to stdout.
    virtual void onStdout(const char* data, size_t size);
    // A message about the redirection itself; the default prints it to stdout.
    virtual void onStatus(const char* text);

    int waitTime = 100;  // ms between looks at the child when no output comes

private:
    struct Shared;
    void readLoop(std::shared_ptr<Shared> shared);
    void closeHandles();

    std::thread thread_;
    std::shared_ptr<Shared> shared_;
    int stopWrite_ = -1;   // a byte here asks the reading thread to stop
    int stdinWrite_ = -1;
    pid_t pid_ = -1;
    int lastStatus_ = -1;
};

// Keeps everything the child writes in `output`.
class SyncRedirector : public CRedirector {
public:
    SyncRedirector() { waitTime = 100; }
    // Runs `commandLine` to its end; `exitCode` as exitCode() gives it (-1
    // when the child could not be started). False when nothing was started.
    bool run(const std::string& commandLine, int& exitCode);

    std::string output;

protected:
    void onStdout(const char* data, size_t size) override { output.append(data, size); }
    void onStatus(const char*) override {}
};

// A started child that has not run its program yet: it waits until resume().
// The caller can set what it needs first (affinity, bookkeeping by pid).
class SuspendedProcess {
public:
    SuspendedProcess() = default;
    SuspendedProcess(pid_t pid, int releaseFd) : pid_(pid), releaseFd_(releaseFd) {}
    // A child never resumed ends without running its program; a child still
    // running is left to run and reaped in the background.
    ~SuspendedProcess();
    SuspendedProcess(SuspendedProcess&& other) noexcept;
    SuspendedProcess& operator=(SuspendedProcess&& other) noexcept;
    SuspendedProcess(const SuspendedProcess&) = delete;
    SuspendedProcess& operator=(const SuspendedProcess&) = delete;

    bool valid() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }
    // Restricts the child to the processors whose bits are set in `mask`.
    bool setAffinity(uint64_t mask);
    // Lets the child run its program. False if it was already released.
    bool resume();
    // True while the child runs; once it has ended, false with `exitCode`
    // set (exit code, or 128 plus the signal number).
    bool running(int& exitCode);
    // Kills the child (SIGKILL) and reaps it.
    void terminate();
    // Waits for the end of the child and gives its exit status.
    int wait();

private:
    void release();
    pid_t pid_ = -1;
    int releaseFd_ = -1;
    bool reaped_ = false;
    int status_ = -1;
};

namespace zeb {

// `path` and each argument with one blank in front, no quoting: an argument
// holding blanks brings its own quote marks. No arguments: just `path`.
std::string joinArguments(const std::string& path, const std::vector<std::string>& arguments);

// Runs a shell command line to its end and gives everything it wrote to
// standard output and standard error, in order. `exitCode` is the child's
// exit status (127 when the shell found no such program, -1 when no child
// could be started).
std::string runCommand(const std::string& commandLine, int& exitCode);
// runCommand of the joined path and arguments.
std::string runProgram(const std::string& path, const std::vector<std::string>& arguments, int& exitCode);

// Starts `path` with raised rights and leaves it to run by itself: a plain
// start when this process is root, else through pkexec, and through sudo -n
// where pkexec is missing or refuses. True when a start was made.
bool runElevated(const std::string& path, const std::vector<std::string>& arguments);

// Starts `path` with the arguments as a child that waits for
// SuspendedProcess::resume() before it runs. Invalid when the program can't
// be found or no child could be made.
SuspendedProcess startSuspended(const std::string& path, const std::vector<std::string>& arguments);

// The full path of `name` looked up in PATH (or `name` itself when it holds a
// '/' and is executable); empty when there is none.
std::string findProgram(const std::string& name);

// The process id of the first running process whose name matches one of the
// ';'-separated shell patterns ("usbmuxd;idevice*"), or 0. The name is the
// executable's file name or, when that can't be read, the process's own name.
pid_t isProcessRunning(const std::string& patterns);
// The desktop's store app never runs here: always 0.
pid_t isItunesRunning();
// The backup helper program: idevicebackup2 from PATH; empty when missing.
std::string backupHelperPath();

}  // namespace zeb
