// The text form of settings that belong to a part of the platform: name=value, separated by blanks.
#pragma once
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "pantiq/platform/PQPlatform.h"

namespace pantiq {

using PQSettingsList = std::vector<std::pair<std::string, std::string>>;

// "contrast=1.3 text='a b'": a value may stand in single or double quotes, which have no escapes. A name that stands
// twice is refused, as is everything that is no name=value; the detail then tells what was found.
inline PQPlatformResult PQParseSettings(const std::string& text, PQSettingsList& settings) {
  constexpr const char* kBlanks = " \t\r\n";
  settings.clear();
  for (std::size_t at = text.find_first_not_of(kBlanks); at != std::string::npos;) {
    const std::size_t word_end = text.find_first_of(kBlanks, at);
    const std::size_t equals = text.find('=', at);
    const std::string word = text.substr(at, word_end == std::string::npos ? word_end : word_end - at);
    if (equals == std::string::npos || equals == at || (word_end != std::string::npos && equals > word_end)) {
      return {kPlatformFormat, "'" + word + "' is no setting; expected name=value, separated by blanks"};
    }
    std::string name = text.substr(at, equals - at), value;
    at = equals + 1;
    if (at < text.size() && (text[at] == '"' || text[at] == '\'')) {
      const std::size_t close = text.find(text[at], at + 1);
      if (close == std::string::npos) return {kPlatformFormat, name + ": the quotes of its value do not end"};
      value = text.substr(at + 1, close - at - 1);
      at = close + 1;
      if (at < text.size() && std::string(kBlanks).find(text[at]) == std::string::npos) {
        return {kPlatformFormat, name + ": a blank is missing after the quotes of its value"};
      }
    } else {
      const std::size_t end = std::min(text.find_first_of(kBlanks, at), text.size());
      value = text.substr(at, end - at);
      at = end;
    }
    for (const auto& earlier : settings) {
      if (earlier.first == name) return {kPlatformFormat, name + " is set twice"};
    }
    settings.emplace_back(std::move(name), std::move(value));
    at = text.find_first_not_of(kBlanks, at);
  }
  return {};
}

}  // namespace pantiq
