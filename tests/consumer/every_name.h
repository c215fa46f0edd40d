// SPDX-License-Identifier: Apache-2.0
// What the parts of every_name share: facts that are counted, a private folder, short records.
//
// The program is a consumer: it includes the installed header alone and nothing of the source tree.
#pragma once

#include <vrxgenreg.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace every_name {

// The folder in which every file of the program stands; set by main before anything else runs.
extern std::string folder;

// Notes whether a fact holds; main reports how many do, and fails when one does not.
void note(bool holds, const char* fact, const char* file, int line);

// Notes whether a call returned the status that its header documents.
void noteStatus(unsigned int found, unsigned int documented, const char* call, const char* file,
                int line);

// Statuses come as `unsigned int` or, from some classes, as the same bits in an `int`.
constexpr unsigned int statusBits(int code) {
  return genreg::statusOf(code);
}
constexpr unsigned int statusBits(unsigned int code) {
  return code;
}

#define HOLDS(fact) ::every_name::note((fact), #fact, __FILE__, __LINE__)
#define RETURNS(code, call) \
  ::every_name::noteStatus(::every_name::statusBits(call), (code), #call, __FILE__, __LINE__)

inline std::string pathOf(const std::string& name) {
  return folder + "/" + name;
}

inline void write(const std::string& name, std::string_view bytes) {
  std::ofstream(pathOf(name), std::ios::binary) << bytes;
}

inline std::string contentsOf(const std::string& name) {
  std::ifstream file(pathOf(name), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Puts a short text into a field of a record; the field is zero before.
template <std::size_t width>
void put(char (&field)[width], std::string_view text) {
  text.copy(field, width - 1);
}

// Version 3.1.0.7.
constexpr unsigned long long kVersion = 0x0003000100000007ULL;

// The parts, one a subject.
void callPlatform();
void callDiagnostics();
void callCore();
void callText();
void callTextFormats();
void callBinary();
void callGlobal();
void callDirectory();

}  // namespace every_name
