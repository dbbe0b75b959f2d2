// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/Setting.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <time.h>
#include <unistd.h>

#include <cctype>
#include <charconv>
#include <filesystem>

#include "filesystem/PXPath.h"
#include "filesystem/PXVolumeInfo.h"
#include "hoistctl/CommandError.h"
#include "hoistctl/DetailsTree.h"
#include "platform/SystemCall.h"
#include "platform/xpc/ArgumentWriter.h"

namespace hoist::ctl {
namespace {

using Write = std::function<void(xpc::ArgumentWriter&)>;

[[noreturn]] void refuse(const std::string& text, const char* expected) {
  throw CommandError(Failure::Usage, fmt::format("{} is no {}", text, expected));
}

bool truthOf(const std::string& text) {
  for (const char* yes : {"yes", "true", "on", "1"})
    if (text == yes) return true;
  for (const char* no : {"no", "false", "off", "0"})
    if (text == no) return false;
  refuse(text, "yes or no");
}

template <class Number>
Number numberOf(const std::string& text) {
  Number number{};
  const char* end = text.data() + text.size();
  auto result = std::from_chars(text.data(), end, number);
  if (result.ec != std::errc() || result.ptr != end) refuse(text, "number that fits");
  return number;
}

// Seconds since 1970, UTC.
double dateOf(const std::string& text) {
  for (const char* format : {"%Y-%m-%dT%H:%M:%SZ", "%Y-%m-%d"}) {
    struct tm parts {};
    const char* end = ::strptime(text.c_str(), format, &parts);
    if (end && *end == '\0') return static_cast<double>(::timegm(&parts));
  }
  return numberOf<double>(text);
}

std::vector<std::string> textsOf(const std::string& text) {
  std::vector<std::string> texts;
  for (std::size_t start = 0; start <= text.size();) {
    std::size_t end = std::min(text.find(',', start), text.size());
    texts.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return texts;
}

// The file is opened here, with the rights of who asked, not by the helper.
Ref<FileDescriptor> fileOf(const std::string& path) {
  FileDescriptor file(path == "-"
                          ? ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                          : ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!file) throw CommandError(Failure::Usage, SystemCallError(errno, "open", path).what());
  return make<FileDescriptor>(std::move(file));
}

// An object of a class that only helper and client know: its fields as they were given.
class FieldsObject final : public Object {
 public:
  FieldsObject(std::string className, Dictionary fields)
      : className_(std::move(className)), fields_(std::move(fields)) {}
  std::string className() const override { return className_; }
  bool isCodable() const override { return true; }
  void encodeWithCoder(Encoder& encoder) const override {
    for (const auto& [key, value] : fields_) encoder.encodeObject(key, value);
  }

 private:
  const std::string className_;
  const Dictionary fields_;
};

Ref<Object> objectOf(const std::string& className, const std::string& text) {
  if (className != "PXPath" && className != "PXVolumeInfo")
    return make<FieldsObject>(className, dictionaryFromJson(text));
  std::string path = std::filesystem::absolute(text).lexically_normal().string();
  if (className == "PXPath") return PXPath::pathWithPath(path);
  return PXVolumeInfo::volumeInfoForPath(path);
}

// What writes the text as a value of the argument's type, the array around what may be nil left
// away.
Write writerOf(const std::string& text, const std::string& type, const std::string& className) {
  using Writer = xpc::ArgumentWriter;
  if (type == "b") return [v = truthOf(text)](Writer& w) { w.writeBool(v); };
  if (type == "i") return [v = numberOf<std::int32_t>(text)](Writer& w) { w.writeInt32(v); };
  if (type == "u") return [v = numberOf<std::uint32_t>(text)](Writer& w) { w.writeUInt32(v); };
  if (type == "q") return [v = numberOf<std::uint16_t>(text)](Writer& w) { w.writeUInt16(v); };
  if (type == "x") return [v = numberOf<std::int64_t>(text)](Writer& w) { w.writeInt64(v); };
  if (type == "t") return [v = numberOf<std::uint64_t>(text)](Writer& w) { w.writeUInt64(v); };
  if (type == "d") return [v = dateOf(text)](Writer& w) { w.writeDouble(v); };
  if (type == "s") return [text](Writer& w) { w.writeString(text); };
  if (type == "as") return [v = textsOf(text)](Writer& w) { w.writeStrings(v); };
  if (type == "h") return [v = fileOf(text)](Writer& w) { w.writeDescriptor(v->get()); };
  if (type == "a{sv}") return [v = dictionaryFromJson(text)](Writer& w) { w.writeDictionary(v); };
  if (type == "(sa{sv})") return [v = objectOf(className, text)](Writer& w) { w.writeObject(v); };
  throw CommandError(Failure::Usage, "a property of this kind cannot be set from here: " + type);
}

Write nilableWriterOf(const std::optional<std::string>& text, const xpc::Argument& argument) {
  if (!argument.nilable) return writerOf(text.value_or(""), argument.signature, argument.className);
  Write value;
  if (text) value = writerOf(*text, argument.signature.substr(1), argument.className);
  return [value](xpc::ArgumentWriter& writer) {
    writer.openNilable();
    if (value) value(writer);
    writer.closeNilable();
  };
}

const xpc::Method* setterOf(std::string property, const xpc::Protocol& protocol) {
  if (!property.empty())
    property[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(property[0])));
  const auto* method = protocol.methodWithSelector("set" + property + ":");
  return method ? method : protocol.methodWithSelector("add" + property + ":");
}

}  // namespace

Setting::Setting(const std::string& text, const xpc::Protocol& protocol)
    : property_(text.substr(0, text.find('='))), method_(setterOf(property_, protocol)) {
  if (!method_ || method_->hasReply || method_->arguments.size() != 1)
    throw CommandError(Failure::Usage, "the command has no property " + property_);
  std::optional<std::string> value;
  if (property_.size() < text.size()) value = text.substr(property_.size() + 1);
  try {
    write_ = nilableWriterOf(value, method_->arguments[0]);
  } catch (const CommandError& error) {
    throw CommandError(error.kind(), property_ + ": " + error.what());
  } catch (const std::exception& error) {
    throw CommandError(Failure::Usage, property_ + ": " + error.what());
  }
}

}  // namespace hoist::ctl
