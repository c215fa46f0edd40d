// SPDX-License-Identifier: Apache-2.0
// Profiles and services files within one process: floor, discipline, store and libaugeas; and a
// change of one line beside a plain copy of the file.
#include <augeas.h>

#include <filesystem>
#include <memory>

#include "benchmarks/floor.h"
#include "benchmarks/raw_files.h"
#include "benchmarks/session.h"
#include "benchmarks/shapes.h"
#include "benchmarks/text_library.h"
#include "benchmarks/text_lines.h"

namespace vrxbench {
namespace {

struct TextSubjects {
  std::string folder;
  unsigned long lines;
  Buffers buffers;

  std::string file(const std::string& contender) const { return folder + "/" + contender; }
};

using SubjectsPointer = std::shared_ptr<TextSubjects>;

void fillSubjects(const TextSubjects& subjects, std::string (*lineOf)(unsigned long, Form)) {
  std::filesystem::create_directories(subjects.folder);
  std::string text;
  for (unsigned long number = 0; number < subjects.lines; ++number)
    text += lineOf(number, Form::kFirst);
  for (const char* contender : {"copy", "floor", "discipline", "store", "augeas"})
    writeFile(subjects.file(contender), text);
}

// What a change alternates between, and with it the two files of a contender.
struct Toggle {
  std::shared_ptr<Form> form = std::make_shared<Form>(Form::kFirst);
  Form next() const { return *form = otherOf(*form); }
};

void floorGet(TextSubjects& subjects, const std::string& key, bool present) {
  const auto line = findItem<LineShape>(subjects.buffers.old.read(subjects.file("floor")), key);
  require(line.has_value() == present, "floor: not what was expected");
}

void floorList(TextSubjects& subjects) {
  unsigned long count = 0;
  visitItems<LineShape>(subjects.buffers.old.read(subjects.file("floor")),
                        [&](std::string_view line) { count += line.size() > 1 ? 1 : 0; });
  require(count == subjects.lines, "floor: the scan is not whole");
}

// Loads one file with one lens, as a program does that wants one value.
class Augeas {
 public:
  explicit Augeas(const std::string& file)
      : handle_(aug_init(nullptr, nullptr, AUG_NO_LOAD | AUG_NO_MODL_AUTOLOAD)),
        node_("/files" + file + "/") {
    require(handle_ != nullptr, "augeas: no handle");
    require(aug_transform(handle_, "Shellvars.lns", file.c_str(), 0) == 0, "augeas: no lens");
    require(aug_load(handle_) == 0, "augeas: not loaded");
  }
  ~Augeas() { aug_close(handle_); }
  Augeas(const Augeas&) = delete;
  Augeas& operator=(const Augeas&) = delete;

  void expect(const std::string& name, bool present) {
    const char* value = nullptr;
    const bool found = aug_get(handle_, (node_ + name).c_str(), &value) == 1;
    require(found == present, "augeas: not as expected");
  }
  void set(const std::string& name, const std::string& value) {
    require(aug_set(handle_, (node_ + name).c_str(), value.c_str()) == 0, "augeas: not set");
    require(aug_save(handle_) == 0, "augeas: not saved");
  }

