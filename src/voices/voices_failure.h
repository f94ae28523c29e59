#pragma once
// Why `murmela voices` failed, in classes a script can tell apart by the exit status.

#include <stdexcept>
#include <string>

namespace murmela {

class VoicesFailure : public std::runtime_error {
public:
    enum class Kind {
        badArguments,  // a command line that makes no sense
        notFound,      // a path, address or voice id that does not exist
        noNetwork,     // the server can't be reached, or the download broke off for good
        badDownload,   // the wrong checksum, or more than the size limit
        cannotWrite,   // the disk is full or the voices' folder can't be written
        notAVoice,     // the files make no voice, or the voice fails its test sentence
        refused,       // a bundled or system voice to remove, or an id already installed
    };

    // `message` is the whole line the user sees, without the program's prefix.
    VoicesFailure(Kind kind, const std::string& message)
        : std::runtime_error(message), kind_(kind) {}

    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

}  // namespace murmela
