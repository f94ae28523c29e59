// float32 <-> float16 over one vocoder output's worth of values (513 bins x 1024 frames), with
// the CPU's F16C instructions and with the portable loop.

#include <benchmark/benchmark.h>

#include <vector>

#include "engine/vector_math.h"

namespace {

using namespace murmela::half_float;

constexpr size_t count = 513 * 1024;

std::vector<float> floats() {
    std::vector<float> values(count);
    for (size_t i = 0; i < count; ++i) {
        values[i] = static_cast<float>(i % 4096) * 0.37f - 700.0f;
    }
    return values;
}

template <void (*convert)(const float*, uint16_t*, size_t)>
void toHalf(benchmark::State& state) {
    if (convert == floatToHalfF16c && !hasF16c()) {
        state.SkipWithError("no F16C on this CPU");
        return;
    }
    std::vector<float> from = floats();
    std::vector<uint16_t> to(count);
    for (auto _ : state) {
        convert(from.data(), to.data(), count);
        benchmark::DoNotOptimize(to.data());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * count));
}
BENCHMARK(toHalf<floatToHalfF16c>)->Name("floatToHalf/f16c")->Unit(benchmark::kMicrosecond);
BENCHMARK(toHalf<floatToHalfPortable>)->Name("floatToHalf/portable")->Unit(benchmark::kMicrosecond);

template <void (*convert)(const uint16_t*, float*, size_t)>
void toFloat(benchmark::State& state) {
    if (convert == halfToFloatF16c && !hasF16c()) {
        state.SkipWithError("no F16C on this CPU");
        return;
    }
    std::vector<float> values = floats();
    std::vector<uint16_t> from(count);
    floatToHalfPortable(values.data(), from.data(), count);
    for (auto _ : state) {
        convert(from.data(), values.data(), count);
        benchmark::DoNotOptimize(values.data());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * count));
}
BENCHMARK(toFloat<halfToFloatF16c>)->Name("halfToFloat/f16c")->Unit(benchmark::kMicrosecond);
BENCHMARK(toFloat<halfToFloatPortable>)
    ->Name("halfToFloat/portable")
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
