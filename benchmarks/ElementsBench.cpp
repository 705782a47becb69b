#include <benchmark/benchmark.h>

#include <cstdio>

#include "LoadedClip.h"
#include "elements/BuiltinElements.h"

// elements-bench CLIP [--benchmark_...]
int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: elements-bench CLIP [--benchmark_...]\n");
    return 2;
  }
  qel::RegisterBuiltinElements();
  Moravel::Bench::SetTheClip(argv[1]);
  argv[1] = argv[0];
  --argc;
  ++argv;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 2;
  benchmark::RunSpecifiedBenchmarks();
}
