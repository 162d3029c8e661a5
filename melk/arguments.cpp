// Hands the rows of the sub-commands to the argument parser.
#include "melk/arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string_view>
#include <type_traits>

#include "melk/text.h"

namespace melk {

namespace {

// Seconds from `least` to `most`; a range check alone lets "nan" through.
CLI::Validator seconds_within(double least, double most) {
  return CLI::Validator(
      [least, most](const std::string& text) {
        char* end = nullptr;
        const double seconds = strtod(text.c_str(), &end);
        const bool good =
            end != text.c_str() && *end == '\0' && seconds >= least && seconds <= most;
        return good ? std::string()
                    : text_of("'%s' is no time from %g to %g s", text.c_str(), least, most);
      },
      "SECONDS");
}

// A count that is not negative.
CLI::Validator counting() {
  return CLI::Validator(
      [](const std::string& text) {
        const bool digits =
            !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
        return digits ? std::string() : text_of("'%s' is no count", text.c_str());
      },
      "COUNT");
}

void check(CLI::Option& option, const Allowed& allowed) {
  switch (allowed.kind) {
    case Allowed::kAnything:
      break;
    case Allowed::kRange:
      option.check(CLI::Range(static_cast<std::int64_t>(allowed.least),
                              static_cast<std::int64_t>(allowed.most)));
      break;
    case Allowed::kCount:
      option.check(counting());
      break;
    case Allowed::kSeconds:
      option.check(seconds_within(allowed.least, allowed.most));
      break;
  }
}

void declare(CLI::App& app, const Argument& argument, Request& request) {
  const auto add = [&](auto field) -> CLI::Option* {
    auto& value = request.*field;
    using Value = std::remove_reference_t<decltype(value)>;
    if constexpr (std::is_same_v<Value, bool>)
      return app.add_flag(argument.name, value, argument.help);
    else if constexpr (std::is_same_v<Value, std::optional<std::size_t>>)
      return app.add_option_function<std::size_t>(
          argument.name, [&value](const std::size_t& given) { value = given; }, argument.help);
    else
      return app.add_option(argument.name, value, argument.help);
  };
  CLI::Option* option = std::visit(add, argument.field);
  const bool flag = std::holds_alternative<bool Request::*>(argument.field);
  if (!flag) option->option_text(argument.value[0] == '\0' ? " " : argument.value);
  option->required(argument.required);
  check(*option, argument.allowed);
  if (argument.needs != nullptr) option->needs(app.get_option(argument.needs));
}

// ---- words that are not understood ------------------------------------------------------
// Letters to change, add or drop between two words.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t changed = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({changed, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row[b.size()];
}

// The command that was probably meant.
std::string likely(const std::string& stranger) {
  constexpr std::size_t kFurthest = 2;
  const auto far = [&stranger](const SubCommand& row) { return distance(stranger, row.word); };
  const auto best = std::ranges::min_element(sub_commands(), {}, far);
  return far(*best) <= kFurthest ? best->word : "";
}

Complaint complaint_about(const CLI::App& app, const CLI::ParseError& error) {
  const std::vector<CLI::App*> given = app.get_subcommands();
  const std::vector<std::string> strangers = app.remaining();
  if (given.empty() && !strangers.empty()) {
    const bool option = strangers[0].starts_with('-');
    const std::string meant = option ? "" : likely(strangers[0]);
    return {"", "'" + strangers[0] + "' is none of its " + (option ? "options" : "commands"),
            meant.empty() ? "melk --help lists them" : "did you mean " + meant + "?", kUsage};
  }
  const std::string word = given.empty() ? "" : given[0]->get_name();
  return {word, error.what(),
          "melk " + word + (word.empty() ? "" : " ") + "--help tells what it takes", kUsage};
}

}  // namespace

void add_sub_commands(CLI::App& app, Request& request) {
  app.fallthrough();
  app.add_flag("--json", request.json, "print one JSON object per outcome");
  app.add_option_function<double>(
         "--timeout", [&request](const double& s) { request.timeout_s = s; },
         "board seconds of silence before melk gives up (20)")
      ->check(seconds_within(0.001, 86400))
      ->option_text("SECONDS");
  for (const SubCommand& row : sub_commands()) {
    CLI::App* sub = app.add_subcommand(row.word, help_of(row));
    sub->group(row.group);
    sub->footer(std::string("Example: melk ") + row.example);
    for (const Argument& argument : row.takes) declare(*sub, argument, request);
    sub->callback([&request, word = row.word] { request.word = word; });
  }
}

std::optional<int> parse_words(CLI::App& app, std::vector<std::string> words, FILE* out,
                               FILE* err) {
  // Also where the words cannot be parsed.
  const bool json = std::ranges::find(words, "--json") != words.end();
  std::ranges::reverse(words);
  try {
    app.parse(std::move(words));
  } catch (const CLI::Success& wish) {  // help, version
    std::ostringstream text;
    app.exit(wish, text, text);
    fputs(text.str().c_str(), out);
    return kDone;
  } catch (const CLI::ParseError& error) {
    return complain(complaint_about(app, error), json, out, err);
  }
  if (!app.get_subcommands().empty()) return std::nullopt;
  return complain({"", "a command is wanted", "melk --help lists them", kUsage}, json, out, err);
}

int melk_command(Transport& transport, const std::vector<std::string>& words, FILE* out, FILE* err,
                 const Options& options) {
  CLI::App app("Host side of the encoder board's link.", "melk");
  Request request;
  add_sub_commands(app, request);
  if (const std::optional<int> code = parse_words(app, words, out, err)) return *code;
  Options with_shell = options;
  with_shell.command = melk_command;
  return run_request(transport, request, out, err, with_shell);
}

}  // namespace melk
