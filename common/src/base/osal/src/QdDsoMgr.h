#pragma once

namespace Vantrel {

/// Looks symbols up in the program that loaded this library. Thread-safe.
class QdDsoMgr {
  public:
    /// Address of a symbol that the host program exports, or null.
    static void* findInHost(const char* symbol);
};

}  // namespace Vantrel
