// SPDX-License-Identifier: Apache-2.0
// Tracing, logging and the first failure of one call.
#include "genreg/internal/operation.h"

#include "genreg/registry.h"
#include "platform/osse/errors.h"
#include "platform/osse/log.h"
#include "platform/osse/names.h"
#include "platform/osse/strings.h"
#include "platform/osse/trace.h"

namespace genreg {
namespace {

constexpr OSSFunctionName kFunctionNames[] = {
#define VRX_FUNCTION(identifier, value, name) {(value), name},
#include "genreg/internal/function_ids.inc"
#undef VRX_FUNCTION
};

// Registers the names when the library is loaded, before any change-log line can ask for one.
[[maybe_unused]] const bool kNamesRegistered = [] {
  ecfRegisterFunctionNames(kFunctionNames, sizeof kFunctionNames / sizeof kFunctionNames[0]);
  return true;
}();

// A path and a label with its value.
constexpr unsigned long kLogTextSize = kGenRegPathSize + 64;

}  // namespace

void Operation::write(unsigned probe, GenRegStatus code, GenRegStatus inner) const {
  if (gtraceIsEnabled()) gtraceErrorVar(function_, probe, sizeof code, &code);
  if (!ossLogIsEnabled()) return;
  const char* text = path_ != nullptr ? path_ : "";
  if (inner == status::ok) return ossLog(function_, probe, code, text);
  ossLogRC(function_, probe, code, inner, text);
}

GenRegStatus Operation::fail(unsigned probe, GenRegStatus code) {
  write(probe, code, status::ok);
  return keep(code);
}

GenRegStatus Operation::fail(unsigned probe, GenRegStatus code, GenRegStatus inner) {
  write(probe, code, inner);
  return keep(code);
}

GenRegStatus Operation::failErrno(unsigned probe, GenRegStatus code, int error) {
  return fail(probe, code, ossErrorMapSystem(error));
}

void Operation::note(unsigned probe, GenRegStatus code, GenRegStatus inner) {
  write(probe, code, inner);
}

void Operation::explain(unsigned probe, GenRegStatus code, const char* label,
                        unsigned long long value) {
  if (!ossLogIsEnabled()) return;
  char text[kLogTextSize];
  (void)ossSnprintf(text, sizeof text, "%s=%llu %s", label, value,  // cut when too long: only a log
                    path_ != nullptr ? path_ : "");
  ossLog(function_, probe, code, text);
}

}  // namespace genreg
