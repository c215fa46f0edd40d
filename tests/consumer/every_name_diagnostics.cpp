// SPDX-License-Identifier: Apache-2.0
// The log, the trace facility and the names of functions.
#include <string>
#include <vector>

#include "every_name.h"

namespace every_name {

namespace {

namespace status = oss::status;

constexpr unsigned int kOwnFunction = 0x7E57F00D;

void collectEntry(const OSSLogEntry* entry, void* context) {
  static_cast<std::vector<unsigned int>*>(context)->push_back(entry->inner);
}

void callLog() {
  HOLDS(!ossLogIsEnabled());
  HOLDS(ossGetLogSink() == OSSLogSink::none);
  std::vector<unsigned int> inner;
  RETURNS(0, ossSetLogCallback(&collectEntry, &inner));
  HOLDS(ossLogIsEnabled());
  ossLog(kOwnFunction, 1, status::invalid_argument, "plain");
  ossLogRC(kOwnFunction, 2, status::invalid_argument, status::no_memory, "with a reason");
  HOLDS((inner == std::vector<unsigned int>{0, status::no_memory}));
  RETURNS(0, ossSetLogFile(pathOf("log").c_str()));
  HOLDS(ossGetLogSink() == OSSLogSink::file);
  ossLog(kOwnFunction, 3, status::invalid_argument, "to a file");
  HOLDS(contentsOf("log").find("probe=3 code=0x9000000C to a file") != std::string::npos);
  RETURNS(status::invalid_argument, ossSetLogSink(OSSLogSink::file));
  RETURNS(0, ossSetLogSink(OSSLogSink::none));
}

void collectEvent(const GTraceEvent* event, void* context) {
  static_cast<std::vector<GTraceKind>*>(context)->push_back(event->kind);
}

void callTrace() {
  std::vector<GTraceKind> kinds;
  HOLDS(!gtraceIsAttached());
  gtraceEntry(kOwnFunction);
  RETURNS(0, gtraceAttach(&collectEvent, &kinds));
  HOLDS(gtraceIsAttached() && gtraceIsEnabled());
  gtraceEntry(kOwnFunction);
  gtraceVar(kOwnFunction, 1, 1, "a");
  gtraceErrorVar(kOwnFunction, 2, 1, "b");
  gtraceExit(kOwnFunction, 0);
  gtraceSuspend();
  HOLDS(gtraceIsAttached() && !gtraceIsEnabled());
  gtraceExit(kOwnFunction, 0);
  gtraceResume();
  HOLDS(gtraceIsEnabled());
  RETURNS(0, gtraceDetach());
  HOLDS((kinds == std::vector<GTraceKind>{GTraceKind::entry, GTraceKind::variable,
                                          GTraceKind::errorVariable, GTraceKind::exit}));
  HOLDS((oss::internal::gtraceState.load() & oss::internal::kTraceAttached) == 0);
  HOLDS(ossThreadID() != 0);
}

void callNames() {
  static const OSSFunctionName table[] = {{kOwnFunction, "every_name"}};
  HOLDS(std::string(ecfGetFunctionName(kOwnFunction)) == "0x7E57F00D");
  ecfRegisterFunctionNames(table, 1);
  HOLDS(std::string(ecfGetFunctionName(kOwnFunction)) == "every_name");
}

}  // namespace

void callDiagnostics() {
  callLog();
  callTrace();
  callNames();
}

}  // namespace every_name
