#pragma once
// The command line of `murmela say`: what to speak, how fast, and where the sound goes.

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace murmela {

struct SayOptions {
    enum class Destination { device, wavFile, raw };

    double speed = 1.0;
    Destination destination = Destination::device;
    std::filesystem::path wavFile;     // for Destination::wavFile
    std::optional<std::string> text;   // the words given, joined by spaces; none: standard input
    std::optional<std::string> voice;  // --voice as given (chooseVoice); none: the usual voice
    bool help = false;
    bool version = false;
};

// Arguments that do not make a command; what() says what is wrong, in a few words.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Reads the arguments after "say". Options may come before, between and after the words; "--"
// makes everything after it words. Throws UsageError for an unknown option, an option without
// its value, a speed that is not a number from 0.75 to 1.5, --output together with --raw, and an
// empty --voice.
SayOptions parseSayOptions(const std::vector<std::string>& arguments);

// The text of --help.
std::string sayUsage();

}  // namespace murmela
