// What is wrong with a command line, in words.
#pragma once

#include <string>

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace recorderctl {

/// The words for it: those of the parser, but an unknown word is named for what it seems to be.
std::string misuse(const CLI::App& app, const CLI::ParseError& error);

}  // namespace recorderctl
