// SPDX-License-Identifier: Apache-2.0
// log: the change log, filtered and followed.
//
// What cannot be read in one way only is shown as it stands and marked. It may be what is looked
// for, so filters see only those of its fields that are known, and the others hide nothing.
#include <algorithm>
#include <ctime>
#include <iterator>

#include "cli/filter.h"
#include "cli/log_cutter.h"
#include "cli/log_entry.h"
#include "cli/log_file.h"
#include "cli/verbs.h"
#include "globalreg/global_reg.h"

namespace cli {

namespace {

// Where each value of a row stands among the fields.
enum Column : std::size_t {
  kLine,
  kTime,
  kAction,
  kKind,
  kKey,
  kCaller,
  kProcess,
  kUser,
  kCommand,
  kRegistry,
  kBuildLevel,
  kFixpack,
  kOld,
  kNew,
  kProblem,
  kText,
  kColumns
};

const std::vector<Field>& entryFields() {
  static const std::vector<Field> fields = {
      {"line", "LINE", Kind::number},       {"time", "TIME", Kind::time},
      {"action", "ACTION", Kind::text},     {"kind", "KIND", Kind::text},
      {"key", "KEY", Kind::text},           {"caller", "CALLER", Kind::text},
      {"pid", "PID", Kind::integer},        {"uid", "UID", Kind::number},
      {"command", "COMMAND", Kind::text},   {"registry", "REGISTRY", Kind::text},
      {"build_level", "LEVEL", Kind::text}, {"fixpack", "FIXPACK", Kind::number},
      {"old", "OLD", Kind::text},           {"new", "NEW", Kind::text},
      {"problem", "PROBLEM", Kind::text},   {"text", "TEXT", Kind::text},
  };
  return fields;
}

Details detailsOf(const LoggedRecord& record) {
  const Noun& noun = *findNoun(record.noun);
  Details details;
  for (std::size_t i = 0; i < record.values.size(); ++i) {
    if (!isAbsent(record.values[i]))
      details.items.push_back({noun.fields[i].name, record.values[i]});
  }
  return details;
}

// Of a change and a removal, the first record is what was there; otherwise it is what came.
void putRecords(const LogEntry& entry, Row* row) {
  const std::optional<LoggedRecord>& known = entry.first ? entry.first : entry.second;
  if (!known) return;
  row->key = keyOf(*findNoun(known->noun), Row{"", known->values, {}});
  row->values[kKey] = textOrAbsent(row->key);
  row->values[kKind] = known->noun;
  const bool wasThere = entry.action == "change" || entry.action == "delete";
  if (entry.first) row->values[wasThere ? kOld : kNew] = detailsOf(*entry.first);
  if (entry.second) row->values[kNew] = detailsOf(*entry.second);
}

void putEntry(const LogEntry& entry, Row* row) {
  row->values[kTime] = textOrAbsent(entry.time);
  row->values[kAction] = entry.action;
  row->values[kCaller] = entry.caller;
  row->values[kProcess] = entry.process;
  row->values[kUser] = entry.user;
  if (entry.command) row->values[kCommand] = *entry.command;
  row->values[kRegistry] = textOrAbsent(entry.registry);
  row->values[kBuildLevel] = textOrAbsent(entry.buildLevel);
  row->values[kFixpack] = entry.fixpack;
  putRecords(entry, row);
}

const char* problemOf(const LoggedText& text, EntryState state) {
  if (!text.whole) return "cut";
  if (state == EntryState::ambiguous) return "ambiguous";
  return state == EntryState::read ? nullptr : "unreadable";
}

Row rowOf(const LoggedText& text) {
  Row row;
  row.values.resize(kColumns);
  row.values[kLine] = std::uint64_t{text.line};
  LogEntry entry;
  const char* problem = problemOf(text, readLogEntry(text.text, &entry));
  if (problem == nullptr) {
    putEntry(entry, &row);
  } else {
    row.values[kProblem] = std::string(problem);
    row.values[kText] = text.text;
  }
  return row;
}

bool isProblem(const Row& row) {
  return !isAbsent(row.values[kProblem]);
}

bool isKnownOfProblems(const std::string& expression) {
  const std::string field = fieldOf(expression);
  return field == "line" || field == "problem" || field == "text";
}

RowTest wantedRows(const std::vector<std::string>& where) {
  std::vector<std::string> known;
  std::copy_if(where.begin(), where.end(), std::back_inserter(known), &isKnownOfProblems);
  const RowTest test = parseFilter(entryFields(), where);
  const RowTest testProblem = parseFilter(entryFields(), known);
  return
      [test, testProblem](const Row& row) { return isProblem(row) ? testProblem(row) : test(row); };
}

// Whether entries can be shown before all are known: in order, and in a form without an end or
// columns as wide as the widest.
bool showsAtOnce(const Arguments& arguments) {
  const Form form = arguments.form;
  const bool needsAll = form == Form::json || form == Form::table || form == Form::wide;
  return arguments.follow || (!needsAll && arguments.sort.empty());
}

// The entries as they are wanted and shown.
class LogView {
 public:
  explicit LogView(const Arguments& arguments)
      : arguments_(arguments),
        showsAtOnce_(showsAtOnce(arguments)),
        wanted_(wantedRows(arguments.where)),
        order_(parseOrder(entryFields(), arguments.sort)),
        columns_(columnsOf(entryFields(), arguments.fields, "--fields")) {
    answer_.schema = "vrxreg.log/1";
    answer_.fields = entryFields();
  }

