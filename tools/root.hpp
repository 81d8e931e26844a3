// SPDX-License-Identifier: MIT
// The root in which the library looks: this process's, a directory, or another process's. All
// functions throw std::runtime_error.
#pragma once

#include <string>

namespace tool {

// Requires a readable /proc, without which the library sees no mounts; name is for the message.
void requireProc(const std::string &name);

// Requires a node for each mounted device. Without it the library takes the source for no device
// and returns paths on it unchanged.
void requireDeviceNodes(const std::string &name);

// Makes directory the root of this process.
void enterRoot(const std::string &directory);

// Enters the mount namespace and the root of a process. If the process is in another PID namespace,
// its /proc shows only processes of that. Then a child in that namespace goes on, and this process
// ends with the child's exit status.
void enterTask(int process);

}  // namespace tool
