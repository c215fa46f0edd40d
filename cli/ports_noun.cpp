// SPDX-License-Identifier: Apache-2.0
// The noun `ports`: the entries of the host's services file.
#include "cli/face_store.h"
#include "cli/file_nouns.h"
#include "vrx/ports.h"

namespace cli {

namespace {

enum PortsField : std::size_t { kPort = 1, kUnderstood = 5, kText = 6 };

std::vector<Field> portsFields() {
  return {
      {"name", "NAME", Kind::text, kMaxLineText, KeyPart::name, Presence::required},
      {"port", "PORT", Kind::port, 0, KeyPart::alternative, Presence::required},
      {"protocol", "PROTOCOL", Kind::text, kMaxLineText, KeyPart::protocol, Presence::required},
      {"aliases", "ALIASES", Kind::list, 0, KeyPart::none, Presence::optional},
      {"comment", "COMMENT", Kind::text, kMaxLineText, KeyPart::none, Presence::optional},
      {"understood", "UNDERSTOOD", Kind::boolean, 0, KeyPart::none, Presence::derived},
      {"text", "TEXT", Kind::text, 0, KeyPart::none, Presence::derived},
  };
}

}  // namespace

// An entry without a protocol has no port either. A line that is not understood is shown as it
// stands.
void completeRow(const vrx::Stored<vrx::Port>& port, Row* row) {
  if (port.protocol.empty()) row->values[kPort] = Value{};
  if (port.image.understood) return;
  row->values[kUnderstood] = false;
  row->values[kText] = port.image.shown();
}

namespace {

std::unique_ptr<Store> openPorts(const Noun& noun, const Arguments& arguments,
                                 const std::string& path, SideEffects) {
  return openFile<LineStore, vrx::Ports>(noun, arguments,
                                         chosenFile(noun, arguments, vrx::Ports::kHostFile, path));
}

}  // namespace

Noun portsNoun() {
  Noun noun = {"ports",
               "the host's services file, /etc/services or -f",
               "NAME/PROTOCOL or PORT/PROTOCOL",
               "name,port,protocol,aliases,comment",
               KeyPart::name,
               portsFields(),
               &openPorts,
               kAcceptsFile | kAcceptsAllLines};
  noun.missingFile = MissingFile::refused;
  noun.difference = Difference::file;
  noun.slashInName = true;
  return noun;
}

}  // namespace cli
