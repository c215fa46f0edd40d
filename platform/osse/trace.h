// SPDX-License-Identifier: Apache-2.0
// The trace facility: entry, exit and chosen values of every function, for a collector that
// attaches.
//
// Without a collector the facility is off, and a probe costs one relaxed load:
//
//     if (gtraceIsEnabled()) gtraceEntry(kMyFunction);
//
// A collector is a callback, or a text file named by the environment variable "VRX_OSS_TRACE_FILE"
// when the library is loaded (ignored in set-user-id and set-group-id processes; the same care as
// for the log file). The file gets one line per event; values appear as hexadecimal bytes, the
// first 64 of them. One collector at a time.
//
// Probes never change errno. What is traced while the same thread is inside the collector is
// dropped. All functions may be called from any thread.
#pragma once

#include <atomic>

#include "platform/osse/export.h"
#include "platform/osse/status.h"

// What an event tells.
enum class GTraceKind : unsigned int { entry, exit, variable, errorVariable };

// One event. All pointers are valid during the collector's call only.
struct GTraceEvent {
  GTraceKind kind;
  unsigned int function;  // function identifier (names.h)
  unsigned int probe;     // variable, errorVariable: which place in the function; else 0
  OSSStatus result;       // exit: the function's result; else 0
  unsigned int thread;    // ossThreadID of the thread
  unsigned long size;     // variable, errorVariable: bytes at data; else 0
  const void* data;       // null when size is 0
};

// Receives one event. Called by one or several threads at a time.
using GTraceCollector = void (*)(const GTraceEvent* event, void* context);

namespace oss {
namespace internal {

// The bits of gtraceState: written by trace.cpp only.
constexpr unsigned int kTraceAttached = 1;
constexpr unsigned int kTraceRecording = 2;
extern VRXOSSE_API std::atomic<unsigned int> gtraceState;

}  // namespace internal
}  // namespace oss

// Whether a collector is attached.
[[nodiscard]] inline bool gtraceIsAttached() {
  using namespace oss::internal;
  return (gtraceState.load(std::memory_order_relaxed) & kTraceAttached) != 0;
}

// Whether a collector is attached and not suspended: whether probes record.
[[nodiscard]] inline bool gtraceIsEnabled() {
  using namespace oss::internal;
  return gtraceState.load(std::memory_order_relaxed) == (kTraceAttached | kTraceRecording);
}

// Attaches a collector, in place of the one before; events flow to it at once. When attaching or
// detaching has returned, the collector before is not running and will not be called again.
// invalid_argument: null. inside_callback: called by the collector itself.
[[nodiscard]] VRXOSSE_API OSSStatus gtraceAttach(GTraceCollector collector, void* context);

// Detaches the collector; success without one. inside_callback: called by the collector itself.
[[nodiscard]] VRXOSSE_API OSSStatus gtraceDetach();

// Stops and resumes the flow of events while the collector stays attached. Attaching resumes.
VRXOSSE_API void gtraceSuspend();
VRXOSSE_API void gtraceResume();

// Record an event when tracing is enabled, else do nothing. `data` may be null when `size` is 0.
VRXOSSE_API void gtraceEntry(unsigned int function);
VRXOSSE_API void gtraceExit(unsigned int function, OSSStatus result);
VRXOSSE_API void gtraceVar(unsigned int function, unsigned int probe, unsigned long size,
                           const void* data);
VRXOSSE_API void gtraceErrorVar(unsigned int function, unsigned int probe, unsigned long size,
                                const void* data);

// The calling thread's number, unique on the host while the thread lives.
[[nodiscard]] VRXOSSE_API unsigned int ossThreadID();
