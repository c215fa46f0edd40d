// SPDX-License-Identifier: Apache-2.0
// What a run leaves: the table for people, and the numbers for scripts/plot_benchmarks.py.
#pragma once

#include <cstdio>
#include <string>

#include "benchmarks/bars.h"
#include "benchmarks/session.h"

namespace vrxbench {

// Medians, each with its ratio to the first contender of its set; contention; growth; verdicts.
void printTable(std::FILE* out, const Session& session);

// Every round of everything, as JSON. False when the file cannot be written.
bool writeJson(const std::string& path, const Session& session);

const char* nameOf(Outcome outcome);

}  // namespace vrxbench
