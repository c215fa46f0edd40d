// SPDX-License-Identifier: Apache-2.0
// Runs a program and, at one chosen system call between its marks, kills it, makes the call fail or
// cuts it short:
//
//   injector [--trace FILE] [--details] [--point N --action ACTION [--error ERRNO] [--lasting]]
//            -- COMMAND...
//
// The calls are counted from 1 after the program has looked for /regdriver/begin, up to its look
// for /regdriver/end. ACTION:
//
//   kill-before  SIGKILL at the entry: the call is not made
//   kill-after   SIGKILL at the return: the call has been made
//   fail         the call is not made and returns ERRNO; brk, which knows none, moves nothing
//   fail-after   the call is made and returns ERRNO all the same, as a close may
//   shorten      the call moves half of the bytes that it was asked to move
//
// --lasting: later calls of the same name are treated like the one at the point. A program that is
// struck a hundred thousand times asks for ever: it is killed.
// The trace has a line for each counted call, "N<tab>name<tab>result<tab>path..." (the path of a
// descriptor for calls that take one), and a last line "exit STATUS", "signal NUMBER" or, for one
// that asked for ever, "endless". --details adds "=ARGUMENT,..." (the first four, in hex),
// "=POSITION" (of a descriptor) and "=HEX" (the bytes that a write is given). The exit status is 0
// when the program ran to one of these ends, 77 when the system refuses tracing.
//
// One thread is followed, and no child. Which points to choose, and what must hold after them, is
// not decided here.
#include <linux/audit.h>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/crash/call_names.h"

