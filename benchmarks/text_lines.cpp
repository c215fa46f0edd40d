// SPDX-License-Identifier: Apache-2.0
// Writing the lines.
#include "benchmarks/text_lines.h"

#include "benchmarks/formatted.h"

namespace vrxbench {
namespace {

constexpr unsigned kLowestPort = 20000;  // five digits, and never one that the layout widens
constexpr unsigned kPorts = 20000;

}  // namespace

std::string settingName(unsigned long number) {
  return formatted("SETTING_%06lu", number);
}

std::string settingValue(unsigned long number, Form form) {
  return formatted("%s_value_%06lu", form == Form::kFirst ? "first" : "other", number);
}

std::string settingLine(unsigned long number, Form form) {
  return settingName(number) + "=" + settingValue(number, form) + "\n";
}

std::string serviceName(unsigned long number) {
  return formatted("service%06lu", number);
}

unsigned servicePort(unsigned long number, Form form) {
  return kLowestPort + static_cast<unsigned>(number % kPorts) + (form == Form::kFirst ? 0 : kPorts);
}

std::string serviceLine(unsigned long number, Form form) {
  return serviceName(number) +
         formatted("\t%u/tcp\t\t\t#%s\n", servicePort(number, form), kServiceComment);
}

}  // namespace vrxbench
