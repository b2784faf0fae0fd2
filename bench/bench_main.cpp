// Every subject registers its cases while its file is loaded.
#include <benchmark/benchmark.h>

BENCHMARK_MAIN();
