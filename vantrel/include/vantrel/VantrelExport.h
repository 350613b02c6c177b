#pragma once

/// Marks what the shared library offers to applications; everything else in it is hidden.
#if defined(__GNUC__)
#define VANTREL_API __attribute__((visibility("default")))
#else
#define VANTREL_API
#endif
