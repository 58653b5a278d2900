// Reading and emptying directories through file descriptors; links are never followed.
#pragma once

#include <string>
#include <vector>

#include "common/unique_fd.h"

namespace device {

struct DirectoryEntry {
    std::string name;
    bool isDirectory = false;  // false for a link to one
};

// The entries of an open directory without "." and "..". Takes the descriptor; gives 0 or an errno
// value.
int readDirectory(common::UniqueFd directory, std::vector<DirectoryEntry>& entries);

// Removes an entry of `parent` with all that it holds; gives 0 or an errno value. Trees deeper than
// 256 levels are refused with ENAMETOOLONG.
int removeTree(int parent, const std::string& name);

}  // namespace device
