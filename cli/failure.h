// SPDX-License-Identifier: Apache-2.0
// What ends a command early: the exit status, the status code behind it, and one sentence.
//
// Inside the command line a failure travels as an exception, from where it is understood to the one
// place that prints it (app.cpp). The libraries below return status codes; failureOf turns one into
// a Failure through the one table that maps codes to exit statuses.
#pragma once

#include <exception>
#include <string>
#include <vector>

#include "genreg/status.h"

namespace cli {

// Exit statuses. `no` is never an error: a record is not there.
enum class Exit : int {
  done = 0,
  no = 1,
  usage = 2,
  busy = 3,
  noRegistry = 4,
  conflict = 5,
  damaged = 6,
  refused = 7,
  io = 8,
  notVerified = 9,
  changed = 10,
  bug = 70
};

class Failure : public std::exception {
 public:
  Failure(Exit exitStatus, std::string text) : exit(exitStatus), message(std::move(text)) {}
  const char* what() const noexcept override { return message.c_str(); }

  Exit exit;
  std::string message;  // without the program's name and the code
  GenRegStatus code = genreg::status::ok;
  std::string path;                     // the file concerned; empty for none
  std::string field;                    // the field refused; empty for none
  std::vector<std::string> candidates;  // the records that an ambiguous key names
};

// The exit status of a status code, of this library, of the platform layer or of the system.
Exit exitOf(GenRegStatus code);

// What the code means, in one clause; never empty.
std::string meaningOf(GenRegStatus code);

// "0x900001F6".
std::string codeText(GenRegStatus code);

// The failure of `subject` (a record, a file) with `code`.
Failure failureOf(GenRegStatus code, const std::string& subject, const std::string& path);

// The failure of the file at `path`, which the message begins with.
Failure pathFailure(Exit exit, const std::string& path, const std::string& why);

// A usage failure: what is wrong with the command line.
Failure usageFailure(const std::string& message);

}  // namespace cli
