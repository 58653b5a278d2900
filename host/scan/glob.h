// Purpose: matching paths with "*", "?" and "**".
// Thread: any.
// Failure: none.
#pragma once

#include <string_view>

namespace host {

// "*" stands for any characters but '/', "**" for any, "?" for one character but '/'. Both sides
// are compared byte by byte; fold them first (file_names.h). Takes at most time in proportion to
// the product of both lengths.
bool matchesGlob(std::string_view pattern, std::string_view path);

}  // namespace host
