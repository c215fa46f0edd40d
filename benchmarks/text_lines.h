// SPDX-License-Identifier: Apache-2.0
// The lines of the text registries that are measured, numbered from 0: settings of a profile and
// entries of a services file. Both forms of a line have the same length.
#pragma once

#include <string>

#include "benchmarks/records.h"

namespace vrxbench {

std::string settingName(unsigned long number);
std::string settingValue(unsigned long number, Form form);
// NAME=value, without blanks, so that shells and the peers read it, too.
std::string settingLine(unsigned long number, Form form);

std::string serviceName(unsigned long number);
unsigned servicePort(unsigned long number, Form form);
constexpr char kServiceComment[] = " an entry of a long list";
// Laid out as the services format lays out what it writes.
std::string serviceLine(unsigned long number, Form form);

}  // namespace vrxbench
