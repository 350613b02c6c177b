#pragma once

#include <string>

namespace Vantrel {

/// Facts about the running process. Thread-safe.
class CoProcess {
  public:
    static int getId();

    /// Name of the running program, as the system knows it; empty when it cannot be read.
    static std::string getName();

    /// The file mode creation mask. Read without changing it, since every thread shares it.
    static unsigned getUmask();

    /// Number of forks between this process and the one that loaded the library: 0 there, 1 in its child.
    /// The owner of a descriptor compares it with the value noted when the descriptor was opened, so that a
    /// child never uses its parent's connection.
    static unsigned forkGeneration();
};

}  // namespace Vantrel
