// SPDX-License-Identifier: Apache-2.0
// The trace facility.
#include "platform/osse/trace.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <shared_mutex>

#include "platform/osse/internal/diagnostic_file.h"
#include "platform/osse/internal/line_buffer.h"
#include "platform/osse/names.h"
#include "platform/osse/strings.h"

namespace oss {
namespace internal {

std::atomic<unsigned int> gtraceState{0};

}  // namespace internal
}  // namespace oss

namespace {

using namespace oss::internal;

constexpr unsigned long kMaxBytesShown = 64;

// The collector. Probes share the mutex, attaching and detaching exclude them.
struct Collector {
  GTraceCollector callback = nullptr;
  void* context = nullptr;
};

std::shared_mutex collectorMutex;
Collector collector;
thread_local bool insideCollector = false;

const char* kindName(GTraceKind kind) {
  switch (kind) {
    case GTraceKind::entry:
      return " entry ";
    case GTraceKind::exit:
      return " exit ";
    case GTraceKind::variable:
      return " var ";
    case GTraceKind::errorVariable:
      return " error ";
  }
  return " ? ";
}

void addTime(LineBuffer& line) {
  struct timespec now {};
  (void)clock_gettime(CLOCK_REALTIME, &now);  // cannot fail for this clock; zeros tell if it does
  char text[48];
  (void)ossSnprintf(text, sizeof text, "%lld.%09ld", static_cast<long long>(now.tv_sec),
                    static_cast<long>(now.tv_nsec));  // fits by construction
  line.add(text);
}

void addValues(const GTraceEvent& event, LineBuffer& line) {
  if (event.kind == GTraceKind::exit) line.addCode("result", event.result);
  if (event.kind != GTraceKind::variable && event.kind != GTraceKind::errorVariable) return;
  line.addNumber("probe", event.probe);
  line.addNumber("size", event.size);
  line.addBytes(event.data, std::min(event.size, kMaxBytesShown));
}

// The collector behind the environment variable; its context is the path.
void writeToFile(const GTraceEvent* event, void* context) {
  LineBuffer line;
  addTime(line);
  line.addNumber("pid", static_cast<unsigned long long>(getpid()));
  line.addNumber("tid", event->thread);
  line.add(kindName(event->kind));
  line.add(ecfGetFunctionName(event->function));
  addValues(*event, line);
  line.finish();
  // A trace line that cannot be written is lost; the traced program must not notice.
  (void)appendToDiagnosticFile(static_cast<const char*>(context), line.text(), line.size());
}

void record(GTraceEvent event) {
  if (!gtraceIsEnabled() || insideCollector) return;
  const KeepErrno keep;
  event.thread = ossThreadID();
  const std::shared_lock<std::shared_mutex> shared(collectorMutex);
  if (collector.callback == nullptr) return;  // detached since
  insideCollector = true;
  collector.callback(&event, collector.context);
  insideCollector = false;
}

void recordVariable(GTraceKind kind, unsigned int function, unsigned int probe, unsigned long size,
                    const void* data) {
  const bool empty = size == 0 || data == nullptr;
  record({kind, function, probe, 0, 0, empty ? 0 : size, empty ? nullptr : data});
}

void install(const Collector& wanted, unsigned int state) {
  const std::unique_lock<std::shared_mutex> alone(collectorMutex);
  collector = wanted;
  gtraceState.store(state, std::memory_order_relaxed);
}

// A file named by the environment.
[[maybe_unused]] const bool kEnvironmentRead = [] {
  static char path[kDiagnosticPathSize];
  const KeepErrno keep;
  const char* wanted = trustedEnvironment("VRX_OSS_TRACE_FILE");
  if (wanted == nullptr || prepareDiagnosticFile(wanted, path) != oss::status::ok) return false;
  return gtraceAttach(writeToFile, path) == oss::status::ok;
}();

}  // namespace

OSSStatus gtraceAttach(GTraceCollector callback, void* context) {
  if (insideCollector) return oss::status::inside_callback;
  if (callback == nullptr) return oss::status::invalid_argument;
  install({callback, context}, kTraceAttached | kTraceRecording);
  return oss::status::ok;
}

OSSStatus gtraceDetach() {
  if (insideCollector) return oss::status::inside_callback;
  install({}, 0);
  return oss::status::ok;
}

void gtraceSuspend() {
  gtraceState.fetch_and(~kTraceRecording, std::memory_order_relaxed);
}

void gtraceResume() {
  gtraceState.fetch_or(kTraceRecording, std::memory_order_relaxed);
}

void gtraceEntry(unsigned int function) {
  record({GTraceKind::entry, function, 0, 0, 0, 0, nullptr});
}

void gtraceExit(unsigned int function, OSSStatus result) {
  record({GTraceKind::exit, function, 0, result, 0, 0, nullptr});
}

void gtraceVar(unsigned int function, unsigned int probe, unsigned long size, const void* data) {
  recordVariable(GTraceKind::variable, function, probe, size, data);
}

void gtraceErrorVar(unsigned int function, unsigned int probe, unsigned long size,
                    const void* data) {
  recordVariable(GTraceKind::errorVariable, function, probe, size, data);
}

unsigned int ossThreadID() {
#ifdef SYS_gettid
  return static_cast<unsigned int>(syscall(SYS_gettid));
#else
  static std::atomic<unsigned int> next{1};
  thread_local const unsigned int mine = next.fetch_add(1, std::memory_order_relaxed);
  return mine;
#endif
}
