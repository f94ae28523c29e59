// The inverse STFT against the mathematics it stands for, computed independently in double
// precision.

#include "engine/istft.h"

#include <gtest/gtest.h>

#include <random>
#include <thread>
#include <vector>

#include "istft_reference.h"

namespace murmela {
namespace {

using testing::hann;
using testing::referenceIstft;

constexpr int64_t n = 1024;
constexpr int64_t hop = 300;
constexpr size_t bins = n / 2 + 1;

struct Spectrogram {
    std::vector<float> mag, phase;
    int64_t frames;
};

Spectrogram randomSpectrogram(int64_t frames, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> magnitude(0.0f, 1.0f);
    std::uniform_real_distribution<float> angle(-4.0f, 4.0f);
    Spectrogram spectrogram{std::vector<float>(static_cast<size_t>(frames) * bins), {}, frames};
    for (float& value : spectrogram.mag) {
        value = magnitude(random);
        spectrogram.phase.push_back(angle(random));
    }
    return spectrogram;
}

TEST(ISTFT, WindowIsThePeriodicHann) {
    ISTFT istft(n, hop);
    EXPECT_EQ(istft.pad(), 362);
    const std::vector<float>& window = istft.window();
    ASSERT_EQ(window.size(), static_cast<size_t>(n));
    for (int64_t i = 0; i < n; ++i) {  // periodic: the last sample is not zero
        ASSERT_EQ(window[static_cast<size_t>(i)], static_cast<float>(hann(i, n))) << i;
    }
}

// Random magnitudes and phases in every bin, DC and Nyquist included; one frame shows any shift
// of the trimmed pad.
TEST(ISTFT, MatchesInverseDftOverlapAddAndNormaliser) {
    ISTFT istft(n, hop);
    for (int64_t frames : {1, 2, 7}) {
        const Spectrogram spectrogram = randomSpectrogram(frames, static_cast<unsigned>(frames));
        const std::vector<float> samples = istft.run(spectrogram.mag, spectrogram.phase, frames);
        const std::vector<double> expected =
            referenceIstft(spectrogram.mag, spectrogram.phase, frames);
        ASSERT_EQ(samples.size(), expected.size());
        for (size_t i = 0; i < samples.size(); ++i) {
            ASSERT_NEAR(samples[i], expected[i], 2e-5) << frames << " frames, sample " << i;
        }
    }
}

TEST(ISTFT, SilenceGivesZerosAndNeverNaN) {
    ISTFT istft(n, hop);
    EXPECT_TRUE(istft.run({}, {}, 0).empty());
    // With hop = n nothing is trimmed, and the first sample has a window sum of exactly zero:
    // the floor turns 0 / 0 into 0.
    ISTFT unpadded(16, 16);
    std::vector<float> mag(9 * 2, 0.0f), phase(9 * 2, 0.0f);
    mag[0] = 1.0f;
    mag[9] = 1.0f;
    std::vector<float> samples = unpadded.run(mag, phase, 2);
    ASSERT_EQ(samples.size(), 32u);
    EXPECT_EQ(samples[0], 0.0f);
    EXPECT_EQ(samples[16], 0.0f);
    EXPECT_NEAR(samples[8], 1.0f / 16.0f, 1e-7f);  // w[8] = 1
}

TEST(ISTFT, TwoTransformsRunAtOnce) {
    const Spectrogram spectrogram = randomSpectrogram(40, 7);
    const std::vector<float> expected = ISTFT(n, hop).run(spectrogram.mag, spectrogram.phase, 40);
    auto work = [&](std::vector<float>& result) {
        ISTFT own(n, hop);  // planning in parallel too
        for (int round = 0; round < 20; ++round) {
            result = own.run(spectrogram.mag, spectrogram.phase, 40);
        }
    };
    std::vector<float> first, second;
    std::thread a(work, std::ref(first));
    std::thread b(work, std::ref(second));
    a.join();
    b.join();
    EXPECT_EQ(first, expected);
    EXPECT_EQ(second, expected);
}

}  // namespace
}  // namespace murmela
