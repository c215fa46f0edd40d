// SPDX-License-Identifier: Apache-2.0
// What the fuzz targets share: findings that end the run, and choices made by the fuzzer's bytes.
//
// A target is one file with LLVMFuzzerTestOneInput. It is built twice: with libFuzzer, and with
// replay_main.cpp as a test that feeds it the files of its corpus.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace vrxfuzz {

// Ends the process as a crash, with what was found, when `holds` is false.
inline void require(bool holds, const char* what, const std::string& detail = "") {
  if (holds) return;
  std::fprintf(stderr, "finding: %s\n%s\n", what, detail.c_str());
  std::abort();
}

inline std::string bytesOf(const std::uint8_t* data, std::size_t size) {
  return std::string(reinterpret_cast<const char*>(data), size);
}

}  // namespace vrxfuzz
