#include "script_process.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "../log_request_ids.h"

namespace kiv {

namespace {

// The child runs in this process's memory, and the calling thread is suspended until the exec,
// because copying a large host's page tables takes tens of milliseconds. Other threads keep running
// and may hold any lock, so the child makes only system calls, on its own stack.

struct Launch {
  char* argv[4];
  sigset_t signals;  // the signal mask that the script inherits
};

constexpr size_t kStackSize = size_t{64} << 10;
alignas(16) char child_stack[kStackSize];

void ReportFailure(int error) {
  char line[96];
  char* end = stpcpy(stpcpy(line, "[error] "), kLoggingRequestId_UpgradeStartProcessFail);
  end = std::to_chars(end, line + sizeof line - 1, error).ptr;
  *end++ = '\n';
  [[maybe_unused]] const ssize_t written =
      write(STDERR_FILENO, line, static_cast<size_t>(end - line));
}

// A handler of the host would modify the host's memory. Ignored signals stay ignored.
void DropSignalHandlers() {
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction action = {};
    if (sigaction(signal, nullptr, &action) != 0) continue;
    if (action.sa_handler == SIG_IGN || action.sa_handler == SIG_DFL) continue;
    action = {};
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
  }
}

void MarkForClosing(const char* name) {
  int descriptor = 0;
  const auto [end, error] = std::from_chars(name, name + std::strlen(name), descriptor);
  if (error == std::errc() && descriptor > STDERR_FILENO) fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

// Marks instead of closing: the table must not change while it is read, and slow closes (network
// file systems) then happen after the host has resumed. opendir() would allocate. Returns false
// with errno when the table cannot be read.
bool MarkDescriptorsForClosing() {
  const int folder = open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder == -1) return false;
  alignas(dirent64) char entries[4096];
  for (;;) {
    const long length = syscall(SYS_getdents64, folder, entries, sizeof entries);
    if (length <= 0) return length == 0;
    for (long at = 0; at < length;) {
      unsigned short size = 0;
      std::memcpy(&size, entries + at + offsetof(dirent64, d_reclen), sizeof size);
      MarkForClosing(entries + at + offsetof(dirent64, d_name));
      at += size;
    }
  }
}

// open() returns the lowest free number: the one just closed, if called in order from 0.
void PointAtNull(int descriptor, int flags) {
  close(descriptor);
  open("/dev/null", flags);
}

// Returning exits the child with that status and runs none of the host's exit handlers.
int RunScript(void* argument) {
  const auto* launch = static_cast<const Launch*>(argument);
  DropSignalHandlers();
  if (!MarkDescriptorsForClosing()) {
    ReportFailure(errno);
    return 0;
  }
  PointAtNull(STDIN_FILENO, O_RDONLY);
  PointAtNull(STDOUT_FILENO, O_WRONLY);
  PointAtNull(STDERR_FILENO, O_WRONLY);
  sigprocmask(SIG_SETMASK, &launch->signals, nullptr);
  execve(launch->argv[0], launch->argv, environ);
  return 0;
}

}  // namespace

pid_t StartScript(const std::string& script) {
  std::string bash = "/bin/bash";
  std::string option = "-c";
  std::string command = script;
  Launch launch = {{bash.data(), option.data(), command.data(), nullptr}, {}};
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &launch.signals);
  const pid_t pid =
      clone(RunScript, child_stack + kStackSize, CLONE_VM | CLONE_VFORK | SIGCHLD, &launch);
  const int error = errno;
  pthread_sigmask(SIG_SETMASK, &launch.signals, nullptr);
  errno = error;
  return pid;
}

}  // namespace kiv
