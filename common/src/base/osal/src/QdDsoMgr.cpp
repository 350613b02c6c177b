#include "QdDsoMgr.h"

#include <dlfcn.h>

#include <memory>

namespace Vantrel {

void* QdDsoMgr::findInHost(const char* symbol) {
    const std::unique_ptr<void, int (*)(void*)> host(::dlopen(nullptr, RTLD_LAZY), &::dlclose);
    return host ? ::dlsym(host.get(), symbol) : nullptr;
}

void QdDsoMgr::keepLoaded() {
    static const bool kept = [] {
        Dl_info module{};
        return ::dladdr(reinterpret_cast<void*>(&QdDsoMgr::keepLoaded), &module) != 0 &&
               ::dlopen(module.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE) != nullptr;
    }();
    static_cast<void>(kept);
}

}  // namespace Vantrel
