// Finding a tool's logs under several roots, where two roots may be one directory (listed
// twice, or one a link to the other), and where a log may be kept plain or compressed.
// Plain functions of the file system; any thread.
#pragma once

#include "core/directory_index.h"

#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace usagekit::LogRoots {

// The roots in order, less every root that is the same directory (same device and inode) as
// an earlier one, so that no log is read twice. A root that does not exist is kept: it
// lists nothing.
std::vector<std::filesystem::path> distinct(const std::vector<std::filesystem::path>& roots);

// Scan::files over each distinct root in turn, every ending of `named` per root.
std::vector<std::string> files(const std::vector<std::filesystem::path>& roots,
                               std::initializer_list<std::string_view> named,
                               DirectoryIndex* index = nullptr);

// `files` in order, less every compressed log ("<name>.zst") whose plain twin ("<name>") is
// among them too: a tool that decompresses a log to append to it leaves both for a while,
// and the plain one holds everything the compressed one does.
std::vector<std::string> withoutCompressedTwins(std::vector<std::string> files);

}  // namespace usagekit::LogRoots
