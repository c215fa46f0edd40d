// SPDX-License-Identifier: Apache-2.0
// Lookups, scans and updates of a registry of instances: floor, discipline, store, directory and
// the peers, one-shot.
#include <cstring>
#include <filesystem>
#include <memory>

#include "benchmarks/floor.h"
#include "benchmarks/library.h"
#include "benchmarks/peers.h"
#include "benchmarks/raw_files.h"
#include "benchmarks/records.h"
#include "benchmarks/session.h"
#include "benchmarks/shapes.h"

namespace vrxbench {
namespace {

constexpr char kSet[] = "instances";

// The registries of one size, each contender's its own, so that none finds another's companions.
struct Subjects {
  explicit Subjects(const std::string& name, unsigned long count)
      : folder(name), records(count), peers(makePeers(name)) {}

  std::string file(const std::string& contender) const { return folder + "/" + contender + ".reg"; }

  const std::string folder;
  const unsigned long records;
  const std::vector<NamedPeer> peers;
  Buffers buffers;
};

using SubjectsPointer = std::shared_ptr<Subjects>;

void fillSubjects(const Subjects& subjects) {
  std::filesystem::create_directories(subjects.folder);
  std::string bytes;
  for (unsigned long number = 0; number < subjects.records; ++number)
    bytes += frameOf(number, Form::kFirst);
  for (const char* contender : {"floor", "discipline", "store", "directory"})
    writeFile(subjects.file(contender), bytes);
  for (const NamedPeer& peer : subjects.peers)
    peer.peer->fill(subjects.records);
}

void floorFind(Subjects& subjects, const Wanted& wanted, bool present) {
  const std::string_view file = subjects.buffers.old.read(subjects.file("floor"));
  const auto frame = findItem<FrameShape>(file, wanted.packedKey);
  require(frame.has_value() == present, "floor: not what was expected");
  if (!frame) return;
  ImageFields fields;
  const bool read = readFields(FrameShape::imageOf(*frame), fields);
  require(read && fields.path == wanted.path, "floor: another record");
}

// Walks the frames and looks at nothing in them but their type.
void floorScan(Subjects& subjects) {
  unsigned long count = 0;
  visitItems<FrameShape>(subjects.buffers.old.read(subjects.file("floor")),
                         [&](std::string_view frame) {
                           std::uint32_t type = 0;
                           std::memcpy(&type, FrameShape::imageOf(frame).data(), sizeof type);
                           count += type == kGlobalRegInstance ? 1 : 0;
                         });
  require(count == subjects.records, "floor: the scan is not whole");
}

// Reads the texts of every record as well, as the peers do.
void fieldScan(Subjects& subjects) {
  unsigned long count = 0;
  unsigned long sum = 0;
  const auto visit = [&](std::string_view frame) {
    ImageFields fields;
    require(readFields(FrameShape::imageOf(frame), fields), "floor: a damaged record");
    sum += touch(fields.name, fields.path, fields.comment);
    ++count;
  };
  visitItems<FrameShape>(subjects.buffers.old.read(subjects.file("floor")), visit);
  require(count == subjects.records && sum > 0, "floor: the scan is not whole");
}

// Lays every record out.
void recordScan(Subjects& subjects) {
  static GlobalRegRecord record;
  unsigned long count = 0;
  visitItems<FrameShape>(subjects.buffers.old.read(subjects.file("floor")),
                         [&](std::string_view frame) {
                           layOut(FrameShape::imageOf(frame), record);
                           count += record.RecordType == kGlobalRegInstance ? 1 : 0;
                         });
  require(count == subjects.records, "floor: the scan is not whole");
}

void addLibraryScans(Case& result, const SubjectsPointer& s, Look look) {
  const auto ofStore = [=] { store::scan(s->file("store"), s->records, look); };
  const auto ofDirectory = [=] {
    directory::use(s->file("directory"));
    directory::scan(s->records, look);
  };
  result.contenders.push_back({"store", ofStore, {}});
  result.contenders.push_back({"directory", ofDirectory, {}});
}

Case lookupCase(const SubjectsPointer& s, const std::string& operation, unsigned long number) {
  Case result = {kSet, operation, s->records, {}};
  const bool present = number < s->records;
  const Wanted wanted(number);
  result.contenders.push_back({"floor", [=] { floorFind(*s, wanted, present); }, {}});
  result.contenders.push_back({"store",
                               [=] {
                                 present ? store::expectFound(s->file("store"), wanted)
                                         : store::expectMissing(s->file("store"), wanted);
                               },
                               {}});
  result.contenders.push_back({"directory",
                               [=] {
                                 directory::use(s->file("directory"));
                                 present ? directory::expectFound(wanted)
                                         : directory::expectMissing(wanted);
                               },
                               {}});
  for (const NamedPeer& named : s->peers) {
    const auto run = [=] {
      present ? named.peer->expectFound(wanted) : named.peer->expectMissing(wanted);
    };
    result.contenders.push_back({named.name, run, {}});
  }
  return result;
}

// The library delivers records of 2,600 and instances of 2,576 bytes: one floor walks the frames,
// the other delivers them, too.
Case scanCase(const SubjectsPointer& s) {
  Case result = {kSet, "scan", s->records, {}};
  result.contenders.push_back({"floor", [=] { floorScan(*s); }, {}});
  result.contenders.push_back({"floor records", [=] { recordScan(*s); }, {}});
  addLibraryScans(result, s, Look::kNone);
  return result;
}

// All of them read every record's texts.
Case readAllCase(const SubjectsPointer& s) {
  Case result = {kSet, "read all", s->records, {}};
  result.contenders.push_back({"floor", [=] { fieldScan(*s); }, {}});
  addLibraryScans(result, s, Look::kTexts);
  for (const NamedPeer& named : s->peers)
    result.contenders.push_back({named.name, [=] { named.peer->scan(s->records); }, {}});
  return result;
}

// How one contender makes an update, and how its effect is undone where it has to be.
struct Updater {
  std::string name;
  std::function<void(Action, unsigned long, Form, Durability)> update;
  std::function<void(Action, Durability)> undo;
  std::shared_ptr<Form> form = std::make_shared<Form>(Form::kFirst);  // of the changed record
};

// An insertion stands at the end of the file, and what is removed stood there.
std::function<void(Action, Durability)> undoIn(const SubjectsPointer& s, const std::string& file) {
  return [=](Action action, Durability durability) {
    const std::string frame = frameOf(s->records - 1, Form::kFirst);
    if (action == Action::kInsert) cutTo(file, frame.size() * s->records, durability);
    if (action == Action::kRemove) appendTo(file, frame, durability);
  };
}

Edit editOf(Action action, unsigned long number, Form form) {
  return {action, packedKey(number), action == Action::kRemove ? "" : frameOf(number, form)};
}

std::vector<Updater> updatersOfFiles(const SubjectsPointer& s) {
  const std::string floor = s->file("floor");
  const std::string discipline = s->file("discipline");
  const std::string storeFile = s->file("store");
  const std::string directoryFile = s->file("directory");
  std::vector<Updater> updaters;
  updaters.push_back({"floor",
                      [=](Action action, unsigned long number, Form form, Durability durability) {
                        const Edit edit = editOf(action, number, form);
                        floorUpdate<FrameShape>(s->buffers, floor, edit, durability);
                      },
                      undoIn(s, floor)});
  updaters.push_back({"discipline",
                      [=](Action action, unsigned long number, Form form, Durability durability) {
                        const Edit edit = editOf(action, number, form);
                        disciplineUpdate<FrameShape>(s->buffers, discipline, edit, durability);
                      },
                      undoIn(s, discipline)});
  updaters.push_back({"store",
                      [=](Action action, unsigned long number, Form form, Durability durability) {
                        setDurability(durability);
                        store::update(storeFile, action, number, form);
                      },
                      undoIn(s, storeFile)});
  updaters.push_back({"directory",
                      [=](Action action, unsigned long number, Form form, Durability durability) {
                        setDurability(durability);
                        directory::use(directoryFile);
                        directory::update(action, number, form);
                      },
                      undoIn(s, directoryFile)});
  return updaters;
}

std::vector<Updater> updatersOfPeers(const SubjectsPointer& s) {
  std::vector<Updater> updaters;
  for (const NamedPeer& named : s->peers) {
    const std::shared_ptr<Peer> peer = named.peer;
    const auto update = [=](Action action, unsigned long number, Form form, Durability durability) {
      peer->update(action, number, form, durability);
    };
    const auto undo = [=](Action action, Durability durability) {
      if (action == Action::kInsert)
        peer->update(Action::kRemove, s->records, Form::kFirst, durability);
      if (action == Action::kRemove)
        peer->update(Action::kInsert, s->records - 1, Form::kFirst, durability);
    };
    updaters.push_back({named.name, update, undo});
  }
  return updaters;
}

Contender changing(const Updater& updater, unsigned long number, Durability durability) {
  return {updater.name,
          [=] {
            *updater.form = otherOf(*updater.form);
            updater.update(Action::kChange, number, *updater.form, durability);
          },
          {}};
}

Contender updating(const Updater& updater, Action action, unsigned long records,
                   Durability durability) {
  if (action == Action::kChange) return changing(updater, records / 2, durability);
  const unsigned long number = action == Action::kInsert ? records : records - 1;
  return {updater.name, [=] { updater.update(action, number, Form::kFirst, durability); },
          [=] { updater.undo(action, durability); }};
}

void addUpdateCases(const SubjectsPointer& s, std::vector<Case>& cases) {
  std::vector<Updater> updaters = updatersOfFiles(s);
  for (Updater& updater : updatersOfPeers(s))
    updaters.push_back(std::move(updater));
  const std::pair<Action, const char*> actions[] = {
      {Action::kInsert, "insert"}, {Action::kChange, "change"}, {Action::kRemove, "delete"}};
  for (const auto& [action, name] : actions) {
    for (const Durability durability : {Durability::kUnsynced, Durability::kSynced}) {
      const bool synced = durability == Durability::kSynced;
      Case result = {kSet, std::string(name) + (synced ? " durable" : " unsynced"), s->records, {}};
      for (const Updater& updater : updaters)
        result.contenders.push_back(updating(updater, action, s->records, durability));
      cases.push_back(result);
    }
  }
}

}  // namespace

void measureRecords(Session& session, unsigned long records) {
  const std::string folder = session.makeFolder("instances-" + std::to_string(records));
  const auto subjects = std::make_shared<Subjects>(folder, records);
  std::vector<Case> cases = {lookupCase(subjects, "lookup first", 0),
                             lookupCase(subjects, "lookup middle", records / 2),
                             lookupCase(subjects, "lookup last", records - 1),
                             lookupCase(subjects, "lookup missing", records),
                             scanCase(subjects),
                             readAllCase(subjects)};
  addUpdateCases(subjects, cases);
  session.run(cases, [&] { fillSubjects(*subjects); });
  std::filesystem::remove_all(folder);
}

}  // namespace vrxbench
