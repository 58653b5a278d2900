// Purpose: what the benchmarks measure: the cost of a piece of work, and figures that set ours
//          beside a peer's and a limit.
// Calling thread: one at a time.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

struct Cost {
    double processorSeconds = 0;  // of all threads of this process
    double wallSeconds = 0;
    double peakMiB = 0;  // resident memory at its highest meanwhile

    Cost& operator+=(const Cost& other);
};

Cost costOf(const std::function<void()>& work);
// Without the memory: to find its peak the heap is emptied first, which the next few hundred
// microseconds pay for. For work that is not much longer than that.
Cost timesOf(const std::function<void()>& work);

// What a ratio is of: processor time leaves out what else the machine does, wall time holds the
// waits for the disk.
enum class Clock { Processor, Wall };

struct Figure {
    std::string what;
    std::string against;
    std::int64_t tracks = 0;  // in the library
    std::int64_t items = 0;   // that one round works on
    double limit = 0;         // of the ratio; 0: only told
    Clock clock = Clock::Processor;
    std::vector<Cost> ours{};
    std::vector<Cost> peers{};

    // Median over the rounds of ours / peer.
    double ratio() const;
    // Medians, in microseconds an item.
    double ourTime() const;
    double peerTime() const;
};

// One round: the sides take turns at being first.
void addRound(Figure& figure, const std::function<Cost()>& ours, const std::function<Cost()>& peer);
// Fills in the benchmark's counters and keeps the figure for the table.
void report(benchmark::State& state, Figure figure);
// The time an item takes in a library of `large` tracks against that in one of `small`, of figures
// reported before; and the same of the peer, in the table alone: what grows without us.
void reportGrowth(benchmark::State& state, const std::string& what, std::int64_t small,
                  std::int64_t large, double limit);
// All that was reported.
void printTable();

}  // namespace bench
