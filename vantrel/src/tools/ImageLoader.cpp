#include "ImageLoader.h"

#include <dlfcn.h>

#include <filesystem>

#include "ToolError.h"

namespace {

constexpr const char* MODULE = "vantrel-images.so";

// Beside the program, as it is built, or where it is installed. Found from the program's place and not by a
// search path, so that the whole installation can be moved.
std::string modulePath() {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    const std::filesystem::path beside = folder / MODULE;
    return std::filesystem::exists(beside, error) ? beside : folder / VANTREL_INSTALLED_MODULES / MODULE;
}

const ImageFunctions& load() {
    const std::string path = modulePath();
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* entry = module != nullptr ? dlsym(module, IMAGE_MODULE_ENTRY) : nullptr;
    if (entry == nullptr) {
        const char* reason = dlerror();
        throw ToolError("cannot load image support: " + (reason != nullptr ? std::string(reason) : path));
    }
    return *reinterpret_cast<ImageModuleEntry*>(entry)();
}

}  // namespace

const ImageFunctions& imageFunctions() {
    static const ImageFunctions& functions = load();
    return functions;
}
