// SPDX-License-Identifier: Apache-2.0
// The nouns of the global registry as data: names, types and places of every field, once.
#include "cli/arguments.h"
#include "cli/global_store.h"

namespace cli {

namespace {

// A field's two halves: what the verbs know and where it lies in the record.
struct GlobalField {
  Field field;
  GlobalSlot slot;
};

#define VRX_PLACE(body, member) \
  offsetof(GlobalRegRecord, body.member), sizeof(GlobalRegRecord::body.member)
#define VRX_TEXT(name, heading, bit, body, member, part)                                    \
  {                                                                                         \
    {name, heading, Kind::text, sizeof(GlobalRegRecord::body.member) - 1, KeyPart::part}, { \
      bit, VRX_PLACE(body, member)                                                          \
    }                                                                                       \
  }
#define VRX_WORD(name, heading, kind, bit, body, member, part) \
  {                                                            \
    {name, heading, Kind::kind, 0, KeyPart::part}, {           \
      bit, VRX_PLACE(body, member)                             \
    }                                                          \
  }

const GlobalField kInstanceFields[] = {
    VRX_TEXT("service", "SERVICE", kInstanceService, Instance, Service, service),
    VRX_WORD("version", "VERSION", version, kInstanceVersionCode, Instance, VersionCode, version),
    VRX_TEXT("instance", "INSTANCE", kInstanceName, Instance, InstanceName, name),
    VRX_TEXT("path", "PATH", kInstancePath, Instance, InstancePath, none),
    VRX_TEXT("usage", "USAGE", kInstanceUsage, Instance, Usage, none),
    VRX_WORD("start_at_boot", "BOOT", boolean, kInstanceStartAtBoot, Instance, StartAtBoot, none),
    VRX_WORD("maintenance", "MAINT", boolean, kInstanceMaintenance, Instance, Maintenance, none),
    VRX_TEXT("aux_path", "AUX_PATH", kInstanceAuxPath, Instance, AuxPath, none),
    VRX_TEXT("aux_name", "AUX_NAME", kInstanceAuxName, Instance, AuxName, none),
    VRX_TEXT("comment", "COMMENT", kInstanceComment, Instance, Comment, none),
};

const GlobalField kServiceFields[] = {
    VRX_TEXT("service", "SERVICE", kServiceService, Services, Service, service),
    VRX_WORD("version", "VERSION", version, kServiceVersionCode, Services, VersionCode, version),
    VRX_TEXT("text1", "TEXT1", kServiceText1, Services, Text1, none),
    VRX_TEXT("text2", "TEXT2", kServiceText2, Services, Text2, none),
    VRX_TEXT("text3", "TEXT3", kServiceText3, Services, Text3, none),
    VRX_WORD("fixpack", "FIXPACK", number, kServiceFixpackNumber, Services, FixpackNumber, none),
    VRX_WORD("num2", "NUM2", number, kServiceNum2, Services, Num2, none),
    VRX_WORD("flag", "FLAG", byte, kServiceFlag, Services, Flag, none),
    VRX_WORD("num3", "NUM3", number, kServiceNum3, Services, Num3, none),
    VRX_WORD("num4", "NUM4", number, kServiceNum4, Services, Num4, none),
};

const GlobalField kVariableFields[] = {
    VRX_TEXT("service", "SERVICE", kVariableService, Variable, Service, service),
    VRX_TEXT("variable", "VARIABLE", kVariableVariable, Variable, Variable, name),
    VRX_TEXT("value", "VALUE", kVariableValue, Variable, Value, none),
    VRX_TEXT("comment", "COMMENT", kVariableComment, Variable, Comment, none),
};

#undef VRX_WORD
#undef VRX_TEXT
#undef VRX_PLACE

template <std::size_t N>
std::vector<Field> fieldsOf(const GlobalField (&table)[N]) {
  std::vector<Field> fields;
  for (const GlobalField& row : table)
    fields.push_back(row.field);
  return fields;
}

template <std::size_t N>
std::vector<GlobalSlot> slotsOf(const GlobalField (&table)[N]) {
  std::vector<GlobalSlot> slots;
  for (const GlobalField& row : table)
    slots.push_back(row.slot);
  return slots;
}

const GlobalLayout& instanceLayout() {
  static const GlobalLayout layout = {kGlobalRegInstance, kInstanceKey, kInstanceKnown,
                                      slotsOf(kInstanceFields)};
  return layout;
}

const GlobalLayout& serviceLayout() {
  static const GlobalLayout layout = {kGlobalRegService, kServiceKey, kServiceKnown,
                                      slotsOf(kServiceFields)};
  return layout;
}

const GlobalLayout& variableLayout() {
  static const GlobalLayout layout = {kGlobalRegVariable, kVariableKey, kVariableKnown,
                                      slotsOf(kVariableFields)};
  return layout;
}

template <const GlobalLayout& (*layout)()>
std::unique_ptr<Store> open(const Noun& noun, const Arguments& arguments, const std::string& path,
                            SideEffects effects) {
  return openGlobalStore(noun, layout(), arguments, path, effects);
}

}  // namespace

std::vector<Noun> globalNouns() {
  constexpr unsigned kAccepts = kAcceptsRegistry;
  return {
      {"instance", "the host's instances", "SERVICE/VERSION/NAME",
       "service,version,instance,start_at_boot,maintenance,usage,path", KeyPart::name,
       fieldsOf(kInstanceFields), &open<instanceLayout>, kAccepts},
      {"service", "the installed copies", "SERVICE/VERSION", "service,version,fixpack,text1",
       KeyPart::service, fieldsOf(kServiceFields), &open<serviceLayout>, kAccepts},
      {"variable", "the variables kept for installed copies", "SERVICE/VARIABLE",
       "service,variable,value,comment", KeyPart::name, fieldsOf(kVariableFields),
       &open<variableLayout>, kAccepts},
  };
}

}  // namespace cli
