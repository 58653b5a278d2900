// Purpose: the library's benchmarks by subject. Each registers its figures for a library of so many
//          tracks, or what compares two sizes.
#pragma once

#include <cstdint>

namespace bench {

void registerImports(std::int64_t tracks);
void registerImportsOfChanges(std::int64_t tracks);
void registerExports(std::int64_t tracks);
void registerOutstandingLists(std::int64_t tracks);
void registerGathering(std::int64_t tracks);
void registerFiling(std::int64_t tracks);
void registerEdits(std::int64_t tracks);
void registerMetrics(std::int64_t tracks);
void registerRestoreMarking(std::int64_t tracks);
void registerImportGrowth(std::int64_t small, std::int64_t large);
void registerExportGrowth(std::int64_t small, std::int64_t large);
void registerEditGrowth(std::int64_t small, std::int64_t large);
void registerOutstandingGrowth(std::int64_t small, std::int64_t large);

}  // namespace bench
