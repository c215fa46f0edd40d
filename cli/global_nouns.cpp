// SPDX-License-Identifier: Apache-2.0
// The nouns of the global registry: their fields, the choice of the file, and what a registry that
// another program has written may hold beyond what the face's values tell.
#include "cli/global_nouns.h"

#include "cli/arguments.h"
#include "cli/face_store.h"
#include "cli/location.h"
#include "vrx/global_registry.h"

namespace cli {

namespace {

enum InstanceField : std::size_t { kStartAtBoot = 5, kMaintenance = 6 };

#define VRX_WIDTH(body, member) (sizeof(GlobalRegRecord::body.member) - 1)

std::vector<Field> instanceFields() {
  return {
      {"service", "SERVICE", Kind::text, VRX_WIDTH(Instance, Service), KeyPart::service},
      {"version", "VERSION", Kind::version, 0, KeyPart::version},
      {"instance", "INSTANCE", Kind::text, VRX_WIDTH(Instance, InstanceName), KeyPart::name},
      {"path", "PATH", Kind::text, VRX_WIDTH(Instance, InstancePath), KeyPart::none},
      {"usage", "USAGE", Kind::text, VRX_WIDTH(Instance, Usage), KeyPart::none},
      {"start_at_boot", "BOOT", Kind::boolean},
      {"maintenance", "MAINT", Kind::boolean},
      {"aux_path", "AUX_PATH", Kind::text, VRX_WIDTH(Instance, AuxPath), KeyPart::none},
      {"aux_name", "AUX_NAME", Kind::text, VRX_WIDTH(Instance, AuxName), KeyPart::none},
      {"comment", "COMMENT", Kind::text, VRX_WIDTH(Instance, Comment), KeyPart::none},
  };
}

std::vector<Field> serviceFields() {
  return {
      {"service", "SERVICE", Kind::text, VRX_WIDTH(Services, Service), KeyPart::service},
      {"version", "VERSION", Kind::version, 0, KeyPart::version},
      {"text1", "TEXT1", Kind::text, VRX_WIDTH(Services, Text1), KeyPart::none},
      {"text2", "TEXT2", Kind::text, VRX_WIDTH(Services, Text2), KeyPart::none},
      {"text3", "TEXT3", Kind::text, VRX_WIDTH(Services, Text3), KeyPart::none},
      {"fixpack", "FIXPACK", Kind::number},
      {"num2", "NUM2", Kind::number},
      {"flag", "FLAG", Kind::byte},
      {"num3", "NUM3", Kind::number},
      {"num4", "NUM4", Kind::number},
  };
}

std::vector<Field> variableFields() {
  return {
      {"service", "SERVICE", Kind::text, VRX_WIDTH(Variable, Service), KeyPart::service},
      {"variable", "VARIABLE", Kind::text, VRX_WIDTH(Variable, Variable), KeyPart::name},
      {"value", "VALUE", Kind::text, VRX_WIDTH(Variable, Value), KeyPart::none},
      {"comment", "COMMENT", Kind::text, VRX_WIDTH(Variable, Comment), KeyPart::none},
  };
}

#undef VRX_WIDTH

// Every field is absent where its bit is clear, a part of the key too; a text may be present and
// empty.
void showPresence(const vrx::GlobalImage& image, Row* row) {
  std::uint64_t bit = 1;
  for (Value& value : row->values) {
    const bool present = (image.record.FieldMask & bit) != 0;
    if (!present) value = Value{};
    if (present && isAbsent(value)) value = std::string();
    bit <<= 1;
  }
  for (const vrx::LaterField& later : image.laterFields)
    row->unknown.push_back({later.bit, later.bytes});
}

// A stored boolean other than 0 and 1 is shown as the number that it is.
void showOddNumber(const vrx::GlobalImage& image, std::uint64_t bit, std::uint32_t number,
                   Value* value) {
  if ((image.record.FieldMask & bit) != 0 && number > 1) *value = std::uint64_t{number};
}

// The value of an odd number is as that of an absent field, which is what it may become.
void forgetOddNumber(const Value& old, const Value& next, std::optional<bool>* yes) {
  if (!std::holds_alternative<std::uint64_t>(old) || old == next) return;
  *yes = !(isAbsent(next) || std::get<bool>(next));
}

}  // namespace

void completeRow(const vrx::Stored<vrx::Instance>& instance, Row* row) {
  showPresence(instance.image, row);
  const GlobalRegInstanceBody& body = instance.image.record.Instance;
  showOddNumber(instance.image, kInstanceStartAtBoot, body.StartAtBoot, &row->values[kStartAtBoot]);
  showOddNumber(instance.image, kInstanceMaintenance, body.Maintenance, &row->values[kMaintenance]);
}

void completeRow(const vrx::Stored<vrx::Service>& service, Row* row) {
  showPresence(service.image, row);
}

void completeRow(const vrx::Stored<vrx::Variable>& variable, Row* row) {
  showPresence(variable.image, row);
}

void tellApart(const Row& old, const Row& next, const vrx::Instance&,
               vrx::Stored<vrx::Instance>* was) {
  forgetOddNumber(old.values[kStartAtBoot], next.values[kStartAtBoot], &was->startAtBoot);
  forgetOddNumber(old.values[kMaintenance], next.values[kMaintenance], &was->maintenance);
}

namespace {

vrx::GlobalRegistry openRegistry(const Arguments& arguments, const std::string& path,
                                 SideEffects effects) {
  const std::string& wanted = path.empty() ? arguments.registry.value_or("") : path;
  if (!wanted.empty()) useRegistry(wanted);
  vrx::GlobalRegistry registry(scopeOf(arguments));
  const std::string chosen = registryPathOf(registry);
  if (!wanted.empty() && chosen != wanted) {
    throw Failure(Exit::refused, wanted + ": a set-user-id program does not choose its registry");
  }
  registry.native().CallerArgCount = arguments.count;
  registry.native().CallerArgs = arguments.strings;
  if (effects == SideEffects::wanted) return registry;
  // Both are set by every global registry, so there is nothing that could fail.
  (void)registry.native().unsetFeature(kGenRegChangeLog);
  (void)registry.native().unsetFeature(kGenRegNotify);
  return registry;
}

template <class Registry, Registry (vrx::GlobalRegistry::*kind)() const>
std::unique_ptr<Store> open(const Noun& noun, const Arguments& arguments, const std::string& path,
                            SideEffects effects) {
  const vrx::GlobalRegistry registry = openRegistry(arguments, path, effects);
  return std::make_unique<FaceStore<Registry>>(noun, arguments, (registry.*kind)());
}

}  // namespace

std::vector<Noun> globalNouns() {
  constexpr unsigned kAccepts = kAcceptsRegistry;
  return {
      {"instance", "the host's instances", "SERVICE/VERSION/NAME",
       "service,version,instance,start_at_boot,maintenance,usage,path", KeyPart::name,
       instanceFields(), &open<vrx::Instances, &vrx::GlobalRegistry::instances>, kAccepts},
      {"service", "the installed copies", "SERVICE/VERSION", "service,version,fixpack,text1",
       KeyPart::service, serviceFields(), &open<vrx::Services, &vrx::GlobalRegistry::services>,
       kAccepts},
      {"variable", "the variables kept for installed copies", "SERVICE/VARIABLE",
       "service,variable,value,comment", KeyPart::name, variableFields(),
       &open<vrx::Variables, &vrx::GlobalRegistry::variables>, kAccepts},
  };
}

}  // namespace cli
