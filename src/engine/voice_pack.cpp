#include "engine/voice_pack.h"

#include <zlib.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <system_error>

#include "common/voice_error.h"
#include "files/files.h"

namespace murmela {
namespace {

static_assert(std::endian::native == std::endian::little, "the packs are little-endian");

constexpr uint32_t endOfDirectorySignature = 0x06054b50;
constexpr uint32_t directoryEntrySignature = 0x02014b50;
constexpr uint32_t localHeaderSignature = 0x04034b50;
constexpr uint16_t zip64ExtraId = 0x0001;
constexpr uint16_t stored = 0;
constexpr uint16_t deflated = 8;

// Little-endian fields of the zip format, read from a checked range.
uint64_t field(std::string_view bytes, size_t at, size_t width) {
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i) {
        value |= uint64_t{static_cast<uint8_t>(bytes[at + i])} << (8 * i);
    }
    return value;
}

std::string fileName(const std::filesystem::path& path) {
    return path.filename().string();
}

}  // namespace

void ZipArchive::fail(const std::string& problem) const {
    throw VoiceError::failed(name_ + ": " + problem);
}

ZipArchive::ZipArchive(std::string bytes, std::string name)
    : bytes_(std::move(bytes)), name_(std::move(name)) {
    const std::string_view all = bytes_;
    // The end record is 22 bytes plus a comment of at most 65535.
    constexpr size_t endSize = 22;
    if (all.size() < endSize) {
        fail("not a complete zip archive");
    }
    size_t end = all.size() - endSize;
    const size_t lowest = all.size() > endSize + 65535 ? all.size() - endSize - 65535 : 0;
    while (field(all, end, 4) != endOfDirectorySignature) {
        if (end == lowest) {
            fail("not a complete zip archive");
        }
        --end;
    }
    const uint64_t count = field(all, end + 10, 2);
    const uint64_t directorySize = field(all, end + 12, 4);
    const uint64_t directoryStart = field(all, end + 16, 4);
    if (directoryStart > end || directorySize > end - directoryStart) {
        fail("not a complete zip archive");
    }
    size_t at = directoryStart;
    const size_t directoryEnd = directoryStart + directorySize;
    for (uint64_t index = 0; index < count; ++index) {
        constexpr size_t entrySize = 46;
        if (directoryEnd - at < entrySize || field(all, at, 4) != directoryEntrySignature) {
            fail("its member list is damaged");
        }
        Member member{};
        member.method = static_cast<uint16_t>(field(all, at + 10, 2));
        member.compressedSize = field(all, at + 20, 4);
        member.size = field(all, at + 24, 4);
        const size_t nameLength = field(all, at + 28, 2);
        const size_t extraLength = field(all, at + 30, 2);
        const size_t commentLength = field(all, at + 32, 2);
        member.localHeader = field(all, at + 42, 4);
        if (directoryEnd - at - entrySize < nameLength + extraLength + commentLength) {
            fail("its member list is damaged");
        }
        member.name = std::string(all.substr(at + entrySize, nameLength));
        // Sizes and offsets too large for their fields are in the zip64 extra field, in order.
        std::string_view extra = all.substr(at + entrySize + nameLength, extraLength);
        while (extra.size() >= 4) {
            const uint16_t id = static_cast<uint16_t>(field(extra, 0, 2));
            const size_t length = std::min<size_t>(field(extra, 2, 2), extra.size() - 4);
            if (id == zip64ExtraId) {
                size_t offset = 4;
                for (uint64_t* value :
                     {&member.size, &member.compressedSize, &member.localHeader}) {
                    if (*value == 0xFFFFFFFF && offset + 8 <= 4 + length) {
                        *value = field(extra, offset, 8);
                        offset += 8;
                    }
                }
            }
            extra.remove_prefix(4 + length);
        }
        members_.push_back(std::move(member));
        at += entrySize + nameLength + extraLength + commentLength;
    }
}

std::vector<std::string> ZipArchive::names() const {
    std::vector<std::string> result;
    for (const Member& member : members_) {
        result.push_back(member.name);
    }
    return result;
}

