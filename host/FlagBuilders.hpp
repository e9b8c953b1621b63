// SPDX-License-Identifier: Apache-2.0
//
// FlagBuilders: flags of the command line whose texts are turned into checked values as they are
// read. A text that cannot be read becomes the parser's complaint, which names the flag.

#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "datamodel/memcore/Outcome.hpp"
#include "host/ValueParsing.hpp"

namespace Host {

/// How a flag is written and explained.
struct FlagText {
  const char* names;      ///< "-o,--output"
  const char* valueName;  ///< "FILE"
  const char* help;
  const char* group;
};

/// Adds a flag whose text `parse` turns into a value or says what is wrong, and `store` takes in.
template <class Parse, class Store>
CLI::Option* addParsed(CLI::App& app, const FlagText& flag, Parse parse, Store store) {
  // The reader runs when the whole line is known; it knows its flag by the option's own name.
  auto option = std::make_shared<CLI::Option*>(nullptr);
  *option = app.add_option_function<std::string>(
      flag.names,
      [option, parse, store](const std::string& text) {
        auto parsed = parse(text);
        if (!parsed.ok()) throw CLI::ValidationError((*option)->get_name(), parsed.error());
        store(std::move(parsed).value());
      },
      flag.help);
  (*option)->type_name(flag.valueName)->group(flag.group);
  return *option;
}

template <class Number>
auto countParser(Number least, Number most) {
  return [least, most](const std::string& text) {
    return parseCount(text, static_cast<std::uint64_t>(least), static_cast<std::uint64_t>(most));
  };
}

template <class Number>
auto storeCount(Number& target) {
  return [&target](std::uint64_t value) { target = static_cast<Number>(value); };
}

template <class T>
auto storeIn(T& target) {
  return [&target](auto value) { target = std::move(value); };
}

/// A flag of several comma-separated values, which a configuration file may give as an array.
template <class Parse, class Store>
void addList(CLI::App& app, const FlagText& flag, Parse parse, Store store) {
  addParsed(app, flag, parse, store)->join(',');
}

/// A flag that takes one of a few words.
template <class Value>
void addChoice(CLI::App& app, const FlagText& flag,
               std::vector<std::pair<std::string, Value>> choices, Value& target) {
  const auto parse = [choices =
                          std::move(choices)](const std::string& text) -> MemCore::Outcome<Value> {
    std::string expected;
    for (std::size_t i = 0; i < choices.size(); ++i) {
      if (choices[i].first == text) return choices[i].second;
      const char* between = i == 0 ? "" : i + 1 == choices.size() ? " or " : ", ";
      expected += between + choices[i].first;
    }
    return MemCore::Failure{"found \"" + text + "\", expected " + expected};
  };
  addParsed(app, flag, parse, storeIn(target));
}

}  // namespace Host
