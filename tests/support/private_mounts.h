// SPDX-License-Identifier: Apache-2.0
// The host's fixed paths, private to one test: a child process whose /tmp and /var are empty file
// systems of its own, so that /tmp/globalreg.debug and /var/vrx can be created, forged and removed
// without touching the host's.
#pragma once

#include <functional>
#include <string>

namespace vrxtest {

// Runs `body` in a child process with its own mount namespace: /tmp and /var are empty and private,
// and /var/vrx is an empty folder. Failed assertions of the body fail the calling test; a body may
// not skip. The environment is the caller's, and changes to it end with the body. Folders below the
// caller's /tmp (TempDir) cannot be seen inside. The calling test is skipped where the system
// refuses namespaces: return after the call when that matters.
void inPrivateMounts(const std::function<void()>& body);

// The same without namespaces: a child process whose environment, descriptors and locks are its
// own.
void inChildProcess(const std::function<void()>& body);

// Inside inPrivateMounts: puts `contents` in the place of the file at `path`, until the body ends.
// False when the system refuses (it takes a process of root's).
bool replaceFile(const std::string& path, const std::string& contents);

}  // namespace vrxtest
