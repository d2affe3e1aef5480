// kxstream: content identifiers, concatenation, range copies and UUIDs through libKXStreams64.

#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "Arguments.h"
#include "Commands.h"
#include "Diagnostics.h"
#include "StandardDescriptors.h"

namespace {

using kxstream::Arguments;
using kxstream::OptionSet;

struct Command {
  const char* name;
  const char* summary;
  const char* usage;
  OptionSet options;
  int (*run)(const Arguments&);
};

const std::vector<Command>& commands() {
  static const std::vector<Command> table = {
      {"id",
       "content identifier (MD5) of each file, as md5sum prints it, or check a listing",
       "Usage: kxstream id [OPTION...] [FILE...]\n"
       "Print or check content identifiers (MD5), one line 'DIGEST  NAME' as md5sum does.\n"
       "With no FILE, or when FILE is -, read standard input.\n\n"
       "  -b, --binary          mark lines with '*' (read in binary mode)\n"
       "  -c, --check           read listings from the FILEs and verify them\n"
       "      --tag             print BSD-style lines 'MD5 (NAME) = DIGEST'\n"
       "  -t, --text            mark lines with ' ' (read in text mode, the default)\n"
       "  -z, --zero            end each output line with NUL, not newline, and do not escape\n"
       "                          names; with --check, read NUL-separated lines\n"
       "  -r, --recursive       digest every regular file under each directory FILE, sorted\n"
       "                          by name within each directory\n"
       "  -L, --dereference     with --recursive, follow symbolic links inside the trees\n"
       "      --files0-from=F   digest the files named in F, each name ended by a NUL;\n"
       "                          F - reads the names from standard input\n"
       "  -j JOBS               digest up to JOBS files at once (default: the number of\n"
       "                          processors); lines still come in list order\n\n"
       "Only when verifying (--check):\n"
       "      --ignore-missing  do not fail or report status for missing files\n"
       "      --quiet           do not print OK for each successfully verified file\n"
       "      --status          print nothing, the exit status shows success\n"
       "      --strict          exit non-zero for improperly formatted listing lines\n"
       "  -w, --warn            warn about improperly formatted listing lines\n\n"
       "      --help            show this help\n\n"
       "Exit status: 0 when every file was digested (or verified), 1 otherwise, 2 on a\n"
       "usage error.\n",
       {{"-j", "--files0-from"},
        {"--help", "--binary", "--check", "--tag", "--text", "--zero", "--recursive",
         "--dereference", "--ignore-missing", "--quiet", "--status", "--strict", "--warn"},
        {{"-b", "--binary"},
         {"-c", "--check"},
         {"-t", "--text"},
         {"-z", "--zero"},
         {"-r", "--recursive"},
         {"-L", "--dereference"},
         {"-w", "--warn"}}},
       kxstream::runId},
      {"cat",
       "the files one after the other, to standard output",
       "Usage: kxstream cat [FILE...]\n"
       "Write the FILEs one after the other to standard output, byte for byte.\n"
       "With no FILE, or when FILE is -, read standard input.\n\n"
       "  --help    show this help\n",
       {{}, {"--help"}, {}},
       kxstream::runCat},
      {"copy",
       "a whole file or a byte range of it",
       "Usage: kxstream copy SOURCE DESTINATION [--start N] [--length N] [--progress]\n"
       "Copy SOURCE to DESTINATION (into it under SOURCE's name when it is a directory),\n"
       "or only the bytes from offset N on, at most N of them; holes stay holes.\n\n"
       "  --start N     first byte to copy (default 0)\n"
       "  --length N    number of bytes to copy (default: to the end of SOURCE)\n"
       "  --progress    show bytes done, total and rate when standard error is a terminal\n"
       "  --help        show this help\n",
       {{"--start", "--length"}, {"--progress", "--help"}, {}},
       kxstream::runCopy},
      {"uuid",
       "time-based UUIDs, one a line",
       "Usage: kxstream uuid [-n COUNT]\n"
       "Print COUNT time-based (version 1) UUIDs, one a line (default 1).\n\n"
       "  -n COUNT  how many UUIDs to print\n"
       "  --help    show this help\n",
       {{"-n"}, {"--help"}, {}},
       kxstream::runUuid},
  };
  return table;
}

void printToolUsage(FILE* to) {
  std::fputs("Usage: kxstream COMMAND [OPTION...] [ARGUMENT...]\n\nCommands:\n", to);
  for (const Command& command : commands()) {
    std::fprintf(to, "  %-6s %s\n", command.name, command.summary);
  }
  std::fputs(
      "\nkxstream COMMAND --help shows the options of a command; kxstream --version the "
      "version.\n"
      "Exit status: 0 on success, 1 when an input could not be processed, 2 on a usage "
      "error.\n",
      to);
}

int usageError(const std::string& message, const char* command) {
  std::fprintf(stderr, "kxstream: %s\nTry 'kxstream %s--help' for more information.\n",
               message.c_str(), command != nullptr ? (std::string(command) + " ").c_str() : "");
  return kxstream::kExitUsage;
}

const Command* findCommand(const char* name) {
  for (const Command& command : commands()) {
    if (std::strcmp(command.name, name) == 0) {
      return &command;
    }
  }
  return nullptr;
}

int runCommand(const Command& command, const std::vector<std::string>& words) {
  try {
    const Arguments arguments = kxstream::parseArguments(words, command.options);
    if (arguments.has("--help")) {
      std::fputs(command.usage, stdout);
      return kxstream::finishStandardOutput(kxstream::kExitSuccess);
    }
    return command.run(arguments);
  } catch (const kxstream::UsageError& error) {
    return usageError(error.what(), command.name);
  }
}

}  // namespace

int main(int argc, char** argv) {
  kxstream::guardStandardDescriptors();
  if (argc < 2) {
    return usageError("missing command", nullptr);
  }
  const std::string first = argv[1];
  if (first == "--help" || first == "-h") {
    printToolUsage(stdout);
    return kxstream::finishStandardOutput(kxstream::kExitSuccess);
  }
  if (first == "--version") {
    std::puts("kxstream " KXSTREAM_VERSION);
    return kxstream::finishStandardOutput(kxstream::kExitSuccess);
  }
  const Command* command = findCommand(argv[1]);
  if (command == nullptr) {
    return usageError("unknown command '" + first + "'", nullptr);
  }
  try {
    return runCommand(*command, std::vector<std::string>(argv + 2, argv + argc));
  } catch (const std::bad_alloc&) {
    std::fputs("kxstream: out of memory\n", stderr);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "kxstream: %s\n", failure.what());
  }
  return kxstream::kExitInputFailed;
}
