// Speaks lines of text with Murmela's own engine: the voice's phonemizer cuts each line into
// chunks of ids and Voice synthesises them (model runner, splitting, inverse STFT), the way the
// program does. The voice recipe measures its voice with it.
//
//   render_text VOICE_DIR OUTDIR < lines
//
// Each input line is "NAME SPEED TEXT". OUTDIR/NAME.f32 receives the line's samples (its
// chunks joined) as raw little-endian 32-bit floats at 24 kHz, and OUTDIR/NAME.tokens one line
// per chunk: its ids, " | ", then its frame counts (boundary tokens included), so durations
// can be measured per token; standard output gets "NAME FRAMES MILLISECONDS" per line.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "engine/voice.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: render_text VOICE_DIR OUTDIR < lines\n";
        return 2;
    }
    try {
        murmela::Voice voice{std::filesystem::path(argv[1])};
        const std::filesystem::path outdir = argv[2];
        std::filesystem::create_directories(outdir);
        std::string line;
        while (std::getline(std::cin, line)) {
            std::istringstream fields(line);
            std::string name;
            double speed = 1.0;
            if (!(fields >> name >> speed)) {
                continue;
            }
            std::string text;
            std::getline(fields >> std::ws, text);
            const auto started = std::chrono::steady_clock::now();
            std::vector<float> samples;
            std::ostringstream tokens;
            voice.speak(text, speed, [&](murmela::SpokenChunk&& chunk) {
                samples.insert(samples.end(), chunk.result.samples.begin(),
                               chunk.result.samples.end());
                for (int64_t id : chunk.ids) {
                    tokens << id << ' ';
                }
                tokens << '|';
                for (int64_t count : chunk.result.frameCounts) {
                    tokens << ' ' << count;
                }
                tokens << '\n';
                return true;
            });
            const double milliseconds = std::chrono::duration<double, std::milli>(
                                            std::chrono::steady_clock::now() - started)
                                            .count();
            std::ofstream file(outdir / (name + ".f32"), std::ios::binary);
            file.write(reinterpret_cast<const char*>(samples.data()),
                       static_cast<std::streamsize>(samples.size() * sizeof(float)));
            std::ofstream(outdir / (name + ".tokens")) << tokens.str();
            std::printf("%s %zu %.3f\n", name.c_str(), samples.size() / 300, milliseconds);
        }
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "render_text: " << error.what() << "\n";
        return 2;
    }
}
