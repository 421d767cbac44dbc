#!/usr/bin/env bash
# Builds the benchmarks in the release preset's tree and runs each benchmark once with a tiny
# minimum time: a check that they build and run, not a measurement.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset release
cmake --build --preset release --target kalvos_bench kalvos_bench_hostile
ctest --preset release -L bench
