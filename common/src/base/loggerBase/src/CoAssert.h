#pragma once

namespace Vantrel {

/// Logs a programming error at error level: the condition that did not hold, the source file (relative to the
/// repository root, without extension) and the line. Returns false. Never ends the host process.
bool coAssertFailed(const char* condition, const char* file, int line);

}  // namespace Vantrel

/// True when `condition` holds; otherwise logs the assertion and is false, so that the call can fail safely:
///     if (!CO_ASSERT(index < size())) return "";
#define CO_ASSERT(condition) CO_ASSERT_NAMED(condition, #condition)
/// The same with the text that the log shows.
#define CO_ASSERT_NAMED(condition, text) \
    ((condition) ? true : ::Vantrel::coAssertFailed(text, __FILE__, __LINE__))
