// SPDX-License-Identifier: Apache-2.0
// The global registry: the host's installed copies (services), their instances and their variables.
//
//     vrx::GlobalRegistry registry;
//     const vrx::Version version = vrx::Version::of(3, 1, 0, 7);
//     vrx::Status status = registry.instances().set({"VRX", version, "tp1", "/home/tp1/sqllib"});
//     status = registry.instances().update(
//         {"VRX", version, "tp1"}, [](vrx::Instance& tp1) { tp1.maintenance = true; });
//     for (const auto& each : registry.instances().all().value_or({}))
//       std::puts(each.name.c_str());
//
// docs/packed-record-format.md tells the bytes of the file. Texts hold at most 63 bytes (service,
// name, usage, auxName), 255 (comment of an instance, text3, name and value of a variable), 1023
// (paths, text1, text2) and 1999 (comment of a variable); a longer one is refused. A text is never
// present and empty: leave it absent (0x90000229 to 0x9000024A).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "vrx/detail/global_format.h"
#include "vrx/records.h"
#include "vrx/version.h"

namespace vrx {

// An instance of an installed copy. The key is service, version and name.
struct Instance {
  using Image = GlobalImage;

  std::string service;  // the installed copy that owns the instance
  Version version;
  std::string name;
  std::optional<std::string> path = {};
  std::optional<std::string> usage = {};
  std::optional<bool> startAtBoot = {};
  std::optional<bool> maintenance = {};
  std::optional<std::string> auxPath = {};
  std::optional<std::string> auxName = {};
  std::optional<std::string> comment = {};

  // Calls visit("service", field) for each field in turn.
  template <class Self, class Visit>
  static void visitFields(Self& self, Visit&& visit) {
    visit("service", self.service);
    visit("version", self.version);
    visit("instance", self.name);
    visit("path", self.path);
    visit("usage", self.usage);
    visit("start_at_boot", self.startAtBoot);
    visit("maintenance", self.maintenance);
    visit("aux_path", self.auxPath);
    visit("aux_name", self.auxName);
    visit("comment", self.comment);
  }
};

// An installed copy. The key is service and version. Apart from the fix-pack number the library
// gives the fields behind the key no meaning.
struct Service {
  using Image = GlobalImage;

  std::string service;
  Version version;
  std::optional<std::string> text1 = {};
  std::optional<std::string> text2 = {};
  std::optional<std::string> text3 = {};
  std::optional<std::uint32_t> fixpack = {};
  std::optional<std::uint32_t> num2 = {};
  std::optional<std::uint8_t> flag = {};
  std::optional<std::uint32_t> num3 = {};
  std::optional<std::uint32_t> num4 = {};

  // As Instance's.
  template <class Self, class Visit>
  static void visitFields(Self& self, Visit&& visit) {
    visit("service", self.service);
    visit("version", self.version);
    visit("text1", self.text1);
    visit("text2", self.text2);
    visit("text3", self.text3);
    visit("fixpack", self.fixpack);
    visit("num2", self.num2);
    visit("flag", self.flag);
    visit("num3", self.num3);
    visit("num4", self.num4);
  }
};

// A variable kept for an installed copy. The key is service and name.
struct Variable {
  using Image = GlobalImage;

  std::string service;
  std::string name;
  std::optional<std::string> value = {};
  std::optional<std::string> comment = {};

