// SPDX-License-Identifier: MIT
// Real network interfaces for the tests: a child process with a network, mounts and IPC all of its own.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>

namespace devsupport::test {

/// True when the machine lets us make private networks and has `ip`; where not, say so and skip.
bool CanMakePrivateNetworks();

/// Runs a function in a child whose only interface is a loopback that is down, and whose mounts and System V objects
/// nobody else sees.
/// All that the function makes there goes with the child. Returns the child's exit status: 0 when the function came
/// to its end and no expectation failed.
int RunInPrivateNetwork(const std::function<void()> &body);

/// Runs commands of `ip`, all in one go; throws when one fails.
void Ip(std::initializer_list<std::string> commands);

/// Adds an Ethernet interface that is up and has the addresses given ("10.1.2.3/24", "fe80::1/64"), no others, not
/// even a link-local one of the kernel's making. An index of 0 leaves the choice to the kernel.
void AddInterface(const std::string &name, std::initializer_list<std::string> addresses, int index = 0);

/// Puts an empty file system over a folder.
void HideFolder(const std::string &path);

/// Writes a file, and makes the folders that lead to it.
void WriteFile(const std::string &path, const std::string &text);

/// Number of descriptors that this process has open.
int CountDescriptors();

}  // namespace devsupport::test
