#include "CoFilePath.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <vector>

namespace Vantrel {

namespace {
constexpr char SEPARATOR = '/';
}

std::string CoFilePath::clean(std::string_view path) {
    const bool absolute = !path.empty() && path.front() == SEPARATOR;
    std::vector<std::string_view> components;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find(SEPARATOR), path.size());
        const std::string_view component = path.substr(0, end);
        path.remove_prefix(std::min(end + 1, path.size()));
        if (component.empty() || component == ".") continue;
        if (component != "..") {
            components.push_back(component);
        } else if (!components.empty() && components.back() != "..") {
            components.pop_back();
        } else if (!absolute) {
            components.push_back(component);
        }
    }

    std::string cleaned;
    for (const std::string_view component : components) {
        if (absolute || !cleaned.empty()) cleaned += SEPARATOR;
        cleaned += component;
    }
    if (absolute && cleaned.empty()) cleaned = SEPARATOR;
    return cleaned;
}

std::string CoFilePath::directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind(SEPARATOR);
    if (slash == std::string::npos) return ".";
    return slash == 0 ? std::string(1, SEPARATOR) : path.substr(0, slash);
}

int CoFilePath::makeDirectories(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    return error.value();
}

}  // namespace Vantrel
