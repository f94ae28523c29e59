// The model runner on the benchmark voice (realistic work in every model): a whole chunk, the
// three model runs alone, and everything else a chunk does (packing, conversions, transposes,
// inverse STFT) alone, so the share of the code around the runtime shows. Then memory over a
// ten-minute text synthesised chunk by chunk.
//
// Times are wall-clock: the runtime uses more than one thread.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "common/voice_format.h"
#include "engine/durations.h"
#include "engine/istft.h"
#include "engine/model_session.h"
#include "engine/tensor_layout.h"
#include "engine/voice_files.h"
#include "engine/voice_model.h"

namespace {

using namespace murmela;
using namespace murmela::model_dimensions;

const VoiceFiles voice{MURMELA_BENCHMARK_VOICE_DIR};

// `count` ids of the test vocabulary (1 + 3 i): about 3.5 frames each at speed 1.
std::vector<int64_t> chunkOf(int64_t count) {
    std::vector<int64_t> ids;
    for (int64_t i = 0; i < count; ++i) {
        ids.push_back(1 + 3 * ((i * 7) % 62));
    }
    return ids;
}

std::vector<int64_t> framed(const std::vector<int64_t>& ids) {
    std::vector<int64_t> tokens = {0};
    tokens.insert(tokens.end(), ids.begin(), ids.end());
    tokens.push_back(0);
    return tokens;
}

int64_t firstFit(const std::vector<int64_t>& buckets, int64_t length) {
    for (int64_t bucket : buckets) {
        if (bucket >= length) {
            return bucket;
        }
    }
    return -1;
}

void setChunkCounters(benchmark::State& state, int64_t frames) {
    state.counters["frames"] = static_cast<double>(frames);
    state.counters["xRealTime"] = benchmark::Counter(
        static_cast<double>(frames * hop) / sampleRate * static_cast<double>(state.iterations()),
        benchmark::Counter::kIsRate);
}

void synthesizeChunk(benchmark::State& state) {
    VoiceModel model(voice);
    std::vector<int64_t> ids = chunkOf(state.range(0));
    int64_t frames = 0;
    for (auto _ : state) {
        SynthesisResult result = model.synthesizeChunk(ids, 1.0);
        frames = static_cast<int64_t>(result.samples.size()) / hop;
        benchmark::DoNotOptimize(result.samples.data());
    }
    setChunkCounters(state, frames);
}
BENCHMARK(synthesizeChunk)->Arg(120)->Unit(benchmark::kMillisecond)->UseRealTime();

Ort::MemoryInfo cpu() {
    return Ort::MemoryInfo::CreateCpu(OrtArenaAllocator, OrtMemTypeDefault);
}

template <typename T>
Ort::Value over(std::vector<T>& data, std::vector<int64_t> shape) {
    return Ort::Value::CreateTensor<T>(cpu(), data.data(), data.size(), shape.data(), shape.size());
}

// One chunk's model inputs and outputs, made once with the real code.
struct ChunkData {
    explicit ChunkData(int64_t idCount)
        : interface(voice.readInterface()),
          encoder(voice.loadModel("encoder", interface.programs)),
          decoder(voice.loadModel("decoder", interface.programs)),
          vocoder(voice.loadModel("vocoder", interface.programs)),
          tokens(framed(chunkOf(idCount))),
          length(static_cast<int64_t>(tokens.size())),
          b(firstFit(interface.encoderBuckets, length)),
          encoderIn(encoderInput(tokens, b)) {
        encoded = runEncoder();
        const Ort::Value& e = encoded.at("e");
        features = denseRows(floatOutput(e, length, encoderWidth), length, encoderWidth);
        counts = frameCounts(denseRows(floatOutput(encoded.at("logd"), length, 1), length, 1), 1.0);
        frames = totalFrames(counts);
        d = firstFit(interface.decoderBuckets, frames);
        decoderIn = decoderInput(features, counts, frames, d);
        decoded = runDecoder();
        mel = halfRows(floatOutput(decoded.at("mel"), melChannels, d), melChannels, d);
        spectra = runVocoder();
    }

    std::map<std::string, Ort::Value> runEncoder() {
        std::vector<std::pair<std::string, Ort::Value>> inputs;
        inputs.emplace_back("ids", over(encoderIn.ids, {1, b}));
        inputs.emplace_back("mask", over(encoderIn.mask, {1, b}));
        return encoder.run(std::move(inputs), runOptions);
    }
    std::map<std::string, Ort::Value> runDecoder() {
        std::vector<std::pair<std::string, Ort::Value>> inputs;
        inputs.emplace_back("x", over(decoderIn.x, {1, d, decoderWidth}));
        inputs.emplace_back("mask", over(decoderIn.mask, {1, d}));
        inputs.emplace_back("last", over(decoderIn.last, {1, d}));
        return decoder.run(std::move(inputs), runOptions);
    }
    std::map<std::string, Ort::Value> runVocoder() {
        std::vector<int64_t> shape = {1, melChannels, d};
        std::vector<std::pair<std::string, Ort::Value>> inputs;
        inputs.emplace_back(
            "mel",
            Ort::Value::CreateTensor(cpu(), mel.data(), mel.size() * sizeof(uint16_t), shape.data(),
                                     shape.size(), ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16));
        return vocoder.run(std::move(inputs), runOptions);
    }

