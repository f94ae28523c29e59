// The command line of `murmela say`: options anywhere among the words, both spellings of a
// value, "--" before words that look like options, and a clear refusal of everything else.

#include "cli/say_options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace murmela {
namespace {

using Destination = SayOptions::Destination;

TEST(SayOptions, ReadsOptionsAmongTheWords) {
    SayOptions plain = parseSayOptions({});
    EXPECT_EQ(plain.destination, Destination::device);
    EXPECT_EQ(plain.speed, 1.0);
    EXPECT_FALSE(plain.text.has_value());   // standard input
    EXPECT_FALSE(plain.voice.has_value());  // the usual voice

    SayOptions file =
        parseSayOptions({"Hello", "--speed", "1.25", "big", "-o", "a b.wav", "world"});
    EXPECT_EQ(file.destination, Destination::wavFile);
    EXPECT_EQ(file.wavFile, "a b.wav");
    EXPECT_EQ(file.speed, 1.25);
    EXPECT_EQ(file.text, "Hello big world");

    SayOptions raw = parseSayOptions({"--speed=0.75", "--raw", "--", "--help", "-o"});
    EXPECT_EQ(raw.destination, Destination::raw);
    EXPECT_EQ(raw.speed, 0.75);
    EXPECT_FALSE(raw.help);
    EXPECT_EQ(raw.text, "--help -o");

    EXPECT_EQ(parseSayOptions({"-s", "1.5", "-"}).text, "-");
    EXPECT_EQ(parseSayOptions({"--voice", "/voices/kokoro:bf_emma", "hi"}).voice,
              "/voices/kokoro:bf_emma");
    EXPECT_EQ(parseSayOptions({"hi", "-v", "murmela-slt"}).voice, "murmela-slt");
    EXPECT_EQ(parseSayOptions({"--voice=piper:3", "hi"}).text, "hi");
    EXPECT_TRUE(parseSayOptions({"-h"}).help);
    EXPECT_TRUE(parseSayOptions({"x", "--version"}).version);
}

TEST(SayOptions, RefusesWhatMakesNoCommand) {
    const std::vector<std::vector<std::string>> refused = {
        {"--speed"},        {"--speed", "fast"},      {"--speed", "1.0x"},
        {"--speed", ""},    {"--speed=nan"},          {"--speed=inf"},
        {"--speed", "0.7"}, {"--speed", "1.55"},      {"-o"},
        {"--output="},      {"--raw", "-o", "a.wav"}, {"--raw=1"},
        {"--loud"},         {"-x", "hello"},          {"--voice"},
        {"--voice="},
    };
    for (const auto& arguments : refused) {
        EXPECT_THROW(parseSayOptions(arguments), UsageError) << arguments.front();
    }
}

}  // namespace
}  // namespace murmela
