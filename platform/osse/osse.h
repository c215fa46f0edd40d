// SPDX-License-Identifier: Apache-2.0
// All public headers of libvrxosse: files with locks, paths, memory, diagnostics.
#pragma once

#include "platform/osse/clock.h"
#include "platform/osse/errors.h"
#include "platform/osse/file_handle.h"
#include "platform/osse/files.h"
#include "platform/osse/log.h"
#include "platform/osse/memory.h"
#include "platform/osse/names.h"
#include "platform/osse/paths.h"
#include "platform/osse/status.h"
#include "platform/osse/strings.h"
#include "platform/osse/trace.h"
