// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/DetailsTree.h"

#include <fmt/format.h>

#include <algorithm>

#include "exceptions/KLException.h"
#include "hoistctl/CommandError.h"
#include "hoistctl/Output.h"

namespace hoist::ctl {
namespace {

std::string headline(const ExceptionState& exception) {
  return fmt::format("<{}> {}", shown(exception.name), shown(describe(exception.reason)));
}

struct Branch {
  std::string label;
  std::string text;
  std::vector<Branch> branches;
};

std::vector<Branch> branchesOf(const Dictionary& dictionary);

Branch branchOf(std::string label, const Value& value) {
  Branch branch{.label = std::move(label)};
  if (const auto* dictionary = value.dictionary()) {
    branch.branches = branchesOf(*dictionary);
  } else if (const auto* array = value.array()) {
    for (std::size_t i = 0; i < array->size(); ++i)
      branch.branches.push_back(branchOf(std::to_string(i), (*array)[i]));
  } else if (auto exception = value.objectAs<ExceptionState>()) {
    branch.text = headline(*exception);
    branch.branches = branchesOf(exception->userInfo);
  } else {
    branch.text = shown(value.description());
  }
  return branch;
}

std::vector<Branch> branchesOf(const Dictionary& dictionary) {
  std::vector<Branch> branches;
  for (const auto& [key, value] : dictionary)
    if (!key.starts_with('.')) branches.push_back(branchOf(shown(key), value));
  return branches;
}

void appendBranches(std::string& text, const std::vector<Branch>& branches,
                    const std::string& indent) {
  std::size_t width = 0;
  for (const auto& branch : branches) width = std::max(width, branch.label.size());
  for (const auto& branch : branches) {
    bool last = &branch == &branches.back();
    text += indent + (last ? "└─ " : "├─ ");
    text += branch.text.empty() ? branch.label
                                : fmt::format("{:<{}}  {}", branch.label, width, branch.text);
    text += '\n';
    appendBranches(text, branch.branches, indent + (last ? "   " : "│  "));
  }
}

Json asJson(const Value& value);

Json asJson(const Dictionary& dictionary) {
  Json json = Json::object();
  for (const auto& [key, value] : dictionary) json[key] = asJson(value);
  return json;
}

Json asJson(const ExceptionState& exception) {
  Json json{{"name", exception.name}};
  if (exception.reason) json["reason"] = *exception.reason;
  json["details"] = asJson(exception.userInfo);
  return json;
}

Json asJson(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::Null:
      return nullptr;
    case Value::Kind::Boolean:
      return *value.boolean();
    case Value::Kind::Integer:
      return *value.integer();
    case Value::Kind::Double:
      return *value.real();
    case Value::Kind::String:
      return *value.string();
    case Value::Kind::Dictionary:
      return asJson(*value.dictionary());
    case Value::Kind::Array: {
      Json json = Json::array();
      for (const auto& element : *value.array()) json.push_back(asJson(element));
      return json;
    }
    default:
      if (auto exception = value.objectAs<ExceptionState>()) return asJson(*exception);
      return value.description();
  }
}

Value valueFrom(const Json& json);

Dictionary dictionaryFrom(const Json& json) {
  Dictionary dictionary;
  for (const auto& [key, value] : json.items()) dictionary.emplace(key, valueFrom(value));
  return dictionary;
}

Value valueFrom(const Json& json) {
  if (json.is_boolean()) return json.get<bool>();
  if (json.is_number_integer()) return json.get<std::int64_t>();
  if (json.is_number()) return json.get<double>();
  if (json.is_string()) return json.get<std::string>();
  if (json.is_object()) return dictionaryFrom(json);
  if (!json.is_array()) return {};
  Array array;
  for (const auto& element : json) array.push_back(valueFrom(element));
  return array;
}

}  // namespace

std::string detailsTree(const Exception& exception) {
  std::string text = headline(*exception.state()) + '\n';
  const auto& details = exception.userInfo();
  auto explanation = details.find(detail_key::Explain);
  if (explanation != details.end()) text += shown(explanation->second.description()) + '\n';
  appendBranches(text, branchesOf(details), "");
  return text;
}

Json exceptionAsJson(const Exception& exception) {
  return asJson(*exception.state());
}

Dictionary dictionaryFromJson(const std::string& text) {
  auto json = Json::parse(text, nullptr, false);
  if (!json.is_object()) throw CommandError(Failure::Usage, "no JSON object: " + text);
  return dictionaryFrom(json);
}

}  // namespace hoist::ctl
