#pragma once

#include <cstddef>
#include <string>

/// Local files of commands. Every function throws ToolError with what was tried, on which file, and the
/// system's reason.

/// The whole content, of at most `limit` bytes.
std::string readLocalFile(const std::string& path, std::size_t limit);

/// Replaces or creates the file. A regular file that could not be written whole is removed; whatever else the
/// path names, such as /dev/stdout, stays.
void writeLocalFile(const std::string& path, const char* data, std::size_t size);

/// Creates the folder, and those above it, where they are missing.
void createFolder(const std::string& path);

/// A name that is safe as one component of a path, made of a display name: no separator, no control
/// character, no leading dot, never empty (`fallback` then), at most 200 bytes.
std::string safeFileName(const std::string& displayName, const std::string& fallback);
