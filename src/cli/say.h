#pragma once
// `murmela say`: speaks text from the command line or standard input on the default sound
// device, into a WAV file, or as raw samples to standard output. Needs no display.

namespace murmela {

// The exit status of `murmela say`, as its help text lists them.
enum SayExit : int {
    sayDone = 0,
    sayVoiceFailed = 1,   // the voice failed while speaking
    sayBadArguments = 2,  // the command line makes no sense
    sayBadInput = 3,      // standard input cannot be read, or the text has nothing to speak
    sayBadOutput = 4,     // the file, standard output or the sound device cannot be written
    sayVoiceMissing = 5,  // the voice is missing or damaged
};

// Runs the command; argv[1] is "say". Gives the exit status.
int runSay(int& argc, char** argv);

}  // namespace murmela
