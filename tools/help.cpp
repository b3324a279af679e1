#include "tools/help.h"

#include "tools/terminal_text.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <sstream>
#include <string_view>

namespace dravix::cli {
namespace {

// The base of a CLI11 type name: "UINT:INT in [1 - 100]" gives "UINT".
std::string_view BaseType(const std::string& typeName) {
  std::string_view base(typeName);
  return base.substr(0, base.find(':'));
}

bool IsParserType(std::string_view base) {
  for (std::string_view t : {"INT", "UINT", "FLOAT", "NUMBER", "TEXT", "BOOLEAN", "CHAR", "ENUM", "[INT,INT]", "VALUE"})
    if (base == t) return true;
  return false;
}

// Help is laid out for a terminal this wide; descriptions wrap at word
// boundaries to fit beside the names column.
constexpr size_t kHelpWidth = 100;
constexpr size_t kNameColumn = 30;

// `text` with line breaks put between words so that no line is wider than
// `width` cells; line breaks already in it are kept.
std::string Wrap(const std::string& text, size_t width) {
  std::string out;
  size_t line = 0;  // cells on the current output line
  size_t at = 0;
  while (at < text.size()) {
    if (text[at] == '\n') {
      out += '\n';
      line = 0;
      ++at;
      continue;
    }
    const size_t end = std::min(text.find_first_of(" \n", at), text.size());
    const std::string word = text.substr(at, end - at);
    const size_t cells = TerminalWidth(word);
    if (line > 0 && line + 1 + cells > width) {
      out += '\n';
      line = 0;
    } else if (line > 0) {
      out += ' ';
      ++line;
    }
    out += word;
    line += cells;
    at = end < text.size() && text[end] == ' ' ? end + 1 : end;
  }
  return out;
}

class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter() {
    label("Positionals", "Arguments");
    label("Subcommands", "Commands");
    label("SUBCOMMAND", "COMMAND");
    label("SUBCOMMANDS", "COMMANDS");
    column_width(kNameColumn);
  }

  std::string make_description(const CLI::App* app) const override {
    const std::string desc = app->get_description();
    return desc.empty() ? desc : Wrap(desc, kHelpWidth) + "\n";
  }

  std::string make_subcommand(const CLI::App* sub) const override {
    std::stringstream out;
    CLI::detail::format_help(out, sub->get_name(), Wrap(sub->get_description(), kHelpWidth - kNameColumn), kNameColumn);
    return out.str();
  }

  // The placeholder only; the default goes to the description and
  // required-ness to the usage line (positionals) or the description.
  std::string make_option_opts(const CLI::Option* opt) const override {
    if (opt->get_positional() || opt->get_type_name().empty()) return "";  // flags have no type
    std::string out = " " + ValueName(*opt);
    if (opt->get_expected_max() == CLI::detail::expected_max_vector_size) out += " ...";
    return out;
  }

  std::string make_option_desc(const CLI::Option* opt) const override {
    std::string desc = OptionDescription(*opt);
    if (opt->get_required() && !opt->get_positional()) desc += " (required)";
    return Wrap(desc, kHelpWidth - kNameColumn);
  }
};

// The command a parse error belongs to: the deepest subcommand recognised
// before the error, as "dravix users add".
std::string CommandPath(const CLI::App* app) {
  std::string path = app->get_name();
  for (const CLI::App* at = app; !at->get_subcommands().empty();) {
    at = at->get_subcommands().front();
    path += " " + at->get_name();
  }
  return path;
}

std::string ParseFailure(const CLI::App* app, const CLI::Error& e) {
  std::string what = e.what();
  // "The following argument ..." reads as "dravix: the following ...";
  // a leading name in capitals (NAME is required) stays as it is.
  if (what.size() > 1 && std::isupper(static_cast<unsigned char>(what[0])) &&
      !std::isupper(static_cast<unsigned char>(what[1])))
    what[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(what[0])));
  const std::string command = CommandPath(app);
  return "dravix: " + what + "\n" + "Run `" + command + " --help` for the usage.\n";
}

}  // namespace

std::string ValueName(const CLI::Option& opt) {
  const std::string typeName = opt.get_type_name();
  const std::string_view base = BaseType(typeName);
  if (!base.empty() && !IsParserType(base)) return std::string(base);
  if (base == "INT" || base == "UINT") return "N";
  if (base == "FLOAT" || base == "NUMBER") return "NUMBER";
  std::string name = opt.get_lnames().empty() ? opt.get_name() : opt.get_lnames().front();
  for (char& c : name) c = c == '-' ? '_' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return name;
}

std::string OptionDescription(const CLI::Option& opt) {
  std::string desc = opt.get_description();
  const std::string def = opt.get_default_str();
  if (!def.empty() && !opt.get_type_name().empty() && desc.find("default") == std::string::npos)
    desc += " (default " + def + ")";
  return desc;
}

void SetUpHelp(CLI::App& app) {
  app.formatter(std::make_shared<HelpFormatter>());
  app.failure_message(ParseFailure);
}

}  // namespace dravix::cli
