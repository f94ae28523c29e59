// Fuzzing the parity mode's lines file. Whatever it holds, the reader gives lines whose ids name
// plain files and whose speeds lie in the accepted range, or the JSON parser's error, VoiceError
// or ParityLineError; nothing else.

#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>

#include "app/parity.h"
#include "common/voice_error.h"
#include "support/fuzzing.h"

namespace murmela::fuzzing {

void parityLines(const uint8_t* data, size_t size) {
    const int file = memoryFile({reinterpret_cast<const char*>(data), size});
    try {
        for (const ParityLine& line : readParityLines("/proc/self/fd/" + std::to_string(file))) {
            if (!isPlainFileName(line.id)) {
                broken("a line's id names a plain file");
            }
            if (!(line.speed >= minimumParitySpeed && line.speed <= maximumParitySpeed)) {
                broken("a line's speed lies in the accepted range");
            }
            if (!line.reportedSpeed.is_number() ||
                (line.speed != 1.0 && line.reportedSpeed.get<double>() != line.speed)) {
                broken("the speed reported is the number the file gave, or 1");
            }
        }
    } catch (const nlohmann::json::exception&) {
    } catch (const VoiceError&) {
    } catch (const ParityLineError&) {
    }
    ::close(file);
}

}  // namespace murmela::fuzzing

MURMELA_FUZZ_ENTRY(ParityLinesAreCheckedOrRefused, murmela::fuzzing::parityLines, 2000)
