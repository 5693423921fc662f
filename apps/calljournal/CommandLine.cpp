#include "CommandLine.h"

#include <algorithm>
#include <iostream>

#include "UsageErrors.h"

namespace cli {

namespace {

// Edits turning `a` into `b`: insertions, deletions, replacements and swaps of neighbours.
std::size_t editDistance(const std::string& a, const std::string& b) {
  std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
  for (std::size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i)
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t cost = a[i - 1] == b[j - 1] ? 0 : 1;
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + cost});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
    }
  return d[a.size()][b.size()];
}

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
    const std::size_t distance = editDistance(word, name);
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
