#include "tools/command_docs.h"

#include "tools/help.h"

#include <iostream>
#include <map>
#include <set>

namespace dravix::cli {
namespace {

std::vector<const CLI::App*> Subcommands(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* sub) { return !sub->get_disabled() && !sub->get_name().empty(); });
}

std::vector<const CLI::Option*> Positionals(const CLI::App& app) {
  return app.get_options([](const CLI::Option* o) { return o->get_positional(); });
}

// Options worth listing for a command: not --help, and not --home, which
// every command takes and the page describes once.
std::vector<const CLI::Option*> ListedOptions(const CLI::App& app) {
  return app.get_options([&app](const CLI::Option* o) {
    return o->nonpositional() && o != app.get_help_ptr() && o->get_name() != "--home";
  });
}

// Text made safe for roff: backslashes and minus signs escaped, and no line
// that starts with a control character.
std::string Roff(const std::string& text) {
  std::string out;
  bool lineStart = true;
  for (char c : text) {
    if (lineStart && (c == '.' || c == '\'')) out += "\\&";
    if (c == '\\')
      out += "\\e";
    else if (c == '-')
      out += "\\-";
    else
      out += c;
    lineStart = c == '\n';
  }
  return out;
}

std::string Usage(const CLI::App& app, const std::string& path) {
  std::string out = "\\fB" + Roff(path) + "\\fR";
  if (!Subcommands(app).empty()) return out + " \\fICOMMAND\\fR";
  for (const CLI::Option* p : Positionals(app)) {
    std::string name = "\\fI" + Roff(p->get_name(true)) + "\\fR";
    if (p->get_expected_max() == CLI::detail::expected_max_vector_size) name += "...";
    out += " " + (p->get_required() ? name : "[" + name + "]");
  }
  return out + " [\\fIOPTIONS\\fR]";
}

void WriteCommand(const CLI::App& app, const std::string& path, std::ostream& out) {
  out << ".SS \"" << Usage(app, path) << "\"\n" << Roff(app.get_description()) << "\n";
  const auto positionals = Positionals(app);
  const auto options = ListedOptions(app);
  for (const CLI::Option* p : positionals)
    out << ".TP\n\\fI" << Roff(p->get_name(true)) << "\\fR\n" << Roff(OptionDescription(*p)) << "\n";
  for (const CLI::Option* o : options) {
    out << ".TP\n\\fB" << Roff(o->get_name(false, true)) << "\\fR";
    if (!o->get_type_name().empty()) out << " \\fI" << Roff(ValueName(*o)) << "\\fR";
    out << "\n" << Roff(OptionDescription(*o)) << (o->get_required() ? " (required)" : "") << "\n";
  }
  if (!app.get_footer().empty()) out << ".PP\n.nf\n" << Roff(app.get_footer()) << "\n.fi\n";
  for (const CLI::App* sub : Subcommands(app)) WriteCommand(*sub, path + " " + sub->get_name(), out);
}

// Every command path ("" for the program itself, " users add" for a
// subcommand) with the app it names.
void CollectCommands(const CLI::App& app, const std::string& path,
                     std::vector<std::pair<std::string, const CLI::App*>>* all) {
  all->emplace_back(path, &app);
  for (const CLI::App* sub : Subcommands(app)) CollectCommands(*sub, path + " " + sub->get_name(), all);
}

std::string OptionNames(const CLI::Option& o) {
  std::string names;
  for (const std::string& s : o.get_snames()) names += " -" + s;
  for (const std::string& l : o.get_lnames()) names += " --" + l;
  return names;
}

}  // namespace

