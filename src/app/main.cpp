// For now the program opens the bundled voice and prints the IPA of its arguments.

#include <exception>
#include <iostream>
#include <string>

#include "build_info.h"
#include "engine/voice_error.h"
#include "engine/voice_files.h"
#include "frontend/espeak.h"
#include "frontend/unicode.h"
#include "logging/log.h"

int main(int argc, char** argv) {
    using namespace murmela;
    std::cout << buildinfo::appName << ' ' << buildinfo::version << " (" << buildinfo::build
              << ")\n";
    try {
        std::optional<VoiceFiles> files = VoiceFiles::locate();
        if (!files) {
            throw VoiceError::missing("Voice/");
        }
        VoiceInterface interface = files->readInterface();
        for (const char* name : {"encoder", "decoder", "vocoder"}) {
            files->loadModel(name, ComputeUnits::cpuOnly, interface.programs);
        }
        Espeak espeak(files->directory());
        std::string text;
        for (int i = 1; i < argc; ++i) {
            text += (i > 1 ? " " : "") + std::string(argv[i]);
        }
        if (text.empty()) {
            text = "Hello from Murmela.";
        }
        std::cout << "voice: " << files->directory().string() << '\n'
                  << "text:  " << text << '\n'
                  << "IPA:   " << encodeUtf8(espeak.phonemes(decodeUtf8(text))) << '\n';
    } catch (const std::exception& error) {
        log::error("murmelaMain", error.what());
        return 1;
    }
    return 0;
}
