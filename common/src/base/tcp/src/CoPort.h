#pragma once

namespace Vantrel {

/// Numbers of TCP and UDP ports go from 1 to this; 0 stands for any free one, or for none.
constexpr int HIGHEST_PORT = 65535;

}  // namespace Vantrel
