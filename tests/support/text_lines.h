// SPDX-License-Identifier: Apache-2.0
// Records of the text formats that own their strings: what a caller hands to Add, Change and Get.
#pragma once

#include <arpa/inet.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "genreg/formats/init_tab.h"
#include "genreg/formats/services.h"
#include "genreg/formats/var_val.h"

namespace vrxtest {

using Text = std::optional<std::string>;

// The pointer that a record holds for a text; null for a missing one.
inline char* pointerOf(Text& text) {
  return text ? text->data() : nullptr;
}

// A profile line for Add, Change or a key. A record without a variable is a comment.
class ProfileLine {
 public:
  explicit ProfileLine(Text variable, Text value = {}, Text comment = {})
      : variable_(std::move(variable)), value_(std::move(value)), comment_(std::move(comment)) {
    record_.contents =
        (variable_ || value_ ? kVarValHasValue : 0U) | (comment_ ? kVarValHasComment : 0U);
    record_.variable = pointerOf(variable_);
    record_.value = pointerOf(value_);
    record_.comment = pointerOf(comment_);
  }
  ProfileLine(const ProfileLine&) = delete;
  ProfileLine& operator=(const ProfileLine&) = delete;
  GenRegVarValRecord* record() { return &record_; }

 private:
  Text variable_, value_, comment_;
  GenRegVarValRecord record_{};
};

// A line of a services file, likewise.
class ServiceLine {
 public:
  explicit ServiceLine(Text name, int port = 0, Text protocol = {},
                       std::vector<std::string> aliases = {}, Text comment = {})
      : name_(std::move(name)),
        protocol_(std::move(protocol)),
        comment_(std::move(comment)),
        aliases_(std::move(aliases)) {
    const bool entry = name_ || protocol_ || port != 0;
    record_.flags = (entry ? kServicesHasEntry : 0U) | (comment_ ? kServicesHasComment : 0U);
    record_.name = pointerOf(name_);
    record_.protocol = pointerOf(protocol_);
    record_.comment = pointerOf(comment_);
    record_.port = htons(static_cast<unsigned short>(port));
    for (std::string& alias : aliases_)
      table_.push_back(alias.data());
    table_.push_back(nullptr);
    record_.aliases = aliases_.empty() ? nullptr : table_.data();
  }
  ServiceLine(const ServiceLine&) = delete;
  ServiceLine& operator=(const ServiceLine&) = delete;
  GenRegServicesRecord* record() { return &record_; }

 private:
  Text name_, protocol_, comment_;
  std::vector<std::string> aliases_;
  std::vector<char*> table_;
  GenRegServicesRecord record_{};
};

// A line of an init table, likewise.
class InitLine {
 public:
  explicit InitLine(Text id, Text runlevel = {}, Text action = {}, Text command = {},
                    Text comment = {})
      : id_(std::move(id)),
        runlevel_(std::move(runlevel)),
        action_(std::move(action)),
        command_(std::move(command)),
        comment_(std::move(comment)) {
    const bool entry = id_ || runlevel_ || action_ || command_;
    record_.flags = (entry ? kInitTabHasEntry : 0U) | (comment_ ? kInitTabHasComment : 0U);
    record_.id = pointerOf(id_);
    record_.runlevel = pointerOf(runlevel_);
    record_.action = pointerOf(action_);
    record_.command = pointerOf(command_);
    record_.comment = pointerOf(comment_);
  }
  InitLine(const InitLine&) = delete;
  InitLine& operator=(const InitLine&) = delete;
  GenRegInitTabRecord* record() { return &record_; }

 private:
  Text id_, runlevel_, action_, command_, comment_;
  GenRegInitTabRecord record_{};
};

}  // namespace vrxtest
