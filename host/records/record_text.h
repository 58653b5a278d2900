// Purpose: one record of a "QORX" stream as a line for people.
// Thread: any.
// Failure: none.
#pragma once

#include <string>

namespace qorx {
class Header;
class Record;
}  // namespace qorx

namespace host {

std::string recordText(const qorx::Record& record);
std::string headerText(const qorx::Header& header);

}  // namespace host
