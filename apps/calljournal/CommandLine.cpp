#include "CommandLine.h"
#include "EditDistance.h"

#include <algorithm>
#include <iostream>

#include "UsageErrors.h"

namespace cli {

namespace {

std::vector<std::string> subcommandNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
    names.push_back(sub->get_name());
  return names;
}

const CLI::App* subcommandNamed(const CLI::App& app, const std::string& name) {
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
    if (sub->get_name() == name) return sub;
  return nullptr;
}

// True when `token` names an option of `app` or of a command above it that takes a value.
bool takesValue(const CLI::App* app, const std::string& token) {
  for (; app != nullptr; app = app->get_parent()) {
    const CLI::Option* option = app->get_option_no_throw(token);
    if (option != nullptr) return option->get_type_size_max() > 0;
  }
  return false;
}

// Follows the command words of `argv` down the command tree. `path` gets the commands named
// ("calljournal config"); `unknown` the first word where a command was due and none is named.
void followCommands(const CLI::App& app, int argc, char** argv, std::string& path, std::string& unknown,
                    const CLI::App*& last) {
  last = &app;
  path = app.get_name();
  for (int i = 1; i < argc; ++i) {
    const std::string token = argv[i];
    if (token.size() > 1 && token[0] == '-') {
      if (token.find('=') == std::string::npos && takesValue(last, token)) ++i;
      continue;
    }
    if (subcommandNames(*last).empty()) return;  // the words here are the command's arguments
    const CLI::App* sub = subcommandNamed(*last, token);
    if (sub == nullptr) {
      if (last->get_options([](const CLI::Option* o) { return o->get_positional(); }).empty()) unknown = token;
      return;
    }
    last = sub;
    path += " " + token;
  }
}

}  // namespace

std::string nearestName(const std::string& word, const std::vector<std::string>& names) {
  std::string best;
  std::size_t bestDistance = 3;
  for (const std::string& name : names) {
    const std::size_t distance = host::editDistance(word, name);
    if (distance < bestDistance) bestDistance = distance, best = name;
  }
  if (best.empty() && word.size() >= 2)
    for (const std::string& name : names)
      if (name.compare(0, word.size(), word) == 0) return name;
  return best;
}

int parseCommandLine(CLI::App& app, int argc, char** argv) {
  try {
    app.parse(argc, argv);
    return -1;
  } catch (const CLI::ParseError& e) {
    std::string path, unknown;
    const CLI::App* last = nullptr;
    followCommands(app, argc, argv, path, unknown, last);
    if (unknown.empty() || e.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
      return host::usageError(app, e, app.get_name(), path);
    // "config gte" is named with its parent command: unknown command "config gte"; did you mean "config get"?
    const std::string parent = path.size() > app.get_name().size() ? path.substr(app.get_name().size() + 1) + " " : "";
    const std::string near = nearestName(unknown, subcommandNames(*last));
    std::cerr << app.get_name() << ": unknown command \"" << parent << unknown << "\""
              << (near.empty() ? "; " + path + " --help lists the commands"
                               : "; did you mean \"" + parent + near + "\"?")
              << '\n';
    return 2;
  }
}

}  // namespace cli
