#include "audio/wav_stream.h"

#include <unistd.h>

#include <cerrno>
#include <limits>
#include <system_error>
#include <vector>

#include "files/files.h"
#include "logging/log.h"

namespace murmela {
namespace {

[[noreturn]] void fail(const WavFile& file, int code) {
    throw std::filesystem::filesystem_error("cannot write", file.url,
                                            std::error_code(code, std::generic_category()));
}

int64_t bytesPerSample(const WavFile& file) {
    return file.isFloat ? 4 : 2;
}

}  // namespace

void openWavFile(WavFile& file, const std::filesystem::path& destination, bool isFloat) {
    if (file.fd >= 0) {
        programmingError("WAV file opened twice");
    }
    file.url = destination;
    file.isFloat = isFloat;
    file.samples = 0;
    file.fd = createScratchFile(destination, file.temp);
    // A header for no samples keeps its place; the real one is written last.
    if (int error = writeAll(file.fd, wavHeader(0, isFloat, 0)); error != 0) {
        fail(file, error);
    }
}

void appendToWavFile(WavFile& file, std::span<const float> samples) {
    if (file.fd < 0) {
        programmingError("WAV file appended to while closed");
    }
    const auto headerBytes = static_cast<int64_t>(wavHeader(0, file.isFloat, 0).size());
    const int64_t roomLeft =
        (std::numeric_limits<uint32_t>::max() - headerBytes) / bytesPerSample(file) - file.samples;
    if (static_cast<int64_t>(samples.size()) > roomLeft) {
        fail(file, EFBIG);
    }
    if (int error = writeAll(file.fd, wavSampleBytes(samples, file.isFloat)); error != 0) {
        fail(file, error);
    }
    file.samples += static_cast<int64_t>(samples.size());
}

void finishWavFile(WavFile& file, int64_t sampleRate) {
    if (file.fd < 0) {
        programmingError("WAV file finished while closed");
    }
    const std::vector<uint8_t> header = wavHeader(file.samples, file.isFloat, sampleRate);
    const ssize_t written = ::pwrite(file.fd, header.data(), header.size(), 0);
    if (written != static_cast<ssize_t>(header.size())) {
        fail(file, written < 0 ? errno : EIO);  // the teardown removes the scratch file
    }
    const int fd = file.fd;
    file.fd = -1;  // closed by the replacement, whatever happens there
    replaceWithScratchFile(fd, file.temp, file.url);
}

}  // namespace murmela
