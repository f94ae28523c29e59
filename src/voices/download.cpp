#include "voices/download.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <memory>
#include <span>
#include <system_error>
#include <thread>
#include <vector>

#include "files/files.h"
#include "voices/voices_failure.h"

namespace murmela {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

std::string megabytes(double bytes) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f MB", bytes / 1e6);
    return text.data();
}

// The progress line on a terminal: the file, how much of it, how fast, and how long is left.
class ProgressLine {
public:
    explicit ProgressLine(std::string label) : label_(std::move(label)) {}

    void show(uintmax_t done, uintmax_t total, double bytesPerSecond, bool last) {
        const Clock::time_point now = Clock::now();
        if (!last && now - shown_ < std::chrono::milliseconds(250)) {
            return;
        }
        shown_ = now;
        std::string line = "\r" + label_;
        if (total > 0) {
            line += "  " + std::to_string(done * 100 / total) + "%  " + megabytes(done) + " of " +
                    megabytes(total);
        } else {
            line += "  " + megabytes(done);
        }
        line += "  " + megabytes(bytesPerSecond) + "/s";
        if (total > done && bytesPerSecond > 0) {
            const auto seconds = static_cast<long>((total - done) / bytesPerSecond);
            std::array<char, 32> left{};
            std::snprintf(left.data(), left.size(), "  %ld:%02ld left", seconds / 60, seconds % 60);
            line += left.data();
        }
        line += "\033[K";  // clears what a longer line left on the right
        if (last) {
            line += "\n";
        }
        writeAll(STDERR_FILENO, line);
    }

private:
    std::string label_;
    Clock::time_point shown_{};
};

// One request's state, shared with libcurl's callbacks.
struct Transfer {
    CURL* curl = nullptr;
    int descriptor = -1;
    uintmax_t offset = 0;    // the file's bytes before this request
    uintmax_t received = 0;  // in this request
    uintmax_t sizeLimit = 0;
    bool started = false;
    bool tooLarge = false;
    int writeError = 0;
    Clock::time_point began = Clock::now();
    ProgressLine* progress = nullptr;
    uintmax_t expected = 0;  // the whole file's size when the server told it

    double bytesPerSecond() const {
        const double seconds = std::chrono::duration<double>(Clock::now() - began).count();
        return seconds > 0 ? received / seconds : 0;
    }
};