    VoiceInterface interface;
    ModelSession encoder, decoder, vocoder;
    Ort::RunOptions runOptions;
    std::vector<int64_t> tokens;
    int64_t length, b;
    EncoderInput encoderIn;
    std::map<std::string, Ort::Value> encoded;
    std::vector<float> features;
    std::vector<int64_t> counts;
    int64_t frames = 0, d = 0;
    DecoderInput decoderIn;
    std::map<std::string, Ort::Value> decoded;
    std::vector<uint16_t> mel;
    std::map<std::string, Ort::Value> spectra;
};

// The three runtime runs of a chunk and nothing else.
void modelRunsOnly(benchmark::State& state) {
    ChunkData chunk(state.range(0));
    for (auto _ : state) {
        auto e = chunk.runEncoder();
        auto mel = chunk.runDecoder();
        auto spectra = chunk.runVocoder();
        benchmark::DoNotOptimize(spectra.size());
    }
    setChunkCounters(state, chunk.frames);
}
BENCHMARK(modelRunsOnly)->Arg(120)->Unit(benchmark::kMillisecond)->UseRealTime();

// Everything a chunk does besides the runtime's runs, on that chunk's real outputs.
void workAroundModels(benchmark::State& state) {
    ChunkData chunk(state.range(0));
    ISTFT istft(nFft, hop);
    const int64_t length = chunk.length, frames = chunk.frames, d = chunk.d;
    for (auto _ : state) {
        EncoderInput in = encoderInput(chunk.tokens, chunk.b);
        std::vector<float> features = denseRows(
            floatOutput(chunk.encoded.at("e"), length, encoderWidth), length, encoderWidth);
        std::vector<int64_t> counts = frameCounts(
            denseRows(floatOutput(chunk.encoded.at("logd"), length, 1), length, 1), 1.0);
        DecoderInput decoderIn = decoderInput(features, counts, totalFrames(counts), d);
        std::vector<uint16_t> mel =
            halfRows(floatOutput(chunk.decoded.at("mel"), melChannels, d), melChannels, d);
        std::vector<float> mag = transposedFloats(
            halfOutput(chunk.spectra.at("mag"), spectrumBins, frames), spectrumBins, frames);
        std::vector<float> phase = transposedFloats(
            halfOutput(chunk.spectra.at("phase"), spectrumBins, frames), spectrumBins, frames);
        std::vector<float> samples = istft.run(mag, phase, frames);
        benchmark::DoNotOptimize(in.ids.data());
        benchmark::DoNotOptimize(decoderIn.x.data());
        benchmark::DoNotOptimize(mel.data());
        benchmark::DoNotOptimize(samples.data());
    }
    setChunkCounters(state, frames);
}
BENCHMARK(workAroundModels)->Arg(120)->Unit(benchmark::kMillisecond)->UseRealTime();

// All threads (the runtime's too) allocate from malloc's main arena, which is the one that
// mallinfo2 reports on.
const int singleArena = mallopt(M_ARENA_MAX, 1);

// Heap in use, also the large blocks malloc maps directly.
double heapBytes() {
    struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

double statusKilobytes(const std::string& key) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(key + ":", 0) == 0) {
            return std::stod(line.substr(key.size() + 1));
        }
    }
    return 0.0;
}

// Ten minutes of audio in chunks of varied length, keeping every sample as a caller would.
// Reported: the heap in use beyond the samples kept, as it grows over the first and over the
// second half of the chunks after one chunk of each length (zero is the goal), and peak memory
// beside the samples.
void tenMinutesChunkByChunk(benchmark::State& state) {
    const std::vector<int64_t> lengths = {40, 120, 80, 200, 160};
    constexpr int64_t tenMinutesOfFrames = 600 * sampleRate / hop;
    for (auto _ : state) {
        VoiceModel model(voice);
        std::vector<std::vector<float>> kept;
        kept.reserve(1000);
        double samplesBytes = 0.0, rssAfterWarmUp = 0.0;
        std::vector<double> heapBeyondSamples;  // after each chunk
        int64_t frames = 0;
        for (size_t chunk = 0; frames < tenMinutesOfFrames; ++chunk) {
            std::vector<int64_t> ids = chunkOf(lengths[chunk % lengths.size()]);
            SynthesisResult result = model.synthesizeChunk(ids, 1.0);
            frames += static_cast<int64_t>(result.samples.size()) / hop;
            samplesBytes += static_cast<double>(result.samples.capacity() * sizeof(float));
            kept.push_back(std::move(result.samples));
            heapBeyondSamples.push_back(heapBytes() - samplesBytes);
            if (chunk + 1 == lengths.size()) {
                rssAfterWarmUp = statusKilobytes("VmRSS") * 1024.0;
            }
        }
        const double kilobyte = 1024.0, megabyte = 1024.0 * 1024.0;
        const size_t warm = lengths.size() - 1, last = heapBeyondSamples.size() - 1;
        const size_t middle = (warm + last) / 2;
        state.counters["chunks"] = static_cast<double>(kept.size());
        state.counters["samplesMB"] = samplesBytes / megabyte;
        state.counters["heapGrowth1stHalfKB"] =
            (heapBeyondSamples[middle] - heapBeyondSamples[warm]) / kilobyte;
        state.counters["heapGrowth2ndHalfKB"] =
            (heapBeyondSamples[last] - heapBeyondSamples[middle]) / kilobyte;
        state.counters["rssAfterWarmUpMB"] = rssAfterWarmUp / megabyte;
        state.counters["peakRssMB"] = statusKilobytes("VmHWM") * 1024.0 / megabyte;
    }
}
BENCHMARK(tenMinutesChunkByChunk)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
