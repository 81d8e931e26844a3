// SPDX-License-Identifier: MIT
// The root in which the library is to look: this process's, a directory, or another process's. All
// throw std::runtime_error.
#pragma once

#include <string>

namespace tool {

// Checks for a readable /proc, without which the library sees no mounts; name is the root's.
void requireProc(const std::string &name);

// Checks that each mounted device has its node, without which the library takes it for no device
// and returns paths on it unchanged.
void requireDeviceNodes(const std::string &name);

// Makes directory the root of this process.
void enterRoot(const std::string &directory);

// Enters the mount namespace and the root of a process. In a container that numbers its processes
// anew /proc shows only those; then a child that is one of them goes on, and this process ends with
// its exit status.
void enterTask(int process);

}  // namespace tool