// The first bytes of an answer decide where they go: after what the file holds when the server
// honoured the range, otherwise over it.
bool startBody(Transfer& transfer) {
    long status = 0;
    curl_easy_getinfo(transfer.curl, CURLINFO_RESPONSE_CODE, &status);
    if (transfer.offset > 0 && status != 206) {
        if (::ftruncate(transfer.descriptor, 0) != 0) {
            transfer.writeError = errno;
            return false;
        }
        transfer.offset = 0;
    }
    curl_off_t length = -1;
    curl_easy_getinfo(transfer.curl, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    if (length >= 0) {
        transfer.expected = transfer.offset + static_cast<uintmax_t>(length);
        transfer.tooLarge = transfer.expected > transfer.sizeLimit;
    }
    return !transfer.tooLarge;
}

size_t writeBody(char* data, size_t size, size_t count, void* user) {
    Transfer& transfer = *static_cast<Transfer*>(user);
    const size_t bytes = size * count;
    if (!transfer.started) {
        transfer.started = true;
        if (!startBody(transfer)) {
            return 0;
        }
    }
    if (transfer.offset + transfer.received + bytes > transfer.sizeLimit) {
        transfer.tooLarge = true;
        return 0;
    }
    transfer.writeError =
        writeAll(transfer.descriptor, std::span(reinterpret_cast<const uint8_t*>(data), bytes));
    if (transfer.writeError != 0) {
        return 0;
    }
    transfer.received += bytes;
    return bytes;
}

int showProgress(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    Transfer& transfer = *static_cast<Transfer*>(user);
    transfer.progress->show(transfer.offset + transfer.received, transfer.expected,
                            transfer.bytesPerSecond(), false);
    return 0;
}

struct CurlCleanup {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};

struct DescriptorCloser {
    int descriptor;
    ~DescriptorCloser() { ::close(descriptor); }
};

uintmax_t fileSize(const fs::path& file) {
    std::error_code error;
    const uintmax_t size = fs::file_size(file, error);
    return error ? 0 : size;
}

bool transient(CURLcode code) {
    switch (code) {
        case CURLE_PARTIAL_FILE:
        case CURLE_RECV_ERROR:
        case CURLE_SEND_ERROR:
        case CURLE_GOT_NOTHING:
        case CURLE_OPERATION_TIMEDOUT:
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM:
            return true;
        default:
            return false;
    }
}

enum class Outcome { done, tryAgain, startOver };

// One request for what `partial` still lacks.
Outcome requestRest(const std::string& url, const fs::path& partial, const DownloadOptions& options,
                    ProgressLine* progress) {
    const int descriptor = ::open(partial.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (descriptor < 0) {
        throw VoicesFailure(
            VoicesFailure::Kind::cannotWrite,
            "cannot write " + partial.string() + ": " + std::generic_category().message(errno));
    }
    const DescriptorCloser closer{descriptor};
    std::unique_ptr<CURL, CurlCleanup> handle(curl_easy_init());
    if (!handle) {
        throw VoicesFailure(VoicesFailure::Kind::noNetwork, "cannot start a download");
    }
    CURL* curl = handle.get();
    Transfer transfer;
    transfer.curl = curl;
    transfer.descriptor = descriptor;
    transfer.offset = fileSize(partial);
    transfer.sizeLimit = options.sizeLimit;
    transfer.progress = progress;
    std::array<char, CURL_ERROR_SIZE> reason{};

    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 10L);
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_USERAGENT, "murmela");
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, reason.data());
    // A server that stops sending without closing must not hang the command.
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, 30L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, 30L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, writeBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &transfer);
    if (progress != nullptr) {
        curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, showProgress);
        curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &transfer);
    }
    // A plain range rather than libcurl's resumption, which fails outright when the server
    // answers with the whole file; startBody() takes that answer from the start instead.
    const std::string range = std::to_string(transfer.offset) + "-";
    if (transfer.offset > 0) {
        curl_easy_setopt(curl, CURLOPT_RANGE, range.c_str());
    }

    const CURLcode code = curl_easy_perform(curl);
    if (progress != nullptr && (code == CURLE_OK || transfer.received > 0)) {
        progress->show(transfer.offset + transfer.received,
                       code == CURLE_OK ? transfer.offset + transfer.received : transfer.expected,
                       transfer.bytesPerSecond(), true);
    }
    if (code == CURLE_OK) {
        return Outcome::done;
    }
    const std::string why = reason[0] != '\0' ? reason.data() : curl_easy_strerror(code);
    if (transfer.tooLarge || code == CURLE_FILESIZE_EXCEEDED) {
        throw VoicesFailure(VoicesFailure::Kind::badDownload,
                            url + " is larger than the size limit of " +
                                megabytes(static_cast<double>(options.sizeLimit)));
    }
    if (transfer.writeError != 0) {
        throw VoicesFailure(VoicesFailure::Kind::cannotWrite,
                            "cannot write " + partial.string() + ": " +
                                (transfer.writeError == ENOSPC
                                     ? std::string("the disk is full")
                                     : std::generic_category().message(transfer.writeError)));
    }
    if (code == CURLE_HTTP_RETURNED_ERROR) {
        long status = 0;
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        if (status == 416 && transfer.offset > 0) {
            return Outcome::startOver;  // what was kept no longer fits the file there
        }
        if (status >= 400 && status < 500) {
            throw VoicesFailure(VoicesFailure::Kind::notFound,
                                "not found: " + url + " (HTTP " + std::to_string(status) + ")");
        }
        throw VoicesFailure(VoicesFailure::Kind::noNetwork,
                            "the server failed: " + url + " (HTTP " + std::to_string(status) + ")");
    }
    if (code == CURLE_UNSUPPORTED_PROTOCOL || code == CURLE_URL_MALFORMAT ||
        code == CURLE_TOO_MANY_REDIRECTS) {
        throw VoicesFailure(VoicesFailure::Kind::notFound, "cannot fetch " + url + ": " + why);
    }
    if (transient(code)) {
        return Outcome::tryAgain;
    }
    throw VoicesFailure(VoicesFailure::Kind::noNetwork, "cannot download " + url + ": " + why);
}

}  // namespace

