// Purpose: how much room each kind of media takes, as a chart of text: a bar for each kind, to be
// taken in at a glance at 80 columns, without colour.
// Thread: any.
// Failure: none.
#pragma once

#include <string>
#include <vector>

namespace orlith::link {
class MetricsReply;
}

namespace host {

// The lines, largest kind first; then what all of them take. One line says so when there is
// nothing.
std::vector<std::string> metricsChart(const orlith::link::MetricsReply& metrics);

}  // namespace host
