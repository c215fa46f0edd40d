// SPDX-License-Identifier: Apache-2.0
// A program that is linked with all that vrxreg is linked with, and does nothing: the time that a
// process of this kind takes to start and end.
#include <iostream>

int main() {
  std::cout << "hello\n";
  return 0;
}
