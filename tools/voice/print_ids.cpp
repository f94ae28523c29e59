// Prints Murmela's token ids for each line of text, so that the voice recipe trains on exactly
// the tokens the program will feed the voice.
//
//   print_ids VOICE_DIR < lines
//
// VOICE_DIR needs vocab.json and espeak-ng-data. Each input line gives one output line: the ids
// of all its chunks in order, separated by spaces (empty when nothing in it is speakable).

#include <cstdint>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "frontend/espeak.h"
#include "frontend/phonemizer.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: print_ids VOICE_DIR < lines\n";
        return 2;
    }
    try {
        const std::filesystem::path directory = argv[1];
        const murmela::Phonemizer phonemizer(directory / "vocab.json", murmela::Espeak(directory));
        std::string line;
        while (std::getline(std::cin, line)) {
            const char* separator = "";
            phonemizer.chunks(line, [&separator](std::vector<int64_t> chunk) {
                for (int64_t id : chunk) {
                    std::cout << separator << id;
                    separator = " ";
                }
                return true;
            });
            std::cout << "\n";
        }
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "print_ids: " << error.what() << "\n";
        return 2;
    }
}
