// SPDX-License-Identifier: Apache-2.0
// vrxreg: the administrator's command line. Whatever is not foreseen is exit status 70.
#include <cstdio>
#include <exception>

#include "cli/app.h"

namespace {

constexpr int kDefect = 70;

}  // namespace

int main(int count, char** strings) {
  try {
    return cli::run(count, strings);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vrxreg: a defect, please report it: %s\n", error.what());
  } catch (...) {
    std::fputs("vrxreg: a defect, please report it\n", stderr);
  }
  return kDefect;
}
