// File services of the platform: opening files, whole-file writes into proc and
// sys files, and a path map through which a simulation or a test serves a
// kernel directory (such as "/proc/asic-time") from a directory it owns. Callers
// keep using and tracing the kernel paths; only the operating system sees the
// mapped ones.
#pragma once

#include <string>
#include <string_view>

namespace Platform {

// open(2) of `path` after the path map: the descriptor, or -1 with errno set.
int fileOpen(const std::string& path, int flags);

// Writes `text` as the whole content of an existing proc or sys file (the file
// is not created). True when all of it was written and the file closed cleanly.
bool fileWrite(const std::string& path, std::string_view text);

// Serves `prefix` and every path below it from `directory`; an empty
// `directory` removes the mapping of `prefix`.
void pathMapIs(const std::string& prefix, const std::string& directory);

// `path` as the operating system sees it.
std::string osPath(const std::string& path);

}  // namespace Platform