void download(const std::string& url, const fs::path& partial, const DownloadOptions& options) {
    std::unique_ptr<ProgressLine> progress;
    if (options.showProgress) {
        progress = std::make_unique<ProgressLine>(urlFileName(url));
    }
    std::error_code error;
    bool startedOver = false;
    for (int attempt = 1;; ++attempt) {
        Outcome outcome = Outcome::tryAgain;
        try {
            outcome = requestRest(url, partial, options, progress.get());
        } catch (const VoicesFailure& failure) {
            // Only what arrived before a network failure is worth keeping.
            if (failure.kind() != VoicesFailure::Kind::noNetwork || fileSize(partial) == 0) {
                fs::remove(partial, error);
            }
            throw;
        }
        if (outcome == Outcome::done) {
            return;
        }
        if (outcome == Outcome::startOver && !startedOver) {
            startedOver = true;
            fs::remove(partial, error);
            continue;
        }
        if (attempt >= options.attempts) {
            if (fileSize(partial) == 0) {
                fs::remove(partial, error);
            }
            throw VoicesFailure(VoicesFailure::Kind::noNetwork,
                                "the download of " + url + " broke off after " +
                                    megabytes(static_cast<double>(fileSize(partial))) +
                                    "; the same command resumes it");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(250) * attempt);
    }
}

std::string sha256Hex(const fs::path& file) {
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        throw fs::filesystem_error("cannot read", file,
                                   std::error_code(errno, std::generic_category()));
    }
    const DescriptorCloser closer{descriptor};
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                    EVP_MD_CTX_free);
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) {
        throw std::runtime_error("SHA-256 is not available");
    }
    std::vector<unsigned char> buffer(1 << 20);
    for (;;) {
        const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw fs::filesystem_error("cannot read", file,
                                       std::error_code(errno, std::generic_category()));
        }
        if (count == 0) {
            break;
        }
        EVP_DigestUpdate(context.get(), buffer.data(), static_cast<size_t>(count));
    }
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int digestSize = 0;
    EVP_DigestFinal_ex(context.get(), digest.data(), &digestSize);
    std::string hex;
    for (unsigned int i = 0; i < digestSize; ++i) {
        constexpr const char* digits = "0123456789abcdef";
        hex += digits[digest[i] >> 4];
        hex += digits[digest[i] & 15];
    }
    return hex;
}

std::string urlFileName(const std::string& url) {
    const size_t end = url.find_first_of("?#");
    const std::string path = url.substr(0, end);
    const size_t scheme = path.find("://");
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos || (scheme != std::string::npos && slash < scheme + 3) ||
        slash + 1 == path.size()) {
        return "";
    }
    std::string name;
    const std::string segment = path.substr(slash + 1);
    for (size_t i = 0; i < segment.size(); ++i) {
        if (segment[i] == '%' && i + 2 < segment.size() &&
            std::isxdigit(static_cast<unsigned char>(segment[i + 1])) != 0 &&
            std::isxdigit(static_cast<unsigned char>(segment[i + 2])) != 0) {
            name += static_cast<char>(std::stoi(segment.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            name += segment[i];
        }
    }
    if (name == "." || name == ".." ||
        name.find_first_of(std::string("/\0", 2)) != std::string::npos) {
        return "";
    }
    return name;
}

std::string urlWithSuffix(const std::string& url, const std::string& suffix) {
    const size_t end = url.find_first_of("?#");
    if (end == std::string::npos) {
        return url + suffix;
    }
    return url.substr(0, end) + suffix + url.substr(end);
}

}  // namespace murmela
