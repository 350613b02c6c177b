#include "LocalFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include "ToolError.h"

namespace {

constexpr std::size_t MAX_NAME_BYTES = 200;  // leaves room in NAME_MAX for a frame number and an ending
constexpr std::size_t PIECE_BYTES = 1 << 20;

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

[[noreturn]] void fail(const char* attempt, const std::string& path, const std::string& reason) {
    throw ToolError(std::string("cannot ") + attempt + " '" + path + "': " + reason);
}

File open(const std::string& path, const char* mode, const char* attempt) {
    File file(std::fopen(path.c_str(), mode));
    if (!file) fail(attempt, path, std::strerror(errno));
    return file;
}

bool continuesCharacter(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

}  // namespace

std::string readLocalFile(const std::string& path, std::size_t limit) {
    const File file = open(path, "rbe", "open");
    std::string content;
    for (;;) {
        const std::size_t before = content.size();
        content.resize(before + PIECE_BYTES);
        const std::size_t got = std::fread(&content[before], 1, PIECE_BYTES, file.get());
        content.resize(before + got);
        if (content.size() > limit)
            fail("use", path, "it is larger than " + std::to_string(limit) + " bytes");
        if (got < PIECE_BYTES) break;
    }
    if (std::ferror(file.get()) != 0) fail("read", path, std::strerror(errno));
    return content;
}

void writeLocalFile(const std::string& path, const char* data, std::size_t size) {
    File file = open(path, "wbe", "create");
    const bool written = std::fwrite(data, 1, size, file.get()) == size;
    int error = written ? 0 : errno;
    if (std::fclose(file.release()) != 0 && error == 0) error = errno;
    if (error == 0) return;
    std::error_code ignored;
    if (std::filesystem::is_regular_file(path, ignored)) std::remove(path.c_str());
    fail("write", path, std::strerror(error));
}

void createFolder(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error && !std::filesystem::is_directory(path)) fail("create folder", path, error.message());
}

std::string safeFileName(const std::string& displayName, const std::string& fallback) {
    std::string name = displayName;
    const auto unsafe = [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F || c == '/' || c == '\\';
    };
    std::replace_if(name.begin(), name.end(), unsafe, '_');
    if (!name.empty() && name[0] == '.') name[0] = '_';
    if (name.size() > MAX_NAME_BYTES) {
        std::size_t end = MAX_NAME_BYTES;
        while (end > 0 && continuesCharacter(name[end])) --end;
        name.resize(end);
    }
    return name.empty() ? fallback : name;
}