std::string ZipArchive::read(std::string_view wanted) const {
    const auto found = std::find_if(members_.begin(), members_.end(),
                                    [&](const Member& member) { return member.name == wanted; });
    if (found == members_.end()) {
        fail("has no member " + std::string(wanted));
    }
    const std::string_view all = bytes_;
    constexpr size_t headerSize = 30;
    if (found->localHeader > all.size() || all.size() - found->localHeader < headerSize ||
        field(all, found->localHeader, 4) != localHeaderSignature) {
        fail("member " + found->name + " is damaged");
    }
    const uint64_t start = found->localHeader + headerSize +
                           field(all, found->localHeader + 26, 2) +
                           field(all, found->localHeader + 28, 2);
    if (start > all.size() || all.size() - start < found->compressedSize) {
        fail("member " + found->name + " is cut short");
    }
    const std::string_view data = all.substr(start, found->compressedSize);
    if (found->method == stored) {
        if (found->size != found->compressedSize) {
            fail("member " + found->name + " is damaged");
        }
        return std::string(data);
    }
    if (found->method != deflated) {
        fail("member " + found->name + " is compressed in an unknown way");
    }
    // A style table is half a megabyte: a member claiming far more is not one, and is not
    // given the memory it claims.
    constexpr uint64_t largest = uint64_t{16} << 20;
    if (found->size > largest || data.size() > std::numeric_limits<uInt>::max()) {
        fail("member " + found->name + " is too large");
    }
    std::string out(found->size, '\0');
    z_stream stream{};
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) {
        fail("member " + found->name + " can't be inflated");
    }
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    stream.avail_in = static_cast<uInt>(data.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    const int status = inflate(&stream, Z_FINISH);
    const uLong made = stream.total_out;
    inflateEnd(&stream);
    if (status != Z_STREAM_END || made != out.size()) {
        fail("member " + found->name + " is damaged");
    }
    return out;
}

StyleTable parseStyleArray(std::string_view npy, const std::string& name) {
    auto fail = [&name](const std::string& problem) -> StyleTable {
        throw VoiceError::failed(name + ": " + problem);
    };
    constexpr std::string_view magic = "\x93NUMPY";
    if (npy.size() < 10 || npy.substr(0, magic.size()) != magic) {
        return fail("not a NumPy array");
    }
    const auto major = static_cast<uint8_t>(npy[6]);
    const size_t lengthWidth = major == 1 ? 2 : 4;
    if (major < 1 || major > 3 || npy.size() < 8 + lengthWidth) {
        return fail("not a NumPy array");
    }
    const uint64_t headerLength = field(npy, 8, lengthWidth);
    const size_t dataStart = 8 + lengthWidth + headerLength;
    if (npy.size() < dataStart) {
        return fail("its array header is cut short");
    }
    std::string header(npy.substr(8 + lengthWidth, headerLength));
    std::erase(header, ' ');
    const bool littleFloats = header.find("'descr':'<f4'") != std::string::npos;
    const bool rowMajor = header.find("'fortran_order':False") != std::string::npos;
    const bool shaped = header.find("'shape':(510,1,256)") != std::string::npos ||
                        header.find("'shape':(510,256)") != std::string::npos;
    if (!littleFloats || !rowMajor || !shaped) {
        return fail("not a 510 x 256 table of little-endian float32 values");
    }
    const std::string_view data = npy.substr(dataStart);
    if (data.size() != styleRows * styleWidth * sizeof(float)) {
        return fail("its table has " + std::to_string(data.size()) + " bytes, not " +
                    std::to_string(styleRows * styleWidth * sizeof(float)));
    }
    StyleTable table(styleRows * styleWidth);
    std::memcpy(table.data(), data.data(), data.size());
    return table;
}

std::vector<std::string> packVoices(const std::filesystem::path& pack) {
    std::vector<std::string> voices;
    std::error_code error;
    if (std::filesystem::is_directory(pack, error)) {
        for (const auto& entry : std::filesystem::directory_iterator(pack, error)) {
            if (entry.path().extension() == ".bin") {
                voices.push_back(entry.path().stem().string());
            }
        }
    } else {
        for (const std::string& member : ZipArchive(readFile(pack), fileName(pack)).names()) {
            if (member.ends_with(".npy")) {
                voices.push_back(member.substr(0, member.size() - 4));
            }
        }
    }
    std::sort(voices.begin(), voices.end());
    return voices;
}

StyleTable readStyleTable(const std::filesystem::path& pack, const std::string& voice) {
    std::error_code error;
    if (std::filesystem::is_directory(pack, error)) {
        const std::filesystem::path file = pack / (voice + ".bin");
        if (voice.find('/') != std::string::npos || !std::filesystem::exists(file, error)) {
            throw VoiceError::failed(fileName(pack) + "/ has no voice " + voice);
        }
        const std::string bytes = readFile(file);
        if (bytes.size() != styleRows * styleWidth * sizeof(float)) {
            throw VoiceError::failed(fileName(pack) + "/" + voice + ".bin has " +
                                     std::to_string(bytes.size()) + " bytes, not " +
                                     std::to_string(styleRows * styleWidth * sizeof(float)));
        }
        StyleTable table(styleRows * styleWidth);
        std::memcpy(table.data(), bytes.data(), bytes.size());
        return table;
    }
    const ZipArchive archive(readFile(pack), fileName(pack));
    const std::string member = voice + ".npy";
    const std::vector<std::string> names = archive.names();
    if (std::find(names.begin(), names.end(), member) == names.end()) {
        throw VoiceError::failed(fileName(pack) + " has no voice " + voice);
    }
    return parseStyleArray(archive.read(member), fileName(pack) + " " + voice);
}

}  // namespace murmela
