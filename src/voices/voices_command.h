#pragma once
// `murmela voices`: lists the installed voices, adds one from files, a folder or addresses,
// and removes one the user added. Needs no display.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "voices/voice_store.h"
#include "voices/voices_failure.h"

namespace murmela {

// The exit status of `murmela voices`, one per class of failure, as its help text lists them.
enum VoicesExit : int {
    voicesDone = 0,
    voicesUnexpected = 1,    // anything the classes below don't cover
    voicesBadArguments = 2,  // the command line makes no sense
    voicesNotFound = 3,      // no such file, folder, address (HTTP 404) or voice id
    voicesNoNetwork = 4,     // the server can't be reached, or the download broke off
    voicesBadDownload = 5,   // the wrong checksum, or larger than the size limit
    voicesCannotWrite = 6,   // the disk is full, or the voices' folder can't be written
    voicesNotAVoice = 7,     // no voice, or a voice that fails its test sentence
    voicesRefused = 8,       // a bundled or system voice to remove, or an id already installed
};

VoicesExit exitStatus(VoicesFailure::Kind kind);

struct VoicesOptions {
    enum class Action { list, add, remove, help };

    Action action = Action::list;
    bool json = false;                         // list: JSON instead of the table
    std::vector<std::string> sources;          // add: paths and http(s) addresses, in order
    std::vector<std::string> checksums;        // add: one SHA-256 per source, lower case, in order
    std::optional<std::string> name;           // add: the installed folder's name
    uintmax_t sizeLimit = uintmax_t{2} << 30;  // add: bytes per downloaded file
    std::string id;                            // remove
};

// Reads the arguments after "voices". Throws VoicesFailure (badArguments) saying what is wrong:
// an unknown option or action, a missing value, a checksum that is not 64 hexadecimal digits,
// as many checksums as sources unless none, a size that is not a number of bytes (with an
// optional k, M or G), add without a source, remove without exactly one id.
VoicesOptions parseVoicesOptions(const std::vector<std::string>& arguments);

// Installs the voice the sources of `options` make (files, a folder or addresses; addresses
// need libcurl set up) into the user's voices of `store`, once it has loaded and spoken a
// sentence; gives its ids. Throws VoicesFailure, leaving nothing half installed.
std::vector<std::string> addVoice(const VoicesOptions& options, const VoiceStore& store);

// The text of --help.
std::string voicesUsage();

// Runs the command; argv[1] is "voices". Gives the exit status.
int runVoices(int argc, char** argv);

}  // namespace murmela
