// SPDX-License-Identifier: Apache-2.0
// The slots and getters of the three text formats.
#include <arpa/inet.h>

#include <cstring>

#include "every_name.h"

namespace every_name {

namespace {

namespace status = genreg::status;

// Formats of a program's own, built on the library's.
class OwnProfile : public GenRegVarVal {
 public:
  explicit OwnProfile(unsigned int* code) : GenRegVarVal(pathOf("values").c_str(), code) {}
};
class OwnServices : public GenRegServices {
 public:
  OwnServices(std::string path, unsigned int* code) : GenRegServices(path.data(), code) {}
};
class OwnInitTab : public GenRegInitTab {};
class OwnSlotlessInitTab : public GenRegInitTab {
 public:
  OwnSlotlessInitTab(std::string path, unsigned int* code) : GenRegInitTab(path.data(), code) {}
};

void callGetters(GenRegVarVal& profile) {
  bool on = false;
  int number = 0;
  unsigned int natural = 0;
  double real = 0;
  const char* text = nullptr;
  HOLDS(profile.GetBooleanValue("ON", &on) && on);
  HOLDS(profile.GetSintValue("INT", &number) && number == -3);
  HOLDS(profile.GetUintValue("UINT", &natural) && natural == 3);
  HOLDS(profile.GetDoubleValue("REAL", &real) && real == 0.5);
  HOLDS(profile.GetStringValue("TEXT", &text) && std::string(text) == "\"a  b\"");
  HOLDS(!profile.GetSintValue("NONE", &number) && number == -3);
}

void callProfileSlots() {
  GenRegVarValRecord record{};
  char line[kGenRegLineSize] = "  A = 1 # one";
  unsigned long size = 0;
  RETURNS(0, GenRegVarVal::ParseLine(&record, line));
  HOLDS(std::string(record.variable) == "A" && std::string(record.comment) == " one");
  char again[kGenRegLineSize] = "";
  RETURNS(0, GenRegVarVal::FormatLine(&record, again));
  HOLDS(std::string(again).find("A = 1 #") == 0);
  HOLDS(GenRegVarVal::MatchRecord(kVarValVariable, &record, &record) == 1);
  RETURNS(0, GenRegVarVal::ValidateRecord(kVarValVariable, &record));
  RETURNS(0, GenRegVarVal::PrintRecord(&record));
  RETURNS(0, GenRegVarVal::GetRecordSize(&record, &size));
  HOLDS(size == sizeof record);
  RETURNS(0, GenRegVarVal::GetMaxRecordSize(&size));
  HOLDS(size == sizeof record);
  RETURNS(status::null_argument, GenRegVarVal::ParseLine(nullptr, line));
}

void callServicesSlots() {
  GenRegServicesRecord record{};
  char line[kGenRegLineSize] = "http 80/tcp www # web";
  unsigned long size = 0;
  RETURNS(0, GenRegServices::ParseLine(&record, line));
  HOLDS(ntohs(static_cast<unsigned short>(record.port)) == 80);
  HOLDS(std::string(record.aliases[0]) == "www" && record.aliases[1] == nullptr);
  char again[kGenRegLineSize] = "";
  RETURNS(0, GenRegServices::FormatLine(&record, again));
  HOLDS(std::string(again).find("http\t\t80/tcp\twww") == 0);
  HOLDS(GenRegServices::MatchRecord(kServicesName, &record, &record) == 1);
  RETURNS(0, GenRegServices::ValidateRecord(kServicesName, &record));
  RETURNS(0, GenRegServices::PrintRecord(&record));
  RETURNS(0, GenRegServices::GetRecordSize(&record, &size));
  HOLDS(size == sizeof record);
  RETURNS(0, GenRegServices::GetMaxRecordSize(&size));
  HOLDS(size == sizeof record);
  RETURNS(status::null_argument, GenRegServices::ValidateRecord(0, nullptr));
}

void callInitTabSlots() {
  GenRegInitTabRecord record{};
  char line[kGenRegLineSize] = "vrx1:2345:respawn:/opt/vrx/fmcd # monitor";
  unsigned long size = 0;
  RETURNS(0, GenRegInitTab::ParseLine(&record, line));
  HOLDS(std::string(record.command) == "/opt/vrx/fmcd");
  char again[kGenRegLineSize] = "";
  RETURNS(0, GenRegInitTab::FormatLine(&record, again));
  HOLDS(std::string(again) == "vrx1:2345:respawn:/opt/vrx/fmcd # monitor");
  HOLDS(GenRegInitTab::MatchRecord(kInitTabId, &record, &record) == 1);
  RETURNS(0, GenRegInitTab::ValidateRecord(kInitTabId, &record));
  RETURNS(0, GenRegInitTab::PrintRecord(&record));
  RETURNS(0, GenRegInitTab::GetRecordSize(&record, &size));
  HOLDS(size == sizeof record);
  RETURNS(0, GenRegInitTab::GetMaxRecordSize(&size));
  HOLDS(size == sizeof record);
  RETURNS(status::null_argument, GenRegInitTab::FormatLine(nullptr, line));
}

void callServices() {
  unsigned int code = ~0U;
  std::string path = pathOf("services");
  GenRegServices services(path.data(), &code);
  RETURNS(0, code);
  OwnServices derived("", &code);
  RETURNS(status::null_argument, code);
}

void callInitTab() {
  unsigned int code = ~0U;
  std::string path = pathOf("inittab");
  GenRegInitTab table;
  RETURNS(0, table.setPaths(path.data()));
  RETURNS(0, table.CheckFuncPtrs());
  OwnInitTab derived;
  RETURNS(status::null_argument, derived.setPaths(nullptr));
  // The constructor with a path leaves the slots empty, and has to.
  GenRegInitTab slotless(path.data(), &code);
  RETURNS(0, code);
  RETURNS(status::no_validate_slot, slotless.CheckFuncPtrs());
  OwnSlotlessInitTab derivedSlotless("", &code);
  RETURNS(status::null_argument, code);
}

}  // namespace

void callTextFormats() {
  write("values", "ON = yes\nINT = -3\nUINT = 3\nREAL = 0.5\nTEXT = \"a  b\"\n");
  unsigned int code = ~0U;
  GenRegVarVal profile(pathOf("values").c_str(), &code);
  RETURNS(0, code);
  callGetters(profile);
  OwnProfile derived(&code);
  RETURNS(0, code);
  callGetters(derived);
  callProfileSlots();
  callServicesSlots();
  callInitTabSlots();
  callServices();
  callInitTab();
}

}  // namespace every_name
