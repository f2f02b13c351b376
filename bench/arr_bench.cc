// Arr against std::map<std::string, void *>: a million distinct station keys, set in shuffled
// order, each then looked up, and the container destroyed, all inside the timed loop. A second
// pair does lookups alone on a built container, and a third compares the sorted key list.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench/ratio_reporter.h"
#include "corvel/arr.h"
#include "corvel/tbl.h"

namespace {

constexpr int kKeys = 1000000;

const std::vector<std::string> &Keys() {
  static const std::vector<std::string> *keys = [] {
    auto *k = new std::vector<std::string>;
    char text[32];
    for (int i = 0; i < kKeys; i++) {
      snprintf(text, sizeof text, "station%07d", i);
      k->emplace_back(text);
    }
    std::shuffle(k->begin(), k->end(), std::mt19937(42));
    return k;
  }();
  return *keys;
}

void *Value(size_t i) { return reinterpret_cast<void *>(static_cast<uintptr_t>(i + 1)); }

uintptr_t ArrCycle(const std::vector<std::string> &keys) {
  Arr *arr = newarr(nullptr);
  for (size_t i = 0; i < keys.size(); i++) setarr(arr, keys[i].c_str(), Value(i));
  uintptr_t sum = 0;
  for (const auto &k : keys) sum += reinterpret_cast<uintptr_t>(getarr(arr, k.c_str()));
  freearr(arr, nullptr);
  return sum;
}

uintptr_t MapCycle(const std::vector<std::string> &keys) {
  std::map<std::string, void *> map;
  for (size_t i = 0; i < keys.size(); i++) map.emplace(keys[i], Value(i));
  uintptr_t sum = 0;
  for (const auto &k : keys) sum += reinterpret_cast<uintptr_t>(map.find(k)->second);
  return sum;
}

// Where a million nodes land depends on the order in which the previous million were freed, and
// that sways lookups by tens of percent. Each side therefore runs one untimed cycle first, so
// that its timed cycles all start from the heap its own previous cycle left, as they would in a
// program that keeps rebuilding the container.
void BM_ArrSetGet(benchmark::State &state) {
  const auto &keys = Keys();
  benchmark::DoNotOptimize(ArrCycle(keys));
  for (auto _ : state) benchmark::DoNotOptimize(ArrCycle(keys));
  state.SetItemsProcessed(state.iterations() * kKeys);
}
BENCHMARK(BM_ArrSetGet)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_MapInsertFind(benchmark::State &state) {
  const auto &keys = Keys();
  benchmark::DoNotOptimize(MapCycle(keys));
  for (auto _ : state) benchmark::DoNotOptimize(MapCycle(keys));
  state.SetItemsProcessed(state.iterations() * kKeys);
}
BENCHMARK(BM_MapInsertFind)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_ArrGet(benchmark::State &state) {
  const auto &keys = Keys();
  Arr *arr = newarr(nullptr);
  for (size_t i = 0; i < keys.size(); i++) setarr(arr, keys[i].c_str(), Value(i));
  for (auto _ : state) {
    uintptr_t sum = 0;
    for (const auto &k : keys) sum += reinterpret_cast<uintptr_t>(getarr(arr, k.c_str()));
    benchmark::DoNotOptimize(sum);
  }
  freearr(arr, nullptr);
  state.SetItemsProcessed(state.iterations() * kKeys);
}
BENCHMARK(BM_ArrGet)->Unit(benchmark::kMillisecond);

void BM_MapFind(benchmark::State &state) {
  const auto &keys = Keys();
  std::map<std::string, void *> map;
  for (size_t i = 0; i < keys.size(); i++) map.emplace(keys[i], Value(i));
  for (auto _ : state) {
    uintptr_t sum = 0;
    for (const auto &k : keys) sum += reinterpret_cast<uintptr_t>(map.find(k)->second);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kKeys);
}
BENCHMARK(BM_MapFind)->Unit(benchmark::kMillisecond);

void BM_ArrKeys(benchmark::State &state) {
  const auto &keys = Keys();
  Arr *arr = newarr(nullptr);
  for (size_t i = 0; i < keys.size(); i++) setarr(arr, keys[i].c_str(), Value(i));
  for (auto _ : state) {
    Tbl *list = keysarr(arr);
    benchmark::DoNotOptimize(list->base);
    freetbl(list, nullptr);
  }
  freearr(arr, nullptr);
  state.SetItemsProcessed(state.iterations() * kKeys);
}
BENCHMARK(BM_ArrKeys)->Unit(benchmark::kMillisecond);

void BM_MapKeys(benchmark::State &state) {
  const auto &keys = Keys();
  std::map<std::string, void *> map;
  for (size_t i = 0; i < keys.size(); i++) map.emplace(keys[i], Value(i));
  for (auto _ : state) {
    std::vector<const char *> list;
    for (const auto &entry : map) list.push_back(entry.first.c_str());
    benchmark::DoNotOptimize(list.data());
  }
  state.SetItemsProcessed(state.iterations() * kKeys);
}
BENCHMARK(BM_MapKeys)->Unit(benchmark::kMillisecond);

// Builds the keys and keeps freed memory in the process, so that no benchmark pays for the
// first touch of pages that others get back from the allocator.
void Prepare() {
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  Keys();
}

}  // namespace

int main(int argc, char **argv) {
  Prepare();
  return corvel_bench::RunWithRatios(
      argc, argv,
      {{"setarr+getarr+freearr / map emplace+find+destroy", "BM_ArrSetGet", "BM_MapInsertFind"},
       {"getarr / map::find", "BM_ArrGet", "BM_MapFind"},
       {"keysarr / map walk into vector", "BM_ArrKeys", "BM_MapKeys"}});
}
