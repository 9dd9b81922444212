// SPDX-License-Identifier: MIT
// The benchmark groups of quor_bench, registered by main in the order of
// the table that bench/run prints. Each case registers our figure next to
// its floor, under names that bench/format_table.py pairs up:
//   <group>:<case>:ours   and   <group>:<case>:floor-<what>
#ifndef QUOR_BENCH_CASES_H
#define QUOR_BENCH_CASES_H

namespace quor_bench {

void RegisterRequestBenchmarks();
void RegisterBulkBenchmarks();
// Closes the connections that the bulk cases keep; before wxWidgets goes.
void ReleaseBulkBenchmarks();
void RegisterModelBenchmarks();

}  // namespace quor_bench

#endif  // QUOR_BENCH_CASES_H
