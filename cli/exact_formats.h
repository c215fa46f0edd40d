// SPDX-License-Identifier: Apache-2.0
// The text and binary formats as the command line changes them: a record is replaced only while it
// is exactly as it was read, comment and aliases included.
//
// The formats themselves compare the fields of their mask bits only, so that a change of nothing
// but a comment would be none. Here the mask bit kEverything asks for all of a record; "all
// fields", by which the store tells changed from unchanged and verifies its updates, has that bit
// too. Not here: what the fields are called and which values they take (the nouns).
#pragma once

#include <string>

#include "genreg/formats/bin_var_val.h"
#include "genreg/formats/init_tab.h"
#include "genreg/formats/services.h"
#include "genreg/formats/var_val.h"

namespace cli {

// The mask bit, of no format, that asks for the whole record to agree.
constexpr unsigned long long kEverything = 0x8000000000000000u;
constexpr unsigned long long kWholeRecord = ~0ULL;

class ExactVarVal : public GenRegVarVal {
 public:
  ExactVarVal(const std::string& path, unsigned int* status);

  static int matchExactly(unsigned long long mask, void* stored, void* given);
  // Lays out a record whose comment is as the parser gives it, with the blank behind the "#". A
  // comment that reads as the one in the old line stays as it stands there, byte for byte.
  static int formatParsed(void* record, char* line);
};

class ExactServices : public GenRegServices {
 public:
  ExactServices(const std::string& path, unsigned int* status);

  // An entry that is not understood agrees with nothing.
  static int matchExactly(unsigned long long mask, void* stored, void* given);
  // As ExactVarVal's.
  static int formatParsed(void* record, char* line);
};

class ExactInitTab : public GenRegInitTab {
 public:
  ExactInitTab(const std::string& path, unsigned int* status);

  // Entries agree with entries only, and comments count where everything does.
  static int matchExactly(unsigned long long mask, void* stored, void* given);
  // A command of one blank is what the parser makes of none before a comment.
  static int formatParsed(void* record, char* line);
};

class ExactBinVarVal : public GenRegBinVarVal {
 public:
  ExactBinVarVal(const std::string& path, unsigned int* status);

  static int matchExactly(unsigned long long mask, void* stored, void* given);
};

}  // namespace cli
