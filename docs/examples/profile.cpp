// SPDX-License-Identifier: Apache-2.0
// profile FOLDER: makes FOLDER/app.env, adds and changes variables, and shows what the file holds
// then.
#include <vrxgenreg.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

namespace {

int fail(const char* what, GenRegStatus code) {
  const GenRegStatusInfo* info = genregStatusInfo(code);
  std::fprintf(stderr, "%s: %s (0x%08X)\n", what, info != nullptr ? info->meaning : "", code);
  return 1;
}

// A record of one variable. The texts stay the caller's and must outlive the call that uses it.
GenRegVarValRecord lineOf(std::string& name, std::string& value) {
  GenRegVarValRecord line{};
  line.contents = kVarValHasValue;
  line.variable = name.data();
  line.value = value.data();
  return line;
}

GenRegStatus set(GenRegVarVal& profile, std::string name, std::string value) {
  GenRegVarValRecord line = lineOf(name, value);
  const GenRegStatus code = profile.Change(kVarValVariable, &line, &line);
  if (code == genreg::status::no_match) return profile.Add(kVarValVariable, &line);
  return code == genreg::status::unchanged ? genreg::status::ok : code;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  const std::string path = std::string(arguments[1]) + "/app.env";
  std::ofstream(path) << "# diagnostics\n  DIAG = 3   # level\n";

  unsigned int status = 0;
  GenRegVarVal profile(path.c_str(), &status);
  if (status != 0) return fail("app.env", status);

  status = set(profile, "DIAG", "4");
  if (status == 0) status = set(profile, "TRACE", "off");
  if (status != 0) return fail("app.env", status);

  int level = 0;
  bool trace = true;
  if (profile.GetSintValue("DIAG", &level)) std::printf("level %d\n", level);
  if (profile.GetBooleanValue("TRACE", &trace)) std::printf("trace %s\n", trace ? "yes" : "no");

  std::printf("--\n");
  std::fflush(stdout);
  std::cout << std::ifstream(path).rdbuf();
  return 0;
}
