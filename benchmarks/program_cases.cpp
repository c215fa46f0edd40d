// SPDX-License-Identifier: Apache-2.0
// Whole processes: vrxreg beside a program that does nothing but start, and beside what people use
// on profiles and on the services file today.
#include <filesystem>
#include <memory>

#include "benchmarks/programs.h"
#include "benchmarks/raw_files.h"
#include "benchmarks/session.h"
#include "benchmarks/text_lines.h"

namespace vrxbench {
namespace {

using Words = std::vector<std::string>;

constexpr char kHostServices[] = "/etc/services";

struct Settings {
  std::string folder;
  unsigned long count;

  std::string file(const std::string& name) const { return folder + "/" + name; }
};

// The peers know no plain NAME=value files: each gets the settings in its own syntax.
void fillSettings(const Settings& settings) {
  std::filesystem::create_directories(settings.folder);
  std::string registry;
  std::string profile;
  std::string sections = "[profile]\n";
  std::string gitNames = "[profile]\n";
  for (unsigned long number = 0; number < settings.count; ++number) {
    registry += frameOf(number, Form::kFirst);
    profile += settingLine(number, Form::kFirst);
    sections += settingLine(number, Form::kFirst);
    gitNames +=
        "\tsetting-" + std::to_string(number) + " = " + settingValue(number, Form::kFirst) + "\n";
  }
  writeFile(settings.file("registry"), registry);
  for (const char* name : {"vrxreg", "augtool", "sed", "grep"})
    writeFile(settings.file(name), profile);
  writeFile(settings.file("crudini"), sections);
  writeFile(settings.file("git"), gitNames);
}

Contender running(const std::string& name, const Words& words) {
  return {name, [=] { runProgram(words); }, {}};
}

// Runs the program with one and then the other new value.
Contender changing(const std::string& name, unsigned long number,
                   const std::function<Words(const std::string&)>& wordsFor) {
  const auto form = std::make_shared<Form>(Form::kFirst);
  const auto run = [=] {
    *form = otherOf(*form);
    runProgram(wordsFor(settingValue(number, *form)));
  };
  return {name, run, {}};
}

Words augtool(const std::string& lens, const std::string& file, const Words& command) {
  Words words = {"augtool", "--noautoload", "--transform", lens + " incl " + file};
  words.insert(words.end(), command.begin(), command.end());
  return words;
}

Case instanceGet(const Settings& s) {
  const std::string key = "VRX/3.1.0.7/" + instanceName(s.count / 2);
  Case result = {"programs", "instance get", s.count, {}};
  result.contenders = {running("hello", {VRXBENCH_HELLO}),
                       running("vrxreg", {VRXBENCH_VRXREG, "--registry", s.file("registry"),
                                          "instance", "get", key})};
  return result;
}

Case profileGet(const Settings& s) {
  const unsigned long number = s.count / 2;
  const std::string name = settingName(number);
  const std::string gitName = "profile.setting-" + std::to_string(number);
  Case result = {"programs", "profile get", s.count, {}};
  result.contenders = {
      running("hello", {VRXBENCH_HELLO}),
      running("vrxreg", {VRXBENCH_VRXREG, "-f", s.file("vrxreg"), "profile", "get", name}),
      running("git config", {"git", "config", "-f", s.file("git"), gitName}),
      running("crudini", {"crudini", "--get", s.file("crudini"), "profile", name}),
      running("augtool", augtool("Shellvars", s.file("augtool"),
                                 {"get", "/files" + s.file("augtool") + "/" + name})),
      running("sed", {"sed", "-n", "/^" + name + "=/{p;q}", s.file("sed")}),
      running("grep", {"grep", "-m1", "^" + name + "=", s.file("grep")})};
  return result;
}

Case profileSet(const Settings& s) {
  const unsigned long number = s.count / 2;
  const std::string name = settingName(number);
  const std::string gitName = "profile.setting-" + std::to_string(number);
  const std::string node = "/files" + s.file("augtool") + "/" + name;
  const auto byVrxreg = [=](const std::string& value) -> Words {
    return {VRXBENCH_VRXREG, "-f", s.file("vrxreg"), "profile", "set", name, "value=" + value};
  };
  const auto byGit = [=](const std::string& value) -> Words {
    return {"git", "config", "-f", s.file("git"), gitName, value};
  };
  const auto byCrudini = [=](const std::string& value) -> Words {
    return {"crudini", "--set", s.file("crudini"), "profile", name, value};
  };
  const auto byAugtool = [=](const std::string& value) -> Words {
    return augtool("Shellvars", s.file("augtool"), {"--autosave", "set", node, value});
  };
  const auto bySed = [=](const std::string& value) -> Words {
    return {"sed", "-i", "s/^" + name + "=.*/" + name + "=" + value + "/", s.file("sed")};
  };
  Case result = {"programs", "profile set", s.count, {}};
  result.contenders = {
      running("hello", {VRXBENCH_HELLO}),     changing("vrxreg", number, byVrxreg),
      changing("git config", number, byGit),  changing("crudini", number, byCrudini),
      changing("augtool", number, byAugtool), changing("sed", number, bySed)};
  return result;
}

// On the host's own file, which is only read.
Case portsGet(const Settings& s) {
  Case result = {"programs", "ports get", s.count, {}};
  const std::string match = std::string("/files") + kHostServices + "/service-name[.='ssh']";
  result.contenders = {running("hello", {VRXBENCH_HELLO}),
                       running("vrxreg", {VRXBENCH_VRXREG, "ports", "get", "ssh/tcp"}),
                       running("getent", {"getent", "services", "ssh/tcp"}),
                       running("augtool", augtool("Services", kHostServices, {"match", match}))};
  return result;
}

}  // namespace

void measurePrograms(Session& session, unsigned long records) {
  const Settings settings = {session.makeFolder("programs-" + std::to_string(records)), records};
  std::vector<Case> cases = {instanceGet(settings), profileGet(settings), profileSet(settings)};
  // Its size is the host's own, so it is measured once only.
  if (records == kProgramSizes[0]) cases.push_back(portsGet(settings));
  session.run(cases, [&] { fillSettings(settings); });
  std::filesystem::remove_all(settings.folder);
}

}  // namespace vrxbench
