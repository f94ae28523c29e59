// Renders chunks of token ids with Murmela's own acoustic model runner (VoiceModel: the three
// models, frame counts and inverse STFT), so the voice recipe can hear a voice through the
// engine before the rest of the program is there.
//
//   render_chunks VOICE_DIR OUTDIR < lines
//
// Each input line is "NAME SPEED ID ID ...". OUTDIR/NAME.f32 receives the samples as raw
// little-endian 32-bit floats at 24 kHz; standard output gets "NAME FRAMES MILLISECONDS" per
// line. A chunk too long for the voice's decoder is reported and skipped (exit code 1).

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

#include "engine/too_long.h"
#include "engine/voice_files.h"
#include "engine/voice_model.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: render_chunks VOICE_DIR OUTDIR < lines\n";
        return 2;
    }
    try {
        murmela::VoiceModel model{murmela::VoiceFiles{argv[1]}};
        const std::filesystem::path outdir = argv[2];
        std::filesystem::create_directories(outdir);
        int status = 0;
        std::string line;
        while (std::getline(std::cin, line)) {
            std::istringstream fields(line);
            std::string name;
            double speed = 1.0;
            if (!(fields >> name >> speed)) {
                continue;
            }
            std::vector<int64_t> ids;
            for (int64_t id = 0; fields >> id;) {
                ids.push_back(id);
            }
            const auto started = std::chrono::steady_clock::now();
            try {
                const murmela::SynthesisResult result = model.synthesizeChunk(ids, speed);
                const double milliseconds = std::chrono::duration<double, std::milli>(
                                                std::chrono::steady_clock::now() - started)
                                                .count();
                std::ofstream file(outdir / (name + ".f32"), std::ios::binary);
                file.write(reinterpret_cast<const char*>(result.samples.data()),
                           static_cast<std::streamsize>(result.samples.size() * sizeof(float)));
                std::printf("%s %zu %.3f\n", name.c_str(), result.samples.size() / 300,
                            milliseconds);
            } catch (const murmela::TooLong& tooLong) {
                std::cerr << name << ": " << tooLong.frames << " frames is too long\n";
                status = 1;
            }
        }
        return status;
    } catch (const std::exception& error) {
        std::cerr << "render_chunks: " << error.what() << "\n";
        return 2;
    }
}
