// SPDX-License-Identifier: Apache-2.0
// log: the change log, filtered and followed.
//
// What cannot be read in one way only is shown as it stands and marked, whatever is asked for: it
// may be what is looked for. Only a filter that speaks of the mark itself leaves it out.
#include <algorithm>
#include <ctime>

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
      {"line", "LINE", Kind::number, 0, KeyPart::none},
      {"time", "TIME", Kind::text, 0, KeyPart::none},
      {"action", "ACTION", Kind::text, 0, KeyPart::none},
      {"kind", "KIND", Kind::text, 0, KeyPart::none},
      {"caller", "CALLER", Kind::text, 0, KeyPart::none},
      {"pid", "PID", Kind::integer, 0, KeyPart::none},
      {"uid", "UID", Kind::number, 0, KeyPart::none},
      {"command", "COMMAND", Kind::text, 0, KeyPart::none},
      {"registry", "REGISTRY", Kind::text, 0, KeyPart::none},
      {"build_level", "LEVEL", Kind::text, 0, KeyPart::none},
      {"fixpack", "FIXPACK", Kind::number, 0, KeyPart::none},
      {"old", "OLD", Kind::text, 0, KeyPart::none},
      {"new", "NEW", Kind::text, 0, KeyPart::none},
      {"problem", "PROBLEM", Kind::text, 0, KeyPart::none},
      {"text", "TEXT", Kind::text, 0, KeyPart::none},
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
  if (!entry.first) return;
  const Noun& noun = *findNoun(entry.first->noun);
  row->key = keyOf(noun, Row{"", entry.first->values, {}});
  row->values[kKind] = entry.first->noun;
  const bool wasThere = entry.action == "change" || entry.action == "delete";
  row->values[wasThere ? kOld : kNew] = detailsOf(*entry.first);
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

RowTest wantedRows(const std::vector<std::string>& where) {
  const RowTest test = parseFilter(entryFields(), where);
  const auto namesProblem = [](const std::string& expression) {
    return expression.substr(0, expression.find_first_of("!<>=~")) == "problem";
  };
  const bool problemsPass = std::none_of(where.begin(), where.end(), namesProblem);
  return [test, problemsPass](const Row& row) {
    return (problemsPass && isProblem(row)) || test(row);
  };
}

// The rows of entries, as they are wanted and shown.
class LogView {
 public:
  explicit LogView(const Arguments& arguments)
      : arguments_(arguments), wanted_(wantedRows(arguments.where)) {
    answer_.schema = "vrxreg.log/1";
    answer_.fields = entryFields();
    if (!arguments.fields.empty())
      columns_ = columnsOf(answer_.fields, arguments.fields, "--fields");
  }

  void add(const LoggedText& text) {
    Row row = rowOf(text);
    if (wanted_(row)) answer_.rows.push_back(std::move(row));
  }
  void sort() { sortRows(parseOrder(answer_.fields, arguments_.sort), &answer_.rows); }
  bool isEmpty() const { return answer_.rows.empty(); }

  // The text of the rows, which are then gone; headings stand above the first only.
  std::string take() {
    answer_.columns = columns_.empty() ? defaultColumns() : columns_;
    std::string text = render(answer_, arguments_);
    answer_.rows.clear();
    arguments_.noHeadings = true;
    return text;
  }

 private:
  std::vector<int> defaultColumns() const {
    if (arguments_.form == Form::table) {
      std::vector<std::string> names = {"time", "action", "kind", "key", "uid", "command"};
      if (std::any_of(answer_.rows.begin(), answer_.rows.end(), &isProblem))
        names.insert(names.end(), {"problem", "text"});
      return columnsOf(answer_.fields, names, "table");
    }
    std::vector<int> columns = allColumns(answer_.fields);
    const bool isJson = arguments_.form == Form::json || arguments_.form == Form::ndjson;
    if (!isJson) columns.insert(columns.begin(), kKeyColumn);
    return columns;
  }

  Arguments arguments_;
  const RowTest wanted_;
  std::vector<int> columns_;
  Answer answer_;
};

// Everything that the file holds by now.
void readAll(LogFile* file, EntryCutter* cutter, LogView* view) {
  LoggedText entry;
  for (std::string_view block = file->read(); !block.empty(); block = file->read()) {
    cutter->add(block);
    while (cutter->next(&entry))
      view->add(entry);
  }
}

void readLast(bool unfinished, EntryCutter* cutter, LogView* view) {
  LoggedText entry;
  if (cutter->last(unfinished, &entry)) view->add(entry);
}

// An entry is written with one call: where the file ends with a whole line, so does an entry.
[[noreturn]] void follow(LogFile* file, LogView* view) {
  constexpr timespec kPause = {0, 100000000};
  EntryCutter cutter;
  for (;;) {
    const bool replaced = file->isOpen() && file->isReplaced();
    if (file->isOpen()) {
      readAll(file, &cutter, view);
      readLast(replaced, &cutter, view);
    }
    if (replaced) file->close();
    if (!view->isEmpty()) writeOutput(view->take());
    if (!file->isOpen()) cutter = {};
    if (!file->isOpen() && file->open()) continue;
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
  if (!file.open()) {
    Failure failure(Exit::noRegistry, path + ": there is no such log");
    failure.path = path;
    throw failure;
  }
  EntryCutter cutter;
  readAll(&file, &cutter, &view);
  readLast(true, &cutter, &view);
  view.sort();
  command.output = view.take();
  return Exit::done;
}

}  // namespace cli
