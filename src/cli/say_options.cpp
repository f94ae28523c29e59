#include "cli/say_options.h"

#include <charconv>
#include <cmath>

#include "common/speech_rules.h"

namespace murmela {
namespace {

double parseSpeed(const std::string& value) {
    double speed = 0.0;
    const char* end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, speed);
    if (value.empty() || error != std::errc() || stop != end || !std::isfinite(speed)) {
        throw UsageError("--speed needs a number, not \"" + value + "\"");
    }
    if (speed < minimumSpeed || speed > maximumSpeed) {
        throw UsageError(std::string("--speed must be from ") + speedRangeText + ", not " + value);
    }
    return speed;
}

}  // namespace

SayOptions parseSayOptions(const std::vector<std::string>& arguments) {
    SayOptions options;
    std::vector<std::string> words;
    bool wantsRaw = false, wantsFile = false, onlyWords = false;
    for (size_t index = 0; index < arguments.size(); ++index) {
        const std::string& argument = arguments[index];
        if (onlyWords || argument.size() < 2 || argument[0] != '-') {
            words.push_back(argument);
            continue;
        }
        // "--name=value" and "--name value" alike.
        std::string name = argument;
        std::optional<std::string> attached;
        if (const size_t equals = argument.find('='); equals != std::string::npos) {
            name = argument.substr(0, equals);
            attached = argument.substr(equals + 1);
        }
        auto value = [&]() -> std::string {
            if (attached) {
                return *attached;
            }
            if (index + 1 >= arguments.size()) {
                throw UsageError(name + " needs a value");
            }
            return arguments[++index];
        };
        auto noValue = [&] {
            if (attached) {
                throw UsageError(name + " takes no value");
            }
        };
        if (name == "--") {
            noValue();
            onlyWords = true;
        } else if (name == "--speed" || name == "-s") {
            options.speed = parseSpeed(value());
        } else if (name == "--output" || name == "-o") {
            options.wavFile = value();
            if (options.wavFile.empty()) {
                throw UsageError(name + " needs a file name");
            }
            wantsFile = true;
        } else if (name == "--voice" || name == "-v") {
            options.voice = value();
            if (options.voice->empty()) {
                throw UsageError(name + " needs a voice's id or directory");
            }
        } else if (name == "--raw") {
            noValue();
            wantsRaw = true;
        } else if (name == "--help" || name == "-h") {
            noValue();
            options.help = true;
        } else if (name == "--version") {
            noValue();
            options.version = true;
        } else {
            throw UsageError("unknown option '" + name + "'");
        }
    }
    if (wantsRaw && wantsFile) {
        throw UsageError("--output and --raw cannot be used together");
    }
    options.destination = wantsRaw    ? SayOptions::Destination::raw
                          : wantsFile ? SayOptions::Destination::wavFile
                                      : SayOptions::Destination::device;
    if (!words.empty()) {
        std::string text;
        for (const std::string& word : words) {
            text += (text.empty() ? "" : " ") + word;
        }
        options.text = text;
    }
    return options;
}

std::string sayUsage() {
    return std::string(
               "Usage: murmela say [--voice ID|DIR[:NAME]] [--speed S]\n"
               "                   [--output FILE.wav | --raw] [TEXT...]\n"
               "\n"
               "Speaks TEXT, or standard input when no text is given, with Murmela's voice.\n"
               "Standard input is read as it arrives: each sentence is spoken as soon as it is\n"
               "complete (at its end, at a blank line, or when the input pauses for more than\n"
               "half a second), so `tail -f FILE | murmela say` speaks each new line.\n"
               "\n"
               "  -s, --speed S        speaking speed from ") +
           speedRangeText +
           " (default 1)\n"
           "  -v, --voice ID|DIR[:NAME]\n"
           "                       speak with the installed voice ID (murmela voices lists\n"
           "                       them; murmela-slt is the second bundled voice), or with\n"
           "                       the voice in DIR: a Kokoro or Piper voice as downloaded,\n"
           "                       NAME picking the Kokoro voice (af_heart) or the Piper\n"
           "                       speaker; a directory that exists wins over an id. The\n"
           "                       default is $MURMELA_VOICE, else the bundled voice\n"
           "  -o, --output FILE    write a WAV file (16-bit, mono, 24000 Hz) instead of playing\n"
           "      --raw            write raw 16-bit little-endian mono samples at 24000 Hz to\n"
           "                       standard output as they are made, for example:\n"
           "                       murmela say --raw < book.txt | aplay -f S16_LE -r 24000 -c 1\n"
           "  -h, --help           show this help\n"
           "      --version        show the version\n"
           "\n"
           "Without --output or --raw the speech plays on the default sound device.\n"
           "\n"
           "Exit status:\n"
           "  0  spoken or written\n"
           "  1  the voice failed while speaking\n"
           "  2  bad arguments\n"
           "  3  the input cannot be read, or has nothing to speak at all\n"
           "  4  the output (file, standard output or sound device) cannot be written\n"
           "  5  the voice is missing or damaged\n";
}

}  // namespace murmela
