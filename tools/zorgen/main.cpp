// zorgen: makes source code from a file of message types.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

#include "programs/messages/text.h"
#include "programs/types/reader.h"
#include "programs/version.h"
#include "zorgen/message.h"

namespace zor::zorgen {
namespace {

enum ExitCode : int { kExitOk = 0, kExitFailure = 1, kExitUsage = 2, kExitInvalid = 3 };

constexpr char kFooter[] =
    "Without -o, or with -o -, the code goes to standard output.\n\n"
    "Examples:\n"
    "  zorgen --c thermo.json -o thermo.h\n"
    "  zorgen --python /usr/share/zor/types.d/thermo.json -o thermo.py\n\n"
    "exit status:\n"
    "  0  success\n"
    "  1  system failure: the output cannot be written\n"
    "  2  invalid arguments\n"
    "  3  the type file cannot be read or is invalid\n";

struct Language {
  const char *option;
  const char *help;
  std::string (*write)(const Source &);
};

constexpr Language kLanguages[] = {
    {"--c", "Make a header in C11, which is valid in C++ too", WriteC},
    {"--cpp", "Make a header in C++17", WriteCpp},
    {"--python", "Make a module in Python", WritePython},
};

void PrintError(const std::string &what) {
  std::fprintf(stderr, "zorgen: %s\n", messages::Escape(what).c_str());
}

std::string BaseName(const std::string &path) {
  return path.substr(path.rfind('/') + 1);
}

bool WriteText(std::FILE *file, const std::string &text) {
  return std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0;
}

// The file is complete or absent, so that a build never uses half of one.
bool WriteFile(const std::string &path, const std::string &text) {
  const std::string part = path + ".part";
  std::FILE *file = std::fopen(part.c_str(), "we");
  if (file == nullptr) return false;
  const bool written = WriteText(file, text);
  if (std::fclose(file) == 0 && written && std::rename(part.c_str(), path.c_str()) == 0) return true;
  const int error = errno;
  std::remove(part.c_str());
  errno = error;
  return false;
}

int Generate(const Language &language, const std::string &path, const std::string &output) {
  std::vector<types::Problem> problems;
  const std::optional<types::TypeFile> file = types::ReadTypeFile(path, types::UnknownMembers::kSkip, problems);
  for (const types::Problem &problem : problems) PrintError(problem.Text());
  if (!file) return kExitInvalid;
  const bool toStandardOutput = output == "-";
  const std::string name = toStandardOutput ? file->nameSpace : BaseName(output);
  const std::string text = language.write({&*file, BaseName(path), name});
  if (toStandardOutput ? WriteText(stdout, text) : WriteFile(output, text)) return kExitOk;
  PrintError((toStandardOutput ? "standard output" : output) + ": " + std::strerror(errno));
  return kExitFailure;
}

int Main(int count, char **arguments) {
  CLI::App program("Makes source code that encodes and decodes messages from a file of message types.", "zorgen");
  program.set_help_flag("--help", "Print this help and exit");
  program.set_version_flag("--version", std::string("zorgen ") + daemon::Version(), "Print the version and exit");
  program.footer(kFooter);
  CLI::Option_group *group = program.add_option_group("language", "One of");
  group->require_option(1);
  for (const Language &each : kLanguages) group->add_flag(each.option, each.help);
  std::string path, output = "-";
  program.add_option("FILE", path, "The type file")->required();
  program.add_option("-o", output, "Where to write the code")->type_name("OUT");
  try {
    program.parse(count, arguments);
  } catch (const CLI::ParseError &error) {
    if (error.get_exit_code() == 0) return program.exit(error);
    PrintError(std::string(error.what()) + "; zorgen --help explains the arguments");
    return kExitUsage;
  }
  for (const Language &each : kLanguages) {
    if (group->count(each.option) > 0) return Generate(each, path, output);
  }
  return kExitUsage;
}

}  // namespace
}  // namespace zor::zorgen

int main(int count, char **arguments) {
  try {
    return zor::zorgen::Main(count, arguments);
  } catch (const std::exception &error) {
    std::fprintf(stderr, "zorgen: %s\n", error.what());
    return zor::zorgen::kExitFailure;
  }
}
