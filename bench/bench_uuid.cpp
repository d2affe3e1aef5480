// Time-based UUIDs with their text form: the library's generator against libuuid's
// uuid_generate_time and uuid_unparse, which serve here only as the yardstick.

#include <benchmark/benchmark.h>
#include <uuid/uuid.h>

#include "UUID.h"

namespace {

void libraryUuid(benchmark::State& state) {
  for (auto _ : state) {
    kx_uuid_t uuid;
    char* text = nullptr;
    native_uuid_create(&uuid);
    native_uuid_to_string(&uuid, &text);
    benchmark::DoNotOptimize(text);
    native_uuid_string_free(&text);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void libuuidTimeUuid(benchmark::State& state) {
  for (auto _ : state) {
    uuid_t uuid;
    char text[37];
    uuid_generate_time(uuid);
    uuid_unparse(uuid, text);
    benchmark::DoNotOptimize(text);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

}  // namespace

BENCHMARK(libraryUuid)->Name("uuid/native_create_to_string");
BENCHMARK(libuuidTimeUuid)->Name("uuid/libuuid_generate_time_unparse");

BENCHMARK_MAIN();
