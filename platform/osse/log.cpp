// SPDX-License-Identifier: Apache-2.0
// The diagnostic log.
#include "platform/osse/log.h"

#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <ctime>
#include <mutex>
#include <shared_mutex>

#include "platform/osse/internal/diagnostic_file.h"
#include "platform/osse/internal/line_buffer.h"
#include "platform/osse/names.h"
#include "platform/osse/trace.h"

namespace {

using namespace oss::internal;

// What the present sink needs. Writers of entries share the mutex, a change of sink excludes them.
struct Target {
  OSSLogCallback callback = nullptr;
  void* context = nullptr;
  char path[kDiagnosticPathSize] = "";
};

std::shared_mutex targetMutex;
Target target;
std::atomic<OSSLogSink> sink{OSSLogSink::none};
thread_local bool insideLog = false;

// Marks the thread as being inside the log; a thread that already is must not log.
class Inside {
 public:
  Inside() { insideLog = true; }
  ~Inside() { insideLog = false; }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;
};

void addTime(LineBuffer& line) {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  char text[32] = "?";
  if (gmtime_r(&now, &parts) != nullptr) {
    // A year beyond 9999 may not fit; the text is then unspecified.
    if (std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts) == 0) text[0] = '\0';
  }
  line.add(text);
}

void formatEntry(const OSSLogEntry& entry, LineBuffer& line) {
  line.addNumber("pid", static_cast<unsigned long long>(getpid()));
  line.addNumber("tid", ossThreadID());
  line.add(" ");
  line.add(ecfGetFunctionName(entry.function));
  line.addNumber("probe", entry.probe);
  line.addCode("code", entry.code);
  if (entry.inner != oss::status::ok) line.addCode("inner", entry.inner);
  if (entry.text[0] != '\0') line.add(" ");
  line.addEscaped(entry.text);
}

void writeToFile(const OSSLogEntry& entry) {
  LineBuffer line;
  addTime(line);
  formatEntry(entry, line);
  line.finish();
  // The log has nowhere to report its own failure.
  (void)appendToDiagnosticFile(target.path, line.text(), line.size());
}

void writeToSyslog(const OSSLogEntry& entry) {
  LineBuffer line;
  formatEntry(entry, line);
  syslog(LOG_ERR, "%s", line.text());
}

void deliver(const OSSLogEntry& entry) {
  switch (sink.load(std::memory_order_relaxed)) {
    case OSSLogSink::none:
      return;
    case OSSLogSink::file:
      return writeToFile(entry);
    case OSSLogSink::syslog:
      return writeToSyslog(entry);
    case OSSLogSink::callback:
      return target.callback(&entry, target.context);
  }
}

void choose(OSSLogSink chosen, const Target& wanted) {
  const std::unique_lock<std::shared_mutex> alone(targetMutex);
  target = wanted;
  sink.store(chosen, std::memory_order_relaxed);
}

// A file named by the environment, for programs that do not choose.
[[maybe_unused]] const bool kEnvironmentRead = [] {
  const char* path = trustedEnvironment("VRX_OSS_LOG_FILE");
  // A name that cannot be used leaves the log off: the library has nobody to tell yet.
  if (path != nullptr) (void)ossSetLogFile(path);
  return true;
}();

}  // namespace

OSSStatus ossSetLogSink(OSSLogSink chosen) {
  if (insideLog) return oss::status::inside_callback;
  if (chosen != OSSLogSink::none && chosen != OSSLogSink::syslog) {
    return oss::status::invalid_argument;
  }
  choose(chosen, Target{});
  return oss::status::ok;
}

OSSStatus ossSetLogFile(const char* path) {
  if (insideLog) return oss::status::inside_callback;
  const KeepErrno keep;
  Target wanted;
  const OSSStatus rc = prepareDiagnosticFile(path, wanted.path);
  if (rc == oss::status::ok) choose(OSSLogSink::file, wanted);
  return rc;
}

OSSStatus ossSetLogCallback(OSSLogCallback callback, void* context) {
  if (insideLog) return oss::status::inside_callback;
  if (callback == nullptr) return oss::status::invalid_argument;
  Target wanted;
  wanted.callback = callback;
  wanted.context = context;
  choose(OSSLogSink::callback, wanted);
  return oss::status::ok;
}

OSSLogSink ossGetLogSink() {
  return sink.load(std::memory_order_relaxed);
}

bool ossLogIsEnabled() {
  return ossGetLogSink() != OSSLogSink::none;
}

void ossLog(unsigned int function, unsigned int probe, OSSStatus code, const char* text) {
  ossLogRC(function, probe, code, oss::status::ok, text);
}

void ossLogRC(unsigned int function, unsigned int probe, OSSStatus code, OSSStatus inner,
              const char* text) {
  if (!ossLogIsEnabled() || insideLog) return;
  const KeepErrno keep;
  const Inside inside;
  const OSSLogEntry entry = {function, probe, code, inner, text != nullptr ? text : ""};
  const std::shared_lock<std::shared_mutex> shared(targetMutex);
  deliver(entry);
}
