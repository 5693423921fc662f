// How the programs answer a command line they cannot parse (CLI11): one line on stderr,
// "PROGRAM: what is wrong; PROGRAM --help lists ...", exit code 2. --help and --version print
// their text and exit 0. Header only: the daemon and the client include it; no state.
#pragma once

#include <CLI/CLI.hpp>
#include <iostream>
#include <string>

namespace host {

// CLI11's message as one line: its line breaks become blanks, trailing blanks go.
inline std::string oneLine(std::string text) {
  for (char& c : text)
    if (c == '\n' || c == '\r') c = ' ';
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

// Handles a parse error of `app` (the program `program`, `helpCommand` naming the command whose
// --help explains the mistake, e.g. "calljournal list"). Returns the process's exit code.
inline int usageError(const CLI::App& app, const CLI::ParseError& e, const std::string& program,
                      const std::string& helpCommand) {
  if (e.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) return app.exit(e);  // --help, --version
  std::cerr << program << ": " << oneLine(e.what()) << "; see " << helpCommand << " --help\n";
  return 2;
}

}  // namespace host
