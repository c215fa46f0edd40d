#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# isolated.sh SOURCE_DIR BUILD_DIR COMMAND...: runs a test with a /tmp and a /var of its own, which go
# when it ends, so that the library's fixed paths (the change log, the host-wide registry, the monitor's
# lock file) are never the host's. Exit status 77 when the machine allows no private mounts.
set -euo pipefail

source_dir=$1
folder=$(mktemp -d "$2/cli-test.XXXXXX")
shift 2
trap 'rm -rf "$folder"' EXIT

status=0
"$source_dir/scripts/private_host.sh" "$folder" \
  env -u TMPDIR -u VRXINSTANCE -u VRX_GLOBAL_REG_PATHNAME -u VRX_OSS_LOG_FILE -u NO_COLOR "$@" || status=$?
exit "$status"
