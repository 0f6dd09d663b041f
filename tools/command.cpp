#include "command.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Validators.hpp>
#include <filesystem>
#include <utility>

#include "exitcode.h"
#include "textparser.h"

namespace bmtree::tools {
namespace {

constexpr int noEnd = 1 << 30;

// Refuses, while the command line is read, what is no number below 2^40, and turns hexadecimal into decimal.
std::string checkNumber(std::string& word) {
  uint64_t number;
  if (!parseNumber(word, number)) return describeBadNumber(word);
  word = std::to_string(number);
  return {};
}

std::string checkCount(uint64_t least, const std::string& word) {
  uint64_t number;
  if (parseNumber(word, number) && number >= least) return {};
  return "\"" + word + "\" is not a count of " + std::to_string(least) + " or more";
}

CLI::Validator numberCheck() { return {checkNumber, ""}; }

CLI::Validator countCheck(uint64_t least) {
  return {[least](std::string& word) { return checkCount(least, word); }, ""};
}

std::string joined(const std::vector<std::string>& words) { return CLI::detail::join(words, ","); }

}  // namespace

Store StoreArguments::open(OpenMode mode) const {
  StoreOptions options;
  options.mode = mode;
  options.memoryLimit = memoryMiB << 20;
  return Store::open(store, options);
}

StoreToFill::StoreToFill(const StoreArguments& arguments) {
  StoreArguments target = arguments;
  if (!std::filesystem::exists(std::filesystem::symlink_status(arguments.store))) {
    target.store = made_.emplace(arguments.store).file().string();
  }
  store_ = target.open(OpenMode::create);
}

void StoreToFill::finish() {
  store_.reset();
  if (made_) made_->publish();
}

void requireOrder(const NumberRange& range) {
  if (range.from > range.to) {
    throw ProgramError(exitUsage, "the first number, " + std::to_string(range.from) + ", is above the last, " +
                                      std::to_string(range.to));
  }
}

void Command::store(StoreArguments& arguments, bool memory) {
  required("STORE", arguments.store, "File of the store");
  if (!memory) return;
  app_->add_option("--memory", arguments.memoryMiB, "MiB of changed pages to keep in memory (default 256)")
      ->type_name("MIB")
      ->check(countCheck(16));
}

void Command::required(const char* name, std::string& value, const char* description) {
  app_->add_option(name, value, description)->required()->type_name("");
}

void Command::optional(const char* name, std::string& value, const char* description) {
  app_->add_option(name, value, description)->type_name("");
}

void Command::requiredNumber(const char* name, uint64_t& value, const char* description) {
  app_->add_option(name, value, description)->required()->type_name("")->transform(numberCheck());
}

void Command::requiredCount(const char* name, uint64_t& value, const char* description) {
  app_->add_option(name, value, description)->required()->type_name("")->check(countCheck(0));
}

void Command::words(const char* name, std::vector<std::string>& values, int atLeast, const char* description) {
  CLI::Option* option = app_->add_option(name, values, description)->type_name("");
  option->expected(atLeast, noEnd);
  if (atLeast != 0) option->required();
}

void Command::flag(const char* name, bool& value, const char* description) {
  app_->add_flag(name, value, description);
}

void Command::word(const char* name, std::string& value, const char* valueName, const char* description) {
  app_->add_option(name, value, description)->type_name(valueName);
}

void Command::number(const char* name, uint64_t& value, const char* description) {
  app_->add_option(name, value, description)->type_name("NUMBER")->transform(numberCheck());
}

void Command::number(const char* name, std::optional<uint64_t>& value, const char* description) {
  app_->add_option_function<uint64_t>(
          name, [&value](const uint64_t& given) { value = given; }, description)
      ->type_name("NUMBER")
      ->transform(numberCheck());
}

void Command::count(const char* name, uint64_t& value, const char* description) {
  app_->add_option(name, value, description)->type_name("COUNT")->check(countCheck(1));
}

void Command::choice(const char* name, const std::vector<std::string>& choices, std::function<void(size_t)> choose,
                     const char* description) {
  const auto take = [choices, choose = std::move(choose)](const std::string& word) {
    choose(static_cast<size_t>(std::find(choices.begin(), choices.end(), word) - choices.begin()));
  };
  const auto check = [choices](const std::string& word) -> std::string {
    if (std::find(choices.begin(), choices.end(), word) != choices.end()) return {};
    return "\"" + word + "\" is not one of " + joined(choices);
  };
  app_->add_option_function<std::string>(name, take, description)
      ->type_name("{" + joined(choices) + "}")
      ->check(check, "");
}

void Command::range(NumberRange& range) {
  number("--from", range.from, "Lowest number to look at (default 0)");
  number("--to", range.to, "Highest number to look at (default 2^40 - 1)");
}

void Command::inputFormat(InputFormat& format) {
  static constexpr InputFormat formats[] = {InputFormat::automatic, InputFormat::text, InputFormat::raw,
                                            InputFormat::bitmap};
  choice(
      "--format", {"auto", "text", "raw", "bitmap"}, [&format](size_t i) { format = formats[i]; },
      "Format of the files: auto, the default, tells bitmap files from text");
}

void Command::outputFormat(NumberFormat& format) {
  static constexpr NumberFormat formats[] = {NumberFormat::text, NumberFormat::raw, NumberFormat::bitmap,
                                             NumberFormat::bitmap32};
  choice(
      "--format", {"text", "raw", "bitmap", "bitmap32"}, [&format](size_t i) { format = formats[i]; },
      "Lines (default), 64-bit little-endian, or bitmap files with items of 64 or 32 bits");
}

void Command::json(ReportOptions& report) { flag("--json", report.json, "Report as JSON"); }

void Command::report(ReportOptions& report) {
  json(report);
  flag("-q,--quiet", report.quiet, "Report nothing but errors");
}

void Command::needs(const char* name, const char* other) { app_->get_option(name)->needs(app_->get_option(other)); }

void Command::excludes(const char* name, const char* other) {
  app_->get_option(name)->excludes(app_->get_option(other));
}

Command Program::add(const char* name, const char* description, const char* examples, std::function<int()> run) {
  CLI::App* command = app.add_subcommand(name, description);
  command->footer(std::string("Examples:\n") + examples);
  command->final_callback([this, run = std::move(run)] { exitCode = run(); });
  return Command(command);
}

void print(const std::string& text) {
  Output output;
  output.write(text);
  output.finish();
}

void print(const JsonWriter& json) { print(json.text()); }

}  // namespace bmtree::tools
