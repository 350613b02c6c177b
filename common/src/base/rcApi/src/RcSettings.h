#pragma once

#include "CoEnv.h"

namespace Vantrel {

/// Environment variables of the remote-command layer. Their upper bounds keep every buffer that a peer can
/// make grow within what the program is meant to hold.
namespace RcSettings {

constexpr long MEBIBYTE = 1024L * 1024L;

/// Largest reply line that an endpoint takes, in bytes without the newline.
inline const CoEnvInt maxReplyBytes("VANTREL_MAX_REPLY_BYTES", 128 * MEBIBYTE, 1, 1L << 40);
/// Largest command line that a server context takes, in bytes without the newline.
inline const CoEnvInt maxCommandBytes("VANTREL_MAX_COMMAND_BYTES", 64 * MEBIBYTE, 1, 1L << 40);

}  // namespace RcSettings

}  // namespace Vantrel
