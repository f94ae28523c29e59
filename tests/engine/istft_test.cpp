// The inverse STFT against the mathematics it stands for: a naive inverse DFT in double
// precision, the periodic Hann window, overlap-add and the squared-window normaliser.

#include "engine/istft.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <thread>
#include <vector>

namespace murmela {
namespace {

constexpr int64_t n = 1024;
constexpr int64_t hop = 300;
constexpr int64_t bins = n / 2 + 1;
constexpr double pi = std::numbers::pi;

double hann(int64_t i) {
    return 0.5 - 0.5 * std::cos(2.0 * pi * static_cast<double>(i) / n);
}

struct Spectrogram {
    explicit Spectrogram(int64_t frameCount)
        : frames(frameCount), mag(static_cast<size_t>(frameCount * bins)), phase(mag.size()) {}
    float& magAt(int64_t t, int64_t k) { return mag[static_cast<size_t>(t * bins + k)]; }
    float& phaseAt(int64_t t, int64_t k) { return phase[static_cast<size_t>(t * bins + k)]; }
    std::vector<float> run(const ISTFT& istft) const { return istft.run(mag, phase, frames); }

    int64_t frames;
    std::vector<float> mag;
    std::vector<float> phase;
};

// The inverse DFT of one frame, with the 1/n factor, taking DC and Nyquist as real.
std::vector<double> inverseDft(const Spectrogram& spectrogram, int64_t t) {
    std::vector<double> frame(n, 0.0);
    for (int64_t k = 0; k < bins; ++k) {
        double m = spectrogram.mag[static_cast<size_t>(t * bins + k)];
        double phi = spectrogram.phase[static_cast<size_t>(t * bins + k)];
        if (m == 0.0) {
            continue;
        }
        bool real = k == 0 || k == n / 2;
        for (int64_t j = 0; j < n; ++j) {
            double angle = 2.0 * pi * static_cast<double>((j * k) % n) / n;
            frame[static_cast<size_t>(j)] +=
                real ? m * std::cos(phi) * std::cos(angle) : 2.0 * m * std::cos(angle + phi);
        }
    }
    for (double& value : frame) {
        value /= n;
    }
    return frame;
}

std::vector<double> reference(const Spectrogram& spectrogram) {
    const int64_t frames = spectrogram.frames;
    const int64_t length = (frames - 1) * hop + n;
    std::vector<double> sum(static_cast<size_t>(length), 0.0);
    std::vector<double> normaliser(static_cast<size_t>(length), 0.0);
    for (int64_t t = 0; t < frames; ++t) {
        std::vector<double> frame = inverseDft(spectrogram, t);
        for (int64_t i = 0; i < n; ++i) {
            sum[static_cast<size_t>(t * hop + i)] += frame[static_cast<size_t>(i)] * hann(i);
            normaliser[static_cast<size_t>(t * hop + i)] += hann(i) * hann(i);
        }
    }
    const int64_t pad = (n - hop) / 2;
    std::vector<double> result(static_cast<size_t>(frames * hop));
    for (size_t i = 0; i < result.size(); ++i) {
        result[i] = sum[pad + i] / std::max(normaliser[pad + i], 1e-11);
    }
    return result;
}

void expectNear(const std::vector<float>& actual, const std::vector<double>& expected,
                double tolerance) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i) {
        ASSERT_NEAR(actual[i], expected[i], tolerance) << "sample " << i;
    }
}

Spectrogram randomSpectrogram(int64_t frames, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> magnitude(0.0f, 1.0f);
    std::uniform_real_distribution<float> angle(-4.0f, 4.0f);
    Spectrogram spectrogram(frames);
    for (size_t i = 0; i < spectrogram.mag.size(); ++i) {
        spectrogram.mag[i] = magnitude(random);
        spectrogram.phase[i] = angle(random);
    }
    return spectrogram;
}

TEST(ISTFT, WindowIsThePeriodicHann) {
    ISTFT istft(n, hop);
    EXPECT_EQ(istft.pad(), 362);
    const std::vector<float>& window = istft.window();
    ASSERT_EQ(window.size(), static_cast<size_t>(n));
    EXPECT_EQ(window[0], 0.0f);
    EXPECT_EQ(window[512], 1.0f);
    EXPECT_EQ(window[256], 0.5f);
    // Periodic: symmetric about n/2, so the last sample is not zero.
    EXPECT_GT(window[1023], 0.0f);
    for (int64_t i = 1; i < n; ++i) {
        ASSERT_EQ(window[static_cast<size_t>(i)], static_cast<float>(hann(i))) << i;
    }
}