namespace {

using crash::CallRow;

enum ExitStatus : int { kDone = 0, kBroken = 1, kBadUsage = 2, kSkip = 77 };

enum class Action { kNone, kKillBefore, kKillAfter, kFail, kFailAfter, kShorten };
enum class Reach { kOnce, kLasting };
enum class Detail { kNamesOnly, kArguments };

struct Options {
  const char* trace = "/dev/null";
  unsigned long point = 0;
  Action action = Action::kNone;
  long error = 0;
  Reach reach = Reach::kOnce;
  Detail detail = Detail::kNamesOnly;
  char** command = nullptr;
};

constexpr char kBegin[] = "/regdriver/begin";
constexpr char kEnd[] = "/regdriver/end";
constexpr unsigned long kLongestPath = 4096;
constexpr unsigned kEndless = 100000;  // more strikes than any update makes calls
constexpr int kSyscallStop = SIGTRAP | 0x80;

[[noreturn]] void stop(int status, const char* what) {
  std::fprintf(stderr, "injector: %s\n", what);
  std::exit(status);
}

Action parseAction(const char* name) {
  struct Row {
    const char* name;
    Action action;
  };
  constexpr Row kRows[] = {{"kill-before", Action::kKillBefore},
                           {"kill-after", Action::kKillAfter},
                           {"fail", Action::kFail},
                           {"fail-after", Action::kFailAfter},
                           {"shorten", Action::kShorten}};
  for (const Row& row : kRows) {
    if (std::strcmp(name, row.name) == 0) return row.action;
  }
  stop(kBadUsage, "no such action");
}

// The value of the option at argv[*index], which it steps over.
const char* valueOf(char** argv, int* index) {
  const char* value = argv[++*index];
  if (value == nullptr) stop(kBadUsage, "an option lacks its value");
  return value;
}

Options parseOptions(char** argv) {
  Options options;
  for (int i = 1; argv[i] != nullptr; ++i) {
    const std::string option = argv[i];
    if (option == "--trace") options.trace = valueOf(argv, &i);
    if (option == "--point") options.point = std::strtoul(valueOf(argv, &i), nullptr, 10);
    if (option == "--action") options.action = parseAction(valueOf(argv, &i));
    if (option == "--error") options.error = std::strtol(valueOf(argv, &i), nullptr, 10);
    if (option == "--lasting") options.reach = Reach::kLasting;
    if (option == "--details") options.detail = Detail::kArguments;
    if (option == "--") {
      options.command = argv + i + 1;
      break;
    }
  }
  if (options.command == nullptr || *options.command == nullptr) stop(kBadUsage, "no command");
  return options;
}

[[noreturn]] void becomeCommand(char** command) {
  if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(kSkip);
  (void)raise(SIGSTOP);  // until the tracer has said what it wants to see
  execvp(command[0], command);
  _exit(127);
}

std::string readText(pid_t process, unsigned long long address) {
  std::string text(kLongestPath, '\0');
  // Up to the end of the page at a time: what lies behind it need not be there.
  constexpr unsigned long long kPage = 4096;
  std::size_t got = 0;
  while (got < text.size()) {
    const auto left = static_cast<std::size_t>(kPage - (address + got) % kPage);
    const std::size_t wanted = left < text.size() - got ? left : text.size() - got;
    iovec here{text.data() + got, wanted};
    iovec there{reinterpret_cast<void*>(static_cast<std::uintptr_t>(address + got)), wanted};
    const ssize_t count = process_vm_readv(process, &here, 1, &there, 1, 0);
    if (count <= 0) break;
    got += static_cast<std::size_t>(count);
    if (text.find('\0') < got) break;
  }
  return text.c_str();
}

std::string pathOfDescriptor(pid_t process, int descriptor) {
  const std::string link = "/proc/" + std::to_string(process) + "/fd/" + std::to_string(descriptor);
  char target[kLongestPath] = {};
  const ssize_t length = readlink(link.c_str(), target, sizeof target - 1);
  return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : "-";
}

// Where the next byte of an open file is read or written.
std::string positionOfDescriptor(pid_t process, int descriptor) {
  const std::string path =
      "/proc/" + std::to_string(process) + "/fdinfo/" + std::to_string(descriptor);
  FILE* info = std::fopen(path.c_str(), "re");
  unsigned long long position = 0;
  const bool known = info != nullptr && std::fscanf(info, "pos: %llu", &position) == 1;
  if (info != nullptr) std::fclose(info);
  return known ? std::to_string(position) : "-";
}

std::string inHex(unsigned long long number) {
  char text[20];
  std::snprintf(text, sizeof text, "%llx", number);
  return text;
}

// Bytes of the program's memory in hex; fewer than asked for where it has no more.
std::string readBytes(pid_t process, unsigned long long address, unsigned long long count) {
  std::string bytes(static_cast<std::size_t>(count), '\0');
  iovec here{bytes.data(), bytes.size()};
  iovec there{reinterpret_cast<void*>(static_cast<std::uintptr_t>(address)), bytes.size()};
  const ssize_t got = process_vm_readv(process, &here, 1, &there, 1, 0);
  bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  std::string text;
  for (const char byte : bytes) {
    const unsigned value = static_cast<unsigned char>(byte);
    text += {"0123456789abcdef"[value / 16], "0123456789abcdef"[value % 16]};
  }
  return text;
}

using Register = unsigned long long user_regs_struct::*;

// One traced program.
class Tracee {
 public:
  Tracee(pid_t process, const Options& options, FILE* trace)
      : process_(process), options_(options), trace_(trace) {}

  // Follows the program to its end; the status of waitpid.
  int follow();
  bool isEndless() const { return strikes_ >= kEndless; }

 private:
  void resume(int signal) {
    (void)ptrace(PTRACE_SYSCALL, process_, nullptr, signal);  // a dead one is seen by waitpid
  }
  void atSyscallStop();
  void atEntry(const __ptrace_syscall_info& info);
  void atReturn(const __ptrace_syscall_info& info);
  void describe(const __ptrace_syscall_info& info);
  void addDetails(const __ptrace_syscall_info& info);
  void note(const std::string& path) { paths_ += "\t" + (path.empty() ? "-" : path); }
  void actAtEntry(Action action);
  void actAtReturn(Action action);
  void changeRegisters(unsigned long long user_regs_struct::*which, unsigned long long value);
  bool atPoint() const;
  bool isBrk() const { return call_ != nullptr && std::strcmp(call_->name, "brk") == 0; }
  void write(const char* result) const;

