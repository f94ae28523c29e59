#pragma once
// Fetching a voice's files over HTTP(S) with libcurl, resuming what an earlier try left, and
// checking a file's SHA-256.

#include <cstdint>
#include <filesystem>
#include <string>

namespace murmela {

struct DownloadOptions {
    uintmax_t sizeLimit = uintmax_t{2} << 30;  // bytes; a larger file is refused
    bool showProgress = false;                 // a progress line on standard error
    int attempts = 5;                          // tries while the connection keeps breaking off
};

// Downloads `url` into `partial`. What `partial` already holds is kept and only the rest is
// asked for (a Range request); a server that ignores the range sends everything again, and the
// file starts over. Redirects are followed, to http and https addresses only. A connection that
// breaks off is tried again from where it stopped.
//
// Throws VoicesFailure with one line: notFound for an HTTP error answer (404 and the like),
// noNetwork when the server can't be reached or the transfer keeps breaking off (`partial`
// then keeps what arrived, for the next try), badDownload beyond the size limit, cannotWrite
// when `partial` can't be written (a full disk included). Only on noNetwork does `partial`
// remain.
void download(const std::string& url, const std::filesystem::path& partial,
              const DownloadOptions& options);

// The file's SHA-256 in lower-case hexadecimal. Throws std::filesystem::filesystem_error when
// it can't be read.
std::string sha256Hex(const std::filesystem::path& file);

// The last segment of an address's path ("en_US-lessac-medium.onnx" for
// "https://host/x/en_US-lessac-medium.onnx?download=true"), percent-escapes decoded; empty
// when it has none, or when it would not be a plain file name.
std::string urlFileName(const std::string& url);

// The address of the file named as the address's own plus `suffix`, any query kept after it.
std::string urlWithSuffix(const std::string& url, const std::string& suffix);

}  // namespace murmela