  void add(const LoggedText& text) {
    Row row = rowOf(text);
    if (!wanted_(row)) return;
    held_ += kRowBytes + text.text.size();
    if (held_ > kMostHeld) throw Failure(Exit::io, kTooMuch);
    answer_.rows.push_back(std::move(row));
  }

  // Prints what has come, if that can be shown.
  void showWhatCame() {
    if (!showsAtOnce_ || answer_.rows.empty()) return;
    writeOutput(take());
  }

  // The text of what is left to show.
  std::string takeRest() {
    sortRows(order_, &answer_.rows);
    return take();
  }

 private:
  // What is held of an entry beside its text, and the most that is held of all.
  static constexpr std::size_t kRowBytes = 1000;
  static constexpr std::size_t kMostHeld = std::size_t{256} << 20;
  static constexpr const char* kTooMuch =
      "the log is too long to be shown at once: use --where, or -o ndjson without --sort";

  // Headings stand above the first rows only.
  std::string take() {
    answer_.columns = columns_.empty() ? defaultColumns() : columns_;
    std::string text = render(answer_, arguments_);
    answer_.rows.clear();
    arguments_.noHeadings = true;
    held_ = 0;
    return text;
  }
  std::vector<int> defaultColumns() const {
    if (arguments_.form != Form::table) return allColumns(answer_.fields);
    const auto& rows = answer_.rows;
    std::vector<std::string> names = {"time", "action", "kind", "key", "uid", "command"};
    if (arguments_.follow || std::any_of(rows.begin(), rows.end(), &isProblem))
      names.insert(names.end(), {"problem", "text"});
    return columnsOf(answer_.fields, names, "table");
  }

  Arguments arguments_;
  const bool showsAtOnce_;
  const RowTest wanted_;
  const RowOrder order_;
  const std::vector<int> columns_;  // that are asked for; empty for none
  Answer answer_;
  std::size_t held_ = 0;
};

// Everything that the file holds by now.
void readAll(LogFile* file, EntryCutter* cutter, LogView* view) {
  LoggedText entry;
  for (std::string_view block = file->read(); !block.empty(); block = file->read()) {
    cutter->add(block);
    while (cutter->next(&entry))
      view->add(entry);
    view->showWhatCame();
  }
}

void readLast(Unended unended, EntryCutter* cutter, LogView* view) {
  LoggedText entry;
  if (cutter->last(unended, &entry)) view->add(entry);
}

// An entry is written with one call: where the file ends with a whole line, so does an entry.
[[noreturn]] void follow(LogFile* file, LogView* view) {
  constexpr timespec kPause = {0, 100000000};
  EntryCutter cutter;
  for (;;) {
    if (file->isOpen() || file->open()) {
      const bool replaced = file->isReplaced();
      readAll(file, &cutter, view);
      readLast(replaced ? Unended::taken : Unended::awaited, &cutter, view);
      view->showWhatCame();
      if (replaced) {
        file->close();
        cutter = {};
        continue;
      }
    }
    (void)nanosleep(&kPause, nullptr);  // a signal makes it shorter
  }
}

void refuseUnfollowable(const Arguments& arguments) {
  if (!arguments.sort.empty()) throw usageFailure("--sort does not go with -F");
  if (arguments.form == Form::json)
    throw usageFailure("-o json does not go with -F, which has no end: use ndjson");
}

}  // namespace

Exit runLog(Command& command) {
  refuseWords(command);
  const Arguments& arguments = command.arguments;
  const std::string path = arguments.file.value_or(kGlobalRegChangeLog);
  LogFile file(path, arguments.file ? LinkPolicy::followed : LinkPolicy::refused);
  LogView view(arguments);
  if (arguments.follow) {
    refuseUnfollowable(arguments);
    follow(&file, &view);
  }
  if (!file.open()) throw pathFailure(Exit::noRegistry, path, "there is no such log");
  EntryCutter cutter;
  readAll(&file, &cutter, &view);
  readLast(Unended::taken, &cutter, &view);
  command.output = view.takeRest();
  return Exit::done;
}

}  // namespace cli
