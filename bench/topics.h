#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <utility>

namespace tervano::bench {

// A benchmark's name is "TOPIC/CASE/ROLE". The roles of one case do the same work in the same run:
// "tervano" is ours, "peer NAME" an existing program or library, "floor NAME" the least that any
// program would have to do. Only their ratios mean anything.
template <typename Body>
benchmark::internal::Benchmark* add(const std::string& name, Body&& body) {
  return benchmark::RegisterBenchmark(name.c_str(), std::forward<Body>(body));
}

void addArchiveBenchmarks();
void addMenuBenchmarks();
void addModuleBenchmarks();
void addMoveBenchmarks();
void addPreferencesBenchmarks();
void addSignalBenchmarks();
void addTypeBenchmarks();

}  // namespace tervano::bench
