#include "QdDsoMgr.h"

#include <dlfcn.h>

#include <memory>

namespace Vantrel {

void* QdDsoMgr::findInHost(const char* symbol) {
    const std::unique_ptr<void, int (*)(void*)> host(::dlopen(nullptr, RTLD_LAZY), &::dlclose);
    return host ? ::dlsym(host.get(), symbol) : nullptr;
}

}  // namespace Vantrel
