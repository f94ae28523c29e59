#pragma once
// The wire format between speech-dispatcher and an output module: LF-terminated lines, data
// blocks closed by a line holding a single dot, numbered replies and events, and audio sent
// as 16-bit samples with the line feed escaped.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "files/files.h"

namespace murmela::speechd {

// The lines after a command, up to the closing dot, with the dot-escaping undone.
struct DataBlock {
    std::vector<std::string> lines;
    size_t bytes = 0;       // of all lines kept, one LF each between them
    bool tooLarge = false;  // past the limit: the lines were dropped, the block read to its end
    bool ended = false;     // false when the input ended before the closing dot
};

// Reads a data block; once its lines exceed `limit` bytes the rest is read and discarded.
DataBlock readDataBlock(LineReader& reader, size_t limit);

// Whether `bytes` is well-formed UTF-8.
bool isValidUtf8(std::string_view bytes);

// The replies and events, each a complete text ending in LF.
namespace reply {
inline constexpr std::string_view loaded = "299 OK LOADED SUCCESSFULLY\n";
inline constexpr std::string_view receivingMessage = "202 OK RECEIVING MESSAGE\n";
inline constexpr std::string_view speaking = "200 OK SPEAKING\n";
inline constexpr std::string_view receivingSettings = "203 OK RECEIVING SETTINGS\n";
inline constexpr std::string_view settingsReceived = "203 OK SETTINGS RECEIVED\n";
inline constexpr std::string_view receivingAudioSettings = "207 OK RECEIVING AUDIO SETTINGS\n";
inline constexpr std::string_view audioInitialized = "203 OK AUDIO INITIALIZED\n";
inline constexpr std::string_view receivingLogLevel = "207 OK RECEIVING LOGLEVEL SETTINGS\n";
inline constexpr std::string_view logLevelSet = "203 OK LOGLEVEL SET\n";
inline constexpr std::string_view voiceListSent = "200 OK VOICE LIST SENT\n";
inline constexpr std::string_view quit = "210 OK QUIT\n";

inline constexpr std::string_view unknownCommand = "300 ERR UNKNOWN COMMAND\n";
inline constexpr std::string_view alreadySpeaking = "301 ERROR ALREADY SPEAKING\n";
inline constexpr std::string_view badSyntax = "302 ERROR BAD SYNTAX\n";
inline constexpr std::string_view invalidValue = "303 ERROR INVALID PARAMETER OR VALUE\n";
inline constexpr std::string_view invalidUtf8 = "304 ERROR INVALID UTF-8\n";
inline constexpr std::string_view malformedSsml = "305 ERROR MALFORMED SSML\n";
inline constexpr std::string_view messageTooLong = "306 ERROR MESSAGE TOO LONG\n";
inline constexpr std::string_view notInitialized = "307 ERROR NOT INITIALIZED\n";
inline constexpr std::string_view cannotInitialize = "399 ERR CANT INIT MODULE\n";

inline constexpr std::string_view begin = "701 BEGIN\n";
inline constexpr std::string_view end = "702 END\n";
inline constexpr std::string_view stop = "703 STOP\n";
inline constexpr std::string_view pause = "704 PAUSE\n";
}  // namespace reply

// "<code>-<text>" continuation lines followed by the final line, e.g. the voice list. A line feed
// inside a text is sent as a space.
std::string multiline(std::string_view code, const std::vector<std::string>& lines,
                      std::string_view last);

// The index mark event for `name`.
std::string indexMarkEvent(std::string_view name);

// An AUDIO event: `samples` (24 kHz, mono, nominally -1…1) times `gain`, clipped, as 16-bit
// little-endian integers, with every LF and 0x7D byte escaped.
std::string audioEvent(std::span<const float> samples, float gain);

// The samples of an AUDIO event's data: the escaped bytes after "AUDIO" and its NUL.
std::vector<int16_t> audioSamples(std::string_view escaped);

}  // namespace murmela::speechd
