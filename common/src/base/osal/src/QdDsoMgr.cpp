#include "QdDsoMgr.h"

#include <dlfcn.h>

#include <memory>
#include <mutex>

namespace Vantrel {

void* QdDsoMgr::findInHost(const char* symbol) {
    const std::unique_ptr<void, int (*)(void*)> host(::dlopen(nullptr, RTLD_LAZY), &::dlclose);
    return host ? ::dlsym(host.get(), symbol) : nullptr;
}

void QdDsoMgr::keepLoaded() {
    // Unlike a static variable's guard, a once_flag does not keep a forked child waiting for a thread of its
    // parent.
    static std::once_flag once;
    std::call_once(once, [] {
        Dl_info module{};
        if (::dladdr(reinterpret_cast<void*>(&QdDsoMgr::keepLoaded), &module) != 0)
            ::dlopen(module.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    });
}

}  // namespace Vantrel