void WriteManPage(const CLI::App& app, const std::string& version, std::ostream& out) {
  out << ".\\\" Generated from the dravix program's own commands; do not edit.\n"
      << ".TH DRAVIX 1 \"\" \"dravix " << Roff(version) << "\" \"User Commands\"\n"
      << ".SH NAME\ndravix \\- " << Roff(app.get_description()) << "\n"
      << ".SH SYNOPSIS\n\\fBdravix\\fR \\fICOMMAND\\fR [\\fISUBCOMMAND\\fR] [\\fIARGUMENTS\\fR] [\\fIOPTIONS\\fR]\n"
      << ".SH DESCRIPTION\n"
      << "\\fBdravix\\fR puts the recorder's library in reach of a shell: settings, accounts, schedules,\n"
      << "logs, language texts, devices, PTZ cameras and recordings of one program folder.\n"
      << "Every command prints a table (or, where offered, JSON with \\fB\\-\\-json\\fR) and explains\n"
      << "itself with \\fB\\-\\-help\\fR.\n"
      << ".SH OPTIONS OF EVERY COMMAND\n"
      << ".TP\n\\fB\\-h\\fR, \\fB\\-\\-help\\fR\nPrint the command's help and exit.\n";
  for (const CLI::Option* o : Subcommands(app).front()->get_options())
    if (o->get_name() == "--home")
      out << ".TP\n\\fB\\-\\-home\\fR \\fI" << Roff(ValueName(*o)) << "\\fR\n" << Roff(OptionDescription(*o)) << "\n";
  out << ".SH COMMANDS\n";
  for (const CLI::App* sub : Subcommands(app)) WriteCommand(*sub, "dravix " + sub->get_name(), out);
  out << ".SH ENVIRONMENT\n"
      << ".TP\n\\fBDRAVIX_HOME\\fR\nThe program folder when \\fB\\-\\-home\\fR is not given (else the program's own "
         "folder).\n"
      << ".TP\n\\fBDRAVIX_IPC_NAMESPACE\\fR\nThe namespace of the named mutexes and shared memory.\n"
      << ".TP\n\\fBODBCINI\\fR\nThe user data sources file where the language database is registered (else "
         "~/.odbc.ini).\n"
      << ".TP\n\\fBDRAVIX_COM\\fIn\\fR\nThe device of serial port COM\\fIn\\fR (else /dev/ttyS\\fIn\\-1\\fR).\n"
      << ".TP\n\\fBDRAVIX_DRIVE_D\\fR\nThe folder standing for drive D: on an embedded model (default /mnt/d/).\n"
      << ".TP\n\\fBDRAVIX_DEBUG\\fR\nSend debugger text to standard error.\n"
      << ".SH EXIT STATUS\n"
      << "0 when the command did what it said; 1 when it failed (the reason is on standard error);\n"
      << "2 for wrong usage (unknown command or option, a malformed or missing argument).\n";
}

void WriteBashCompletion(const CLI::App& app, std::ostream& out) {
  std::vector<std::pair<std::string, const CLI::App*>> commands;
  CollectCommands(app, "", &commands);
  // Value-taking options, by what their value is: folders or anything.
  std::map<std::string, std::set<std::string>> valueOptions;  // "dir" / "file" -> "path:--opt" patterns
  out << "# bash completion for dravix; generated from the program's own commands by\n"
      << "# `dravix --completion bash` at build time: do not edit.\n"
      << "_dravix() {\n"
      << "  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}\n"
      << "  local path='' word i\n"
      << "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
      << "    word=${COMP_WORDS[i]}\n"
      << "    case \"$path $word\" in\n"
      << "      ";
  for (size_t i = 1; i < commands.size(); ++i) out << (i > 1 ? " | " : "") << "'" << commands[i].first << "'";
  out << ") path=\"$path $word\" ;;\n"
      << "    esac\n"
      << "  done\n";
  for (const auto& [path, cmd] : commands) {
    for (const CLI::Option* o : cmd->get_options([](const CLI::Option* opt) { return opt->nonpositional(); })) {
      if (o->get_type_name().empty()) continue;
      const std::string kind = ValueName(*o) == "DIR" ? "dir" : "file";
      for (const std::string& l : o->get_lnames()) valueOptions[kind].insert(path + ":--" + l);
      for (const std::string& s : o->get_snames()) valueOptions[kind].insert(path + ":-" + s);
    }
  }
  out << "  case \"$path:$prev\" in\n";
  for (const auto& [kind, patterns] : valueOptions) {
    out << "    ";
    bool first = true;
    for (const std::string& p : patterns) {
      out << (first ? "" : " | ") << "'" << p << "'";
      first = false;
    }
    out << ")\n      mapfile -t COMPREPLY < <(compgen -" << (kind == "dir" ? "d" : "f") << " -- \"$cur\")\n"
        << "      return ;;\n";
  }
  out << "  esac\n"
      << "  local words=''\n"
      << "  case $path in\n";
  for (const auto& [path, cmd] : commands) {
    std::string words;
    for (const CLI::App* sub : Subcommands(*cmd)) words += " " + sub->get_name();
    for (const CLI::Option* o : cmd->get_options([](const CLI::Option* opt) { return opt->nonpositional(); }))
      words += OptionNames(*o);
    out << "    '" << path << "') words='" << words.substr(words.empty() ? 0 : 1) << "' ;;\n";
  }
  out << "  esac\n"
      << "  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$cur\")\n"
      << "  # Arguments that are not commands or options: file names.\n"
      << "  if [[ ${#COMPREPLY[@]} -eq 0 && $cur != -* ]]; then\n"
      << "    mapfile -t COMPREPLY < <(compgen -f -- \"$cur\")\n"
      << "  fi\n"
      << "}\n"
      << "complete -o filenames -F _dravix dravix\n";
}

int WriteRequestedDocument(const CLI::App& app, const std::vector<std::string>& args) {
  if (args.size() == 2 && args[0] == "--man-page") {
    WriteManPage(app, args[1], std::cout);
    return std::cout.flush() ? 0 : 1;
  }
  if (args.size() == 2 && args[0] == "--completion" && args[1] == "bash") {
    WriteBashCompletion(app, std::cout);
    return std::cout.flush() ? 0 : 1;
  }
  return -1;
}

}  // namespace dravix::cli