  // As Instance's.
  template <class Self, class Visit>
  static void visitFields(Self& self, Visit&& visit) {
    visit("service", self.service);
    visit("variable", self.name);
    visit("value", self.value);
    visit("comment", self.comment);
  }
};

struct InstanceKey {
  std::string service;
  Version version;
  std::string name;
};

struct ServiceKey {
  std::string service;
  Version version;
};

struct VariableKey {
  std::string service;
  std::string name;
};

inline bool operator==(const InstanceKey& a, const InstanceKey& b) {
  return a.service == b.service && a.version == b.version && a.name == b.name;
}
inline bool operator==(const ServiceKey& a, const ServiceKey& b) {
  return a.service == b.service && a.version == b.version;
}
inline bool operator==(const VariableKey& a, const VariableKey& b) {
  return a.service == b.service && a.name == b.name;
}

inline bool operator==(const Instance& a, const Instance& b) {
  return a.service == b.service && a.version == b.version && a.name == b.name && a.path == b.path &&
         a.usage == b.usage && a.startAtBoot == b.startAtBoot && a.maintenance == b.maintenance &&
         a.auxPath == b.auxPath && a.auxName == b.auxName && a.comment == b.comment;
}
inline bool operator==(const Service& a, const Service& b) {
  return a.service == b.service && a.version == b.version && a.text1 == b.text1 &&
         a.text2 == b.text2 && a.text3 == b.text3 && a.fixpack == b.fixpack && a.num2 == b.num2 &&
         a.flag == b.flag && a.num3 == b.num3 && a.num4 == b.num4;
}
inline bool operator==(const Variable& a, const Variable& b) {
  return a.service == b.service && a.name == b.name && a.value == b.value && a.comment == b.comment;
}

namespace detail {

struct InstanceKind {
  using Record = Instance;
  using Key = InstanceKey;
  static constexpr GlobalRegRecordType kType = kGlobalRegInstance;
  static constexpr unsigned long long kKeyMask = kInstanceKey;
  static constexpr unsigned long long kAllMask = kInstanceKnown;
  static constexpr const auto& kPlaces = kInstancePlaces;
  static Key keyOf(const Record& record) { return {record.service, record.version, record.name}; }
};

struct ServiceKind {
  using Record = Service;
  using Key = ServiceKey;
  static constexpr GlobalRegRecordType kType = kGlobalRegService;
  static constexpr unsigned long long kKeyMask = kServiceKey;
  static constexpr unsigned long long kAllMask = kServiceKnown;
  static constexpr const auto& kPlaces = kServicePlaces;
  static Key keyOf(const Record& record) { return {record.service, record.version}; }
};

struct VariableKind {
  using Record = Variable;
  using Key = VariableKey;
  static constexpr GlobalRegRecordType kType = kGlobalRegVariable;
  static constexpr unsigned long long kKeyMask = kVariableKey;
  static constexpr unsigned long long kAllMask = kVariableKnown;
  static constexpr const auto& kPlaces = kVariablePlaces;
  static Key keyOf(const Record& record) { return {record.service, record.name}; }
};

}  // namespace detail

// The three kinds of record of one file, each with the verbs of Records (vrx/records.h).
using Instances = Records<detail::BinaryStore<detail::GlobalFormat<detail::InstanceKind>>>;
using Services = Records<detail::BinaryStore<detail::GlobalFormat<detail::ServiceKind>>>;
using Variables = Records<detail::BinaryStore<detail::GlobalFormat<detail::VariableKind>>>;

// Which files the environment may choose: the instance's own registry among them, or the host's
// alone.
enum class Scope { own, hostWide };

// One registry file. Views outlive it. Changes are written to the host's change log and signalled
// to its fault monitor, as the library does; with the command line in native().CallerArgs the log
// names the program, and native().unsetFeature(kGenRegChangeLog) leaves it out.
class GlobalRegistry {
 public:
  // The registry that the environment chooses (globalreg/global_reg.h): VRX_GLOBAL_REG_PATHNAME,
  // else the instance's own, else /var/vrx/global.reg. Nothing is opened or made yet; status() is
  // 0x900001BA when the choice is no usable path.
  explicit GlobalRegistry(Scope scope = Scope::own) : opened_(openChosen(scope)) {}
  // Copies are views of the same; moving copies.
  GlobalRegistry(const GlobalRegistry&) = default;
  GlobalRegistry& operator=(const GlobalRegistry&) = default;

  // The registry at `path`, whatever the environment says.
  static GlobalRegistry at(const std::string& path) {
    return GlobalRegistry(std::make_shared<Opened>(path, path));
  }

  Instances instances() const { return Instances(Instances::StoreType(opened_)); }
  Services services() const { return Services(Services::StoreType(opened_)); }
  Variables variables() const { return Variables(Variables::StoreType(opened_)); }

  // The file, as it was chosen; empty when nothing usable was.
  const std::string& path() const { return opened_->path; }
  // Whether the path can be used at all; every verb returns the same failure.
  Status status() const { return Status(opened_->status, path()); }
  // The exported object underneath. The views share it.
  GlobalReg& native() const { return opened_->native; }

 private:
  using Opened = detail::Opened<detail::ExactGlobalReg>;

  explicit GlobalRegistry(std::shared_ptr<Opened> opened) : opened_(std::move(opened)) {}

  static std::shared_ptr<Opened> openChosen(Scope scope) {
    auto opened = std::make_shared<Opened>("", scope == Scope::hostWide);
    opened->path = opened->native.registryPath;
    return opened;
  }

  std::shared_ptr<Opened> opened_;
};

}  // namespace vrx
