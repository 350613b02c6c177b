#pragma once

namespace Vantrel {

/// This library and the program that loaded it. Thread-safe.
class QdDsoMgr {
  public:
    /// Address of a symbol that the host program exports, or null.
    static void* findInHost(const char* symbol);

    /// Keeps this library in memory when the host unloads it, for what stays behind: threads that are
    /// not joined, and objects that are never destroyed and which a later load would make again.
    static void keepLoaded();
};

}  // namespace Vantrel
