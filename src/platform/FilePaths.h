// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace hoist {

// Pure functions on names and paths, which are bytes without NUL. None of them touches the disk,
// unless it says so. Safe from any thread.

// The bytes as text: valid UTF-8 as it is, each byte that belongs to none as U+FFFD.
std::string stringFromFileSystemRepresentation(std::string_view bytes);

// The parent, a "/" unless the parent ends in one, and the name. An empty parent gives "/name".
std::string joinPath(std::string_view parent, std::string_view name);

// The last component and what is before it, as basename(3) and dirname(3) have them: slashes at the
// end do not count, an empty path is ".", the root is "/" in both.
std::string baseName(std::string_view path);
std::string directoryName(std::string_view path);

// The path with one component appended; an empty path gives the component alone, an empty component
// the path.
std::string appendPathComponent(std::string_view path, std::string_view component);
// The path without its last component: "/a" gives "/", "a" gives "", "/" stays.
std::string deleteLastPathComponent(std::string_view path);

// What follows the last dot of the last component; empty if there is no dot, or only one at the
// component's beginning.
std::string pathExtension(std::string_view path);
// The path with a dot and the extension; the path as it is when the extension is empty.
std::string appendPathExtension(std::string_view path, std::string_view extension);

// A leading "~" or "~user" replaced by the home folder of the effective user or of that user; the
// path as it is when there is none. Reads the password database.
std::string expandTilde(std::string_view path);
// The home folder of a user in the password database.
std::optional<std::string> homeDirectory(unsigned userID);

// The path with its tilde expanded and without ".", "..", repeated slashes and slashes at the end.
// Lexical: links are not looked at, ".." above the root is dropped, ".." at the start of a relative
// path stays.
std::string standardizePath(std::string_view path);

// "file://" and the path with every byte that a URL cannot hold percent-encoded, so that the URL
// leads back to exactly these bytes.
std::string fileURL(std::string_view path);
// The decoded path of a URL; nothing when it has none or the path holds an encoded NUL.
std::optional<std::string> pathOfURL(std::string_view url);

// The path without links, "." and "..", as realpath(3) finds it on disk; nothing when it does not
// resolve (errno is left set).
std::optional<std::string> realPath(const char* path);

}  // namespace hoist
