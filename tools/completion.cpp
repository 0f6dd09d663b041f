// completion: scripts for shells, made from the very table that the command line is read with.
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "commands.h"
#include "exitcode.h"

namespace bmtree::tools {
namespace {

struct CompletionOptions {
  std::string shell;
};

// What stands in one place on the command line.
enum class WordKind { nothing, file, tree, choice };

struct OptionWords {
  std::vector<std::string> spellings;  // "-q", "--quiet"
  std::string description;
  bool takesValue = false;
  WordKind value = WordKind::nothing;
  std::vector<std::string> choices;
};

struct CommandWords {
  std::string name;
  std::string description;
  std::vector<OptionWords> options;
  std::vector<WordKind> positionals;
  bool lastRepeats = false;
};

// "{text,raw}" as its parts; nothing for other type names.
std::vector<std::string> choicesOf(const std::string& typeName) {
  if (!typeName.starts_with("{")) return {};
  return CLI::detail::split(typeName.substr(1, typeName.size() - 2), ',');
}

WordKind kindOf(const std::string& name) {
  if (name == "STORE" || name == "FILE" || name == "NEWFILE") return WordKind::file;
  if (name == "NAME" || name == "TREE" || name == "FROM") return WordKind::tree;
  if (name.starts_with("{")) return WordKind::choice;
  return WordKind::nothing;
}

OptionWords describe(const CLI::Option& option) {
  OptionWords words;
  for (const std::string& name : option.get_snames()) words.spellings.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) words.spellings.push_back("--" + name);
  words.description = option.get_description();
  words.takesValue = option.get_expected_max() > 0;
  words.value = kindOf(option.get_type_name());
  words.choices = choicesOf(option.get_type_name());
  return words;
}

CommandWords describe(const CLI::App& command) {
  CommandWords words{command.get_name(), command.get_description(), {}, {}, false};
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_positional()) {
      words.positionals.push_back(kindOf(option->get_name()));
      words.lastRepeats = option->get_expected_max() > 1;
    } else {
      words.options.push_back(describe(*option));
    }
  }
  return words;
}

std::vector<CommandWords> describeAll(const CLI::App& app) {
  std::vector<CommandWords> commands;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    commands.push_back(describe(*command));
  }
  return commands;
}

std::string joined(const std::vector<std::string>& words, const char* between = " ") {
  return CLI::detail::join(words, between);
}

// In single quotes for a shell; `quote` is how it writes one within them.
std::string shellQuoted(const std::string& text, const char* quote) {
  return "'" + CLI::detail::find_and_replace(text, "'", quote) + "'";
}

std::vector<std::string> namesOf(const std::vector<CommandWords>& commands) {
  std::vector<std::string> names;
  names.reserve(commands.size());
  for (const CommandWords& command : commands) names.push_back(command.name);
  return names;
}

bool wantsTrees(const CommandWords& command) {
  for (const WordKind kind : command.positionals) {
    if (kind == WordKind::tree) return true;
  }
  return false;
}

// --- bash ---

constexpr const char* bashTail = R"bash(
  # Words that are no options: the store comes first, names of its trees may follow.
  local store= word i
  for ((i = 2; i < COMP_CWORD; ++i)); do
    word=${COMP_WORDS[i]}
    [[ $word == -* || -n $store ]] || store=$word
  done
  local IFS=$'\n'
  COMPREPLY=($(compgen -f -- "$cur"))
  if [[ -n $store && $trees == yes ]]; then
    COMPREPLY+=($(compgen -W "$(bmtree ls --names "$store" 2>/dev/null)" -- "$cur"))
  fi
}
complete -o filenames -F _bmtree bmtree
)bash";

std::string bashScript(const std::vector<CommandWords>& commands) {
  std::string values;
  std::string options;
  for (const CommandWords& command : commands) {
    std::vector<std::string> spellings;
    for (const OptionWords& option : command.options) {
      spellings.insert(spellings.end(), option.spellings.begin(), option.spellings.end());
      if (option.choices.empty()) continue;
      for (const std::string& spelling : option.spellings) {
        values += "    " + command.name + ":" + spelling + ") COMPREPLY=($(compgen -W '" + joined(option.choices) +
                  "' -- \"$cur\")); return ;;\n";
      }
    }
    options += "    " + command.name + ") options='" + joined(spellings) +
               "' trees=" + (wantsTrees(command) ? "yes" : "no") + " ;;\n";
  }
  return "# bash completion for bmtree. To use it: source <(bmtree completion bash)\n"
         "_bmtree() {\n"
         "  local cur=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]} options= trees=no\n"
         "  if ((COMP_CWORD == 1)); then\n"
         "    COMPREPLY=($(compgen -W '" +
         joined(namesOf(commands)) +
         " --help --version' -- \"$cur\"))\n"
         "    return\n"
         "  fi\n"
         "  case $command:${COMP_WORDS[COMP_CWORD-1]} in\n" +
         values +
         "  esac\n"
         "  case $command in\n" +
         options +
         "  esac\n"
         "  if [[ $cur == -* ]]; then\n"
         "    COMPREPLY=($(compgen -W \"$options\" -- \"$cur\"))\n"
         "    return\n"
         "  fi" +
         bashTail;
}