TEST(ISTFT, MatchesInverseDftOverlapAddAndNormaliser) {
    ISTFT istft(n, hop);
    for (int64_t frames : {1, 2, 7}) {
        Spectrogram spectrogram = randomSpectrogram(frames, static_cast<unsigned>(frames));
        std::vector<float> samples = spectrogram.run(istft);
        EXPECT_EQ(samples.size(), static_cast<size_t>(frames * hop));
        expectNear(samples, reference(spectrogram), 2e-5);
    }
}

TEST(ISTFT, OneFrameIsPositions362To661OfTheWindowedFrame) {
    ISTFT istft(n, hop);
    Spectrogram spectrogram(1);
    spectrogram.magAt(0, 3) = 100.0f;  // a tone whose shape shows any shift
    spectrogram.phaseAt(0, 3) = 0.7f;
    std::vector<float> samples = spectrogram.run(istft);
    ASSERT_EQ(samples.size(), 300u);
    std::vector<double> frame = inverseDft(spectrogram, 0);
    for (int64_t i = 0; i < 300; ++i) {
        // Windowed once, divided by the squared window: the frame over the window.
        double expected = frame[static_cast<size_t>(362 + i)] / hann(362 + i);
        ASSERT_NEAR(samples[static_cast<size_t>(i)], expected, 1e-5) << i;
    }
}

TEST(ISTFT, SilenceGivesZerosAndNeverNaN) {
    ISTFT istft(n, hop);
    for (int64_t frames : {1, 5}) {
        std::vector<float> samples = Spectrogram(frames).run(istft);
        ASSERT_EQ(samples.size(), static_cast<size_t>(frames * hop));
        for (float sample : samples) {
            ASSERT_EQ(sample, 0.0f);
        }
    }
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

TEST(ISTFT, NoFramesGiveNoSamples) {
    ISTFT istft(n, hop);
    EXPECT_TRUE(istft.run({}, {}, 0).empty());
}

// A unit DC value: every frame is 1/n before windowing, so a sample is (1/n) * sum(w) / sum(w^2)
// over the frames that cover it.
std::vector<double> unitDcResponse(int64_t frames) {
    std::vector<double> expected(static_cast<size_t>(frames * hop));
    for (int64_t i = 0; i < frames * hop; ++i) {
        int64_t position = 362 + i;
        double sum = 0.0, squares = 0.0;
        for (int64_t t = 0; t < frames; ++t) {
            int64_t offset = position - t * hop;
            if (offset >= 0 && offset < n) {
                sum += hann(offset);
                squares += hann(offset) * hann(offset);
            }
        }
        expected[static_cast<size_t>(i)] = sum / squares / n;
    }
    return expected;
}

TEST(ISTFT, DcAndNyquistAreRealBins) {
    ISTFT istft(n, hop);
    constexpr int64_t frames = 4;
    std::vector<double> dc = unitDcResponse(frames);
    auto withBin = [&](int64_t bin, float phase) {
        Spectrogram spectrogram(frames);
        for (int64_t t = 0; t < frames; ++t) {
            spectrogram.magAt(t, bin) = 1.0f;
            spectrogram.phaseAt(t, bin) = phase;
        }
        return spectrogram;
    };
    expectNear(withBin(0, 0.0f).run(istft), dc, 1e-8);

    // Phase pi turns the DC value negative.
    std::vector<double> negative(dc);
    for (double& value : negative) {
        value = -value;
    }
    expectNear(withBin(0, static_cast<float>(pi)).run(istft), negative, 1e-8);

    // Phase pi/2 leaves only the sine part, which a real bin drops: (next to) nothing.
    std::vector<double> silence(dc.size(), 0.0);
    expectNear(withBin(0, static_cast<float>(pi / 2)).run(istft), silence, 1e-9);
    expectNear(withBin(512, static_cast<float>(pi / 2)).run(istft), silence, 1e-9);

    // The Nyquist bin alternates in sign from sample to sample.
    Spectrogram nyquist = withBin(512, 0.0f);
    expectNear(nyquist.run(istft), reference(nyquist), 1e-8);
}

TEST(ISTFT, TwoTransformsRunAtOnce) {
    Spectrogram spectrogram = randomSpectrogram(40, 7);
    const std::vector<float> expected = spectrogram.run(ISTFT(n, hop));
    auto work = [&](std::vector<float>& result) {
        ISTFT own(n, hop);  // planning in parallel too
        for (int round = 0; round < 20; ++round) {
            result = spectrogram.run(own);
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
