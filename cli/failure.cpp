// SPDX-License-Identifier: Apache-2.0
// The one table from status codes to exit statuses, and the failures made with it.
#include "cli/failure.h"

#include <fmt/format.h>

#include "platform/osse/status.h"
#include "vrx/status.h"

namespace cli {

namespace {

namespace code = genreg::status;

struct ExitRange {
  GenRegStatus first;
  GenRegStatus last;
  Exit exit;
};

// In ascending order; what is not listed is a failed system call or a device (io).
constexpr ExitRange kExits[] = {
    {code::ok, code::ok, Exit::done},
    {code::buffer_too_small, code::buffer_too_small, Exit::damaged},
    {code::invalid_argument, code::invalid_argument, Exit::bug},
    {code::lock_held, code::lock_held, Exit::busy},
    {oss::status::no_file_name, oss::status::no_file_name, Exit::noRegistry},
    {oss::status::memory_damaged, oss::status::memory_damaged, Exit::bug},
    {oss::status::not_a_boolean, oss::status::not_a_boolean, Exit::refused},
    {oss::status::unknown_user, oss::status::no_home_directory, Exit::noRegistry},
    {oss::status::level_file_missing, oss::status::level_file_missing, Exit::noRegistry},
    {oss::status::level_file_malformed, oss::status::level_file_malformed, Exit::damaged},
    {code::frame_past_end, code::packed_malformed, Exit::damaged},
    {code::no_base_name, code::no_directory_name, Exit::noRegistry},
    {code::paths_not_set, code::paths_not_set, Exit::noRegistry},
    {code::lock_already_held, code::lock_already_held, Exit::bug},
    {code::lock_not_taken, code::lock_not_taken, Exit::busy},
    {code::locked_elsewhere, code::locked_elsewhere, Exit::busy},
    {code::read_failed, code::read_failed, Exit::damaged},
    {code::record_too_small, code::record_too_large, Exit::refused},
    {code::scratch_not_released, code::first_buffer_not_released, Exit::bug},
    {code::duplicate_record, code::duplicate_record, Exit::conflict},
    {code::bad_argument, code::null_argument, Exit::bug},
    {code::path_too_long, code::empty_record, Exit::refused},
    {code::no_match, code::no_match, Exit::no},
    {code::unchanged, code::unchanged, Exit::done},
    {code::several_match, code::several_match, Exit::conflict},
    {code::verify_failed, code::verify_failed, Exit::notVerified},
    {code::invalid_record, code::invalid_record, Exit::refused},
    {code::verify_wrong_record, code::verify_no_change, Exit::notVerified},
    {code::record_not_formatted, code::record_not_formatted, Exit::refused},
    {code::feature_out_of_range, code::feature_not_set, Exit::bug},
    {code::inittab_no_runlevel, code::line_not_parsed, Exit::refused},
    {code::no_validate_slot, code::no_pack_slot, Exit::bug},
    {code::bad_record_type, code::variable_comment_absent, Exit::refused},
    {code::packed_length_differs, code::packed_length_differs, Exit::bug},
    {code::unpack_failed, code::unpack_failed, Exit::damaged},
    {code::pathname_buffer_too_small, code::scan_is_open, Exit::bug},
    {code::version_null, code::version_buffer_too_small, Exit::bug},
    {code::version_malformed, code::version_malformed, Exit::refused},
    {code::service_info_null, code::list_handle_null, Exit::bug},
    {code::service_list_failed, code::instance_list_failed, Exit::damaged},
    {code::service_not_found, code::instance_not_found, Exit::no},
    {code::version_code_zero, code::instance_name_missing, Exit::refused},
    {code::registry_not_locked, code::registry_not_locked, Exit::busy},
    {code::line_too_long, code::line_too_long, Exit::refused},
    {code::verify_unselected_change, code::verify_several_changed, Exit::notVerified},
    {code::slots_incomplete, code::slots_incomplete, Exit::bug},
    {code::verify_unselected_delete, code::verify_unselected_delete, Exit::notVerified},
    {code::list_filter_null, code::list_filter_null, Exit::bug},
    {code::no_notify_slot, code::no_notify_slot, Exit::bug},
    {code::service_num2_absent, code::service_num4_absent, Exit::refused},
    {code::directory_not_created, code::no_registry, Exit::noRegistry},
    {code::checksum_mismatch, code::checksum_mismatch, Exit::damaged},
};

}  // namespace

Exit exitOf(GenRegStatus status) {
  for (const ExitRange& range : kExits) {
    if (status >= range.first && status <= range.last) return range.exit;
  }
  return Exit::io;
}

std::string meaningOf(GenRegStatus status) {
  return vrx::Status(status).meaning();
}

std::string codeText(GenRegStatus status) {
  return fmt::format("0x{:08X}", status);
}

Failure failureOf(GenRegStatus status, const std::string& subject, const std::string& path) {
  const char* remark = vrx::Status(status).updateStands() ? "; the update stands" : "";
  Failure failure(exitOf(status), fmt::format("{}: {}{}", subject, meaningOf(status), remark));
  failure.code = status;
  failure.path = path;
  return failure;
}

Failure pathFailure(Exit exit, const std::string& path, const std::string& why) {
  Failure failure(exit, fmt::format("{}: {}", path, why));
  failure.path = path;
  return failure;
}

Failure usageFailure(const std::string& message) {
  return {Exit::usage, message};
}

}  // namespace cli