// --- zsh ---

std::string zshAction(WordKind kind, const std::vector<std::string>& choices) {
  switch (kind) {
    case WordKind::file: return ":file:_files";
    case WordKind::tree: return ":tree:_bmtree_trees";
    case WordKind::choice: return ":choice:(" + joined(choices) + ")";
    case WordKind::nothing: return ":value: ";
  }
  return "";
}

// Description of an option in brackets, in which brackets and colons have a meaning.
std::string zshText(std::string text) {
  for (const char* special : {"[", "]", ":"}) {
    text = CLI::detail::find_and_replace(text, special, std::string("\\") + special);
  }
  return text;
}

std::string zshOption(const OptionWords& option, const std::string& spelling) {
  const std::string action = option.takesValue ? zshAction(option.value, option.choices) : "";
  return " \\\n        " + shellQuoted(spelling + "[" + zshText(option.description) + "]" + action, "'\\''");
}

std::string zshCommand(const CommandWords& command) {
  std::string text = "    " + command.name + ")\n      _arguments -S";
  for (const OptionWords& option : command.options) {
    for (const std::string& spelling : option.spellings) text += zshOption(option, spelling);
  }
  for (size_t i = 0; i < command.positionals.size(); ++i) {
    const bool repeats = command.lastRepeats && i + 1 == command.positionals.size();
    text += " \\\n        '" + (repeats ? "*" : std::to_string(i + 1)) + zshAction(command.positionals[i], {}) + "'";
  }
  return text + "\n      ;;\n";
}

std::string zshScript(const std::vector<CommandWords>& commands) {
  std::string list;
  std::string cases;
  for (const CommandWords& command : commands) {
    list += "    " + shellQuoted(command.name + ":" + command.description, "'\\''") + "\n";
    cases += zshCommand(command);
  }
  return "#compdef bmtree\n"
         "# zsh completion for bmtree. To use it: source <(bmtree completion zsh)\n"
         "_bmtree_trees() {\n"
         "  local -a trees\n"
         "  trees=(${(f)\"$(bmtree ls --names ${(Q)words[2]} 2>/dev/null)\"})\n"
         "  compadd -a trees\n"
         "}\n"
         "_bmtree() {\n"
         "  local -a commands=(\n" +
         list +
         "  )\n"
         "  if ((CURRENT == 2)); then\n"
         "    _describe command commands\n"
         "    return\n"
         "  fi\n"
         "  shift words\n"
         "  ((CURRENT -= 1))\n"
         "  case $words[1] in\n" +
         cases +
         "  esac\n"
         "}\n"
         "compdef _bmtree bmtree\n";
}

// --- fish ---

std::string fishOption(const CommandWords& command, const OptionWords& option) {
  std::string line = "complete -c bmtree -n '__fish_seen_subcommand_from " + command.name + "'";
  for (const std::string& spelling : option.spellings) {
    line += spelling.starts_with("--") ? " -l " + spelling.substr(2) : " -s " + spelling.substr(1);
  }
  if (option.takesValue) line += option.value == WordKind::file ? " -rF" : " -x";
  if (!option.choices.empty()) line += " -a '" + joined(option.choices) + "'";
  return line + " -d " + shellQuoted(option.description, "\\'") + "\n";
}

std::string fishScript(const std::vector<CommandWords>& commands) {
  const std::string names = joined(namesOf(commands));
  std::string text =
      "# fish completion for bmtree. To use it: bmtree completion fish | source\n"
      "function __bmtree_trees\n"
      "  set -l words (commandline -opc)\n"
      "  for word in $words[3..-1]\n"
      "    string match -q -- '-*' $word; and continue\n"
      "    bmtree ls --names $word 2>/dev/null\n"
      "    return\n"
      "  end\n"
      "end\n";
  for (const CommandWords& command : commands) {
    text += "complete -c bmtree -f -n '__fish_use_subcommand' -a " + command.name + " -d " +
            shellQuoted(command.description, "\\'") + "\n";
    if (wantsTrees(command)) {
      text += "complete -c bmtree -n '__fish_seen_subcommand_from " + command.name + "' -a '(__bmtree_trees)'\n";
    }
    for (const OptionWords& option : command.options) text += fishOption(command, option);
  }
  return text;
}

int runCompletion(const CLI::App& app, const CompletionOptions& options) {
  const std::vector<CommandWords> commands = describeAll(app);
  if (options.shell == "bash") return print(bashScript(commands)), exitDone;
  if (options.shell == "zsh") return print(zshScript(commands)), exitDone;
  if (options.shell == "fish") return print(fishScript(commands)), exitDone;
  throw ProgramError(exitUsage, "there is no completion for " + options.shell + ", only for bash, zsh and fish");
}

}  // namespace

void addCompletion(Program& program) {
  const auto options = std::make_shared<CompletionOptions>();
  Command command = program.add("completion", "Print a script that completes bmtree in a shell",
                                "  source <(bmtree completion bash)\n"
                                "  source <(bmtree completion zsh)\n"
                                "  bmtree completion fish | source",
                                [options, &app = program.app] { return runCompletion(app, *options); });
  command.required("SHELL", options->shell, "bash, zsh or fish");
}

}  // namespace bmtree::tools