  const pid_t process_;
  const Options options_;
  FILE* const trace_;
  bool between_ = false;  // the marks
  bool counted_ = false;  // the call being made
  unsigned long index_ = 0;
  unsigned strikes_ = 0;
  long long number_ = 0;
  long long pointNumber_ = -1;
  const CallRow* call_ = nullptr;
  std::string paths_;
  Register firstArgument_ = nullptr;
  unsigned long long first_ = 0;
  unsigned long long length_ = 0;
};

void Tracee::describe(const __ptrace_syscall_info& info) {
  const auto size = info.arch == AUDIT_ARCH_I386 ? crash::WordSize::k32 : crash::WordSize::k64;
  number_ = static_cast<long long>(info.entry.nr);
  call_ = crash::findCall(size, static_cast<int>(number_));
  firstArgument_ = size == crash::WordSize::k64 ? &user_regs_struct::rdi : &user_regs_struct::rbx;
  paths_.clear();
  if (call_ == nullptr) return;
  for (unsigned i = 0; call_->arguments[i] != '\0'; ++i) {
    const unsigned long long argument = info.entry.args[i];
    if (call_->arguments[i] == 'p') note(readText(process_, argument));
    if (call_->arguments[i] == 'f') note(pathOfDescriptor(process_, static_cast<int>(argument)));
  }
}

void Tracee::addDetails(const __ptrace_syscall_info& info) {
  const auto& arguments = info.entry.args;
  std::string list = "=";
  for (unsigned i = 0; i < 4; ++i)
    list += (i == 0 ? "" : ",") + inHex(arguments[i]);
  note(list);
  if (call_ == nullptr || call_->arguments[0] != 'f') return;
  note("=" + positionOfDescriptor(process_, static_cast<int>(arguments[0])));
  const std::string name = call_->name;
  if (name != "write" && name != "pwrite64") return;
  note("=" + readBytes(process_, arguments[1], arguments[2]));
}

bool Tracee::atPoint() const {
  if (options_.point == 0 || !counted_) return false;
  if (index_ == options_.point) return true;
  return options_.reach == Reach::kLasting && index_ > options_.point && number_ == pointNumber_;
}

void Tracee::atEntry(const __ptrace_syscall_info& info) {
  describe(info);
  const bool begins = paths_ == std::string("\t") + kBegin;
  const bool ends = paths_ == std::string("\t") + kEnd;
  if (ends) between_ = false;
  counted_ = between_;
  if (begins && index_ == 0) between_ = true;
  if (!counted_) return;
  ++index_;
  if (options_.detail == Detail::kArguments) addDetails(info);
  if (index_ == options_.point) pointNumber_ = number_;
  first_ = info.entry.args[0];
  length_ = info.entry.args[2];
  if (atPoint()) actAtEntry(options_.action);
}

void Tracee::changeRegisters(unsigned long long user_regs_struct::*which,
                             unsigned long long value) {
  user_regs_struct registers{};
  if (ptrace(PTRACE_GETREGS, process_, nullptr, &registers) != 0) stop(kBroken, "no registers");
  registers.*which = value;
  if (ptrace(PTRACE_SETREGS, process_, nullptr, &registers) != 0) stop(kBroken, "no registers");
}

constexpr auto kNoCall = static_cast<unsigned long long>(-1);

void Tracee::actAtEntry(Action action) {
  if (action == Action::kFail && isBrk()) {
    changeRegisters(firstArgument_, 0);
    return;
  }
  if (action == Action::kKillBefore || action == Action::kFail) {
    changeRegisters(&user_regs_struct::orig_rax, kNoCall);
  }
  if (action == Action::kShorten && length_ > 1) {
    changeRegisters(&user_regs_struct::rdx, length_ / 2);
  }
  if (action != Action::kKillBefore) return;
  write("killed");
  (void)kill(process_, SIGKILL);  // it is stopped, so it is there
}

void Tracee::actAtReturn(Action action) {
  if (action == Action::kFail && isBrk()) {
    changeRegisters(firstArgument_, first_);
    return;
  }
  if (action == Action::kFail || action == Action::kFailAfter) {
    const auto failure = static_cast<unsigned long long>(-options_.error);
    changeRegisters(&user_regs_struct::rax, failure);
  }
  if (action == Action::kShorten) changeRegisters(&user_regs_struct::rdx, length_);
  if (action == Action::kKillAfter) (void)kill(process_, SIGKILL);  // as above
}

void Tracee::write(const char* result) const {
  const std::string name = call_ != nullptr ? call_->name : "call" + std::to_string(number_);
  std::fprintf(trace_, "%lu\t%s\t%s%s\n", index_, name.c_str(), result, paths_.c_str());
}

void Tracee::atReturn(const __ptrace_syscall_info& info) {
  if (!counted_) return;
  long long result = info.exit.rval;
  const bool acts = atPoint();
  if (acts) actAtReturn(options_.action);
  const bool fails = options_.action == Action::kFail || options_.action == Action::kFailAfter;
  if (acts && fails) result = -options_.error;
  if (acts && ++strikes_ == kEndless)
    (void)kill(process_, SIGKILL);  // it is stopped, so it is there
  write(std::to_string(result).c_str());
  counted_ = false;
}

void Tracee::atSyscallStop() {
  __ptrace_syscall_info info{};
  if (ptrace(PTRACE_GET_SYSCALL_INFO, process_, sizeof info, &info) <= 0) return;
  if (info.op == PTRACE_SYSCALL_INFO_ENTRY) atEntry(info);
  if (info.op == PTRACE_SYSCALL_INFO_EXIT) atReturn(info);
}

int Tracee::follow() {
  int status = 0;
  for (resume(0); waitpid(process_, &status, 0) == process_;) {
    if (!WIFSTOPPED(status)) return status;
    const int signal = WSTOPSIG(status);
    const bool event = status >> 16 != 0;
    if (signal == kSyscallStop) atSyscallStop();
    resume(signal == kSyscallStop || event ? 0 : signal);
  }
  stop(kBroken, "the program was lost");
}

// Starts the command, stopped before its first instruction. Ends with kSkip where the system
// refuses.
pid_t start(const Options& options) {
  const pid_t process = fork();
  if (process < 0) stop(kBroken, "no process");
  if (process == 0) becomeCommand(options.command);
  int status = 0;
  if (waitpid(process, &status, 0) != process || !WIFSTOPPED(status)) {
    stop(kSkip, "tracing is refused here");
  }
  constexpr long kWanted = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL | PTRACE_O_TRACEEXEC;
  if (ptrace(PTRACE_SETOPTIONS, process, nullptr, kWanted) != 0) {
    stop(kSkip, "tracing of system calls is refused here");
  }
  return process;
}

}  // namespace

int main(int, char** argv) {
  const Options options = parseOptions(argv);
  FILE* trace = std::fopen(options.trace, "we");
  if (trace == nullptr) stop(kBadUsage, "the trace cannot be written");
  Tracee tracee(start(options), options, trace);
  const int status = tracee.follow();
  if (tracee.isEndless()) std::fprintf(trace, "endless\n");
  if (WIFEXITED(status)) std::fprintf(trace, "exit %d\n", WEXITSTATUS(status));
  if (WIFSIGNALED(status) && !tracee.isEndless()) {
    std::fprintf(trace, "signal %d\n", WTERMSIG(status));
  }
  return std::fclose(trace) == 0 ? kDone : kBroken;
}
