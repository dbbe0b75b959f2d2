// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/FilePaths.h"

#include <glib.h>
#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "platform/Utf8.h"

namespace hoist {
namespace {

// A URL path may hold these besides letters, digits and "-._~" (RFC 3986, pchar and "/"); ";" is
// left out, because some readers take it for the start of parameters.
constexpr const char* kAllowedInURLPath = "/!$&'()*+,=:@";

struct FreeGLib {
  void operator()(char* text) const { g_free(text); }
};
using GLibText = std::unique_ptr<char, FreeGLib>;

std::string_view withoutTrailingSlashes(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  return path;
}

// The home folder that a reentrant look-up in the password database finds.
template <class Look>
std::optional<std::string> homeFoundBy(Look&& look) {
  std::vector<char> buffer(1024);
  passwd entry;
  passwd* found = nullptr;
  int error;
  while ((error = look(&entry, buffer.data(), buffer.size(), &found)) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  if (error != 0 || !found || !found->pw_dir || !*found->pw_dir) return std::nullopt;
  return found->pw_dir;
}

}  // namespace

std::string stringFromFileSystemRepresentation(std::string_view bytes) {
  // Nearly every name is valid, which GLib sees fastest.
  if (g_utf8_validate_len(bytes.data(), bytes.size(), nullptr)) return std::string(bytes);
  return validUTF8(bytes);
}

std::string joinPath(std::string_view parent, std::string_view name) {
  std::string path;
  path.reserve(parent.size() + 1 + name.size());
  path = parent;
  if (!parent.ends_with('/')) path += '/';
  return path += name;
}

std::string baseName(std::string_view path) {
  if (path.empty()) return ".";
  path = withoutTrailingSlashes(path);
  if (path == "/") return "/";
  return std::string(path.substr(path.rfind('/') + 1));
}

std::string directoryName(std::string_view path) {
  path = withoutTrailingSlashes(path);
  auto slash = path.rfind('/');
  if (slash == std::string_view::npos) return ".";
  return std::string(withoutTrailingSlashes(path.substr(0, slash + 1)));
}

std::string appendPathComponent(std::string_view path, std::string_view component) {
  while (component.starts_with('/')) component.remove_prefix(1);
  if (path.empty()) return std::string(component);
  if (component.empty()) return std::string(withoutTrailingSlashes(path));
  return joinPath(withoutTrailingSlashes(path), component);
}

std::string deleteLastPathComponent(std::string_view path) {
  path = withoutTrailingSlashes(path);
  auto slash = path.rfind('/');
  if (slash == std::string_view::npos) return "";
  return std::string(withoutTrailingSlashes(path.substr(0, slash + 1)));
}

std::string pathExtension(std::string_view path) {
  path = withoutTrailingSlashes(path);
  auto name = path.substr(path.rfind('/') + 1);
  auto dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return "";
  return std::string(name.substr(dot + 1));
}

std::string appendPathExtension(std::string_view path, std::string_view extension) {
  std::string result(path);
  if (!extension.empty()) result.append(".").append(extension);
  return result;
}

std::optional<std::string> homeDirectory(unsigned userID) {
  return homeFoundBy([&](passwd* entry, char* buffer, std::size_t size, passwd** found) {
    return ::getpwuid_r(userID, entry, buffer, size, found);
  });
}

std::string expandTilde(std::string_view path) {
  if (!path.starts_with('~')) return std::string(path);
  auto end = std::min(path.find('/'), path.size());
  std::string user(path.substr(1, end - 1));
  auto home = user.empty()
                  ? homeDirectory(::geteuid())
                  : homeFoundBy([&](passwd* entry, char* buffer, std::size_t size, passwd** found) {
                      return ::getpwnam_r(user.c_str(), entry, buffer, size, found);
                    });
  if (!home) return std::string(path);
  return std::string(withoutTrailingSlashes(*home)).append(path.substr(end));
}

std::string standardizePath(std::string_view path) {
  std::string expanded = expandTilde(path);
  bool absolute = expanded.starts_with('/');
  std::vector<std::string_view> components;
  std::string_view rest = expanded;
  while (!rest.empty()) {
    auto end = std::min(rest.find('/'), rest.size());
    auto component = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (component.empty() || component == ".") continue;
    bool up = component == "..";
    if (up && !components.empty() && components.back() != "..") {
      components.pop_back();
    } else if (!up || !absolute) {
      components.push_back(component);
    }
  }
  std::string result = absolute ? "/" : "";
  for (auto component : components) {
    if (!result.empty() && result.back() != '/') result += '/';
    result += component;
  }
  // A relative path that cancels itself out is the folder it starts in.
  if (result.empty() && !expanded.empty()) return ".";
  return result;
}

std::string fileURL(std::string_view path) {
  GLibText encoded(g_uri_escape_bytes(reinterpret_cast<const guint8*>(path.data()), path.size(),
                                      kAllowedInURLPath));
  return std::string("file://") + encoded.get();
}

std::optional<std::string> pathOfURL(std::string_view url) {
  auto scheme = url.find("://");
  if (scheme == std::string_view::npos) return std::nullopt;
  auto rest = url.substr(scheme + 3);
  auto start = rest.find('/');
  if (start == std::string_view::npos) return std::nullopt;
  auto path = rest.substr(start);
  path = path.substr(0, path.find_first_of("?#"));
  // An encoded NUL would cut the path short.
  std::unique_ptr<GBytes, void (*)(GBytes*)> bytes(
      g_uri_unescape_bytes(path.data(), static_cast<gssize>(path.size()), nullptr, nullptr),
      g_bytes_unref);
  if (!bytes) return std::nullopt;
  gsize size = 0;
  auto data = static_cast<const char*>(g_bytes_get_data(bytes.get(), &size));
  std::string decoded(data, size);
  if (decoded.find('\0') != std::string::npos) return std::nullopt;
  return decoded;
}

std::optional<std::string> realPath(const char* path) {
  std::unique_ptr<char, decltype(&::free)> resolved(::realpath(path, nullptr), &::free);
  if (!resolved) return std::nullopt;
  return resolved.get();
}

}  // namespace hoist
