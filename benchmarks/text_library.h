// SPDX-License-Identifier: Apache-2.0
// The library's text formats as contenders: each call is one operation with everything that belongs
// to it. Lines are those of text_lines.h.
#pragma once

#include <string>

namespace vrxbench {

namespace profile {
void get(const std::string& path, const std::string& name, bool present);
void list(const std::string& path, unsigned long lines);
void set(const std::string& path, std::string name, std::string value);
}  // namespace profile

namespace services {
void get(std::string path, std::string name);
void change(std::string path, std::string name, unsigned port);
}  // namespace services

}  // namespace vrxbench
