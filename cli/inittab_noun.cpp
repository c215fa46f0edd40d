// SPDX-License-Identifier: Apache-2.0
// The noun `inittab`: the entries of the host's init table.
#include "cli/face_store.h"
#include "cli/file_nouns.h"
#include "vrx/init_table.h"

namespace cli {

namespace {

std::vector<Field> inittabFields() {
  return {
      {"id", "ID", Kind::text, kMaxLineText, KeyPart::name, Presence::required},
      {"runlevels", "RUNLEVELS", Kind::text, kMaxLineText, KeyPart::none, Presence::optional},
      {"action", "ACTION", Kind::text, kMaxLineText, KeyPart::none, Presence::required},
      {"command", "COMMAND", Kind::text, kMaxLineText, KeyPart::none, Presence::optional},
      {"comment", "COMMENT", Kind::text, kMaxLineText, KeyPart::none, Presence::optional},
  };
}

std::unique_ptr<Store> openInittab(const Noun& noun, const Arguments& arguments,
                                   const std::string& path, SideEffects) {
  return openFile<LineStore, vrx::InitTable>(
      noun, arguments, chosenFile(noun, arguments, vrx::InitTable::kHostTable, path));
}

}  // namespace

Noun inittabNoun() {
  Noun noun = {"inittab",     "the host's init table, /etc/inittab or -f",
               "ID",          "id,runlevels,action,command,comment",
               KeyPart::name, inittabFields(),
               &openInittab,  kAcceptsFile | kAcceptsAllLines};
  noun.missingFile = MissingFile::refused;
  noun.difference = Difference::file;
  noun.afterwards = "run `telinit q` to make init read it";
  noun.slashInName = true;
  return noun;
}

}  // namespace cli