 private:
  augeas* const handle_;
  const std::string node_;
};

Case getCase(const SubjectsPointer& s, const std::string& operation, unsigned long number) {
  Case result = {"profile", operation, s->lines, {}};
  const std::string name = settingName(number);
  const bool present = number < s->lines;
  result.contenders.push_back({"floor", [=] { floorGet(*s, name, present); }, {}});
  const auto get = [=] { profile::get(s->file("store"), name, present); };
  result.contenders.push_back({"store", get, {}});
  const auto augeas = [=] { Augeas(s->file("augeas")).expect(name, present); };
  result.contenders.push_back({"libaugeas", augeas, {}});
  return result;
}

Case listCase(const SubjectsPointer& s) {
  Case result = {"profile", "list", s->lines, {}};
  result.contenders.push_back({"floor", [=] { floorList(*s); }, {}});
  result.contenders.push_back({"store", [=] { profile::list(s->file("store"), s->lines); }, {}});
  return result;
}

// A change of one line on the floor and with the discipline; the toggles belong to the files.
void addRawChanges(Case& result, const SubjectsPointer& s, unsigned long number,
                   std::string (*lineOf)(unsigned long, Form), const std::string& key,
                   Durability durability, const Toggle (&toggles)[2]) {
  const Toggle floor = toggles[0];
  const Toggle discipline = toggles[1];
  const auto onFloor = [=] {
    const Edit edit = {Action::kChange, key, lineOf(number, floor.next())};
    floorUpdate<LineShape>(s->buffers, s->file("floor"), edit, durability);
  };
  const auto withDiscipline = [=] {
    const Edit edit = {Action::kChange, key, lineOf(number, discipline.next())};
    disciplineUpdate<LineShape>(s->buffers, s->file("discipline"), edit, durability);
  };
  result.contenders.push_back({"floor", onFloor, {}});
  result.contenders.push_back({"discipline", withDiscipline, {}});
}

void addSetCases(const SubjectsPointer& s, std::vector<Case>& cases) {
  const unsigned long number = s->lines / 2;
  const std::string name = settingName(number);
  const Toggle raw[2];
  const Toggle store;
  const Toggle augeas;
  for (const Durability durability : {Durability::kUnsynced, Durability::kSynced}) {
    const bool synced = durability == Durability::kSynced;
    Case result = {"profile", synced ? "set durable" : "set unsynced", s->lines, {}};
    addRawChanges(result, s, number, settingLine, name, durability, raw);
    const auto set = [=] {
      setDurability(durability);
      profile::set(s->file("store"), name, settingValue(number, store.next()));
    };
    result.contenders.push_back({"store", set, {}});
    const auto setAugeas = [=] {
      Augeas(s->file("augeas")).set(name, settingValue(number, augeas.next()));
    };
    // It syncs what it saves and cannot be told not to.
    if (synced) result.contenders.push_back({"libaugeas", setAugeas, {}});
    cases.push_back(result);
  }
}

Case serviceGetCase(const SubjectsPointer& s, const std::string& operation, unsigned long number) {
  const std::string name = serviceName(number);
  Case result = {"services", operation, s->lines, {}};
  result.contenders.push_back({"floor", [=] { floorGet(*s, name, true); }, {}});
  result.contenders.push_back({"store", [=] { services::get(s->file("store"), name); }, {}});
  return result;
}

void addServiceChangeCases(const SubjectsPointer& s, std::vector<Case>& cases) {
  const unsigned long number = s->lines / 2;
  const std::string name = serviceName(number);
  const Toggle raw[2];
  const Toggle store;
  for (const Durability durability : {Durability::kUnsynced, Durability::kSynced}) {
    const bool synced = durability == Durability::kSynced;
    Case result = {"services", synced ? "change durable" : "change unsynced", s->lines, {}};
    addRawChanges(result, s, number, serviceLine, name, durability, raw);
    const auto change = [=] {
      setDurability(durability);
      services::change(s->file("store"), name, servicePort(number, store.next()));
    };
    result.contenders.push_back({"store", change, {}});
    const auto copy = [=] { copyFile(s->file("copy"), s->file("copied")); };
    if (!synced) result.contenders.push_back({"copy", copy, {}});
    cases.push_back(result);
  }
}

}  // namespace

void measureProfiles(Session& session, unsigned long lines) {
  const std::string folder = session.makeFolder("profile-" + std::to_string(lines));
  const SubjectsPointer subjects(new TextSubjects{folder, lines, {}});
  std::vector<Case> cases = {getCase(subjects, "get first", 0),
                             getCase(subjects, "get middle", lines / 2),
                             getCase(subjects, "get last", lines - 1),
                             getCase(subjects, "get missing", lines), listCase(subjects)};
  addSetCases(subjects, cases);
  session.run(cases, [&] { fillSubjects(*subjects, settingLine); });
  std::filesystem::remove_all(folder);
}

void measureServices(Session& session, unsigned long lines) {
  const std::string folder = session.makeFolder("services-" + std::to_string(lines));
  const SubjectsPointer subjects(new TextSubjects{folder, lines, {}});
  std::vector<Case> cases = {serviceGetCase(subjects, "get first", 0),
                             serviceGetCase(subjects, "get middle", lines / 2),
                             serviceGetCase(subjects, "get last", lines - 1)};
  addServiceChangeCases(subjects, cases);
  session.run(cases, [&] { fillSubjects(*subjects, serviceLine); });
  std::filesystem::remove_all(folder);
}

}  // namespace vrxbench
