#include "KXTestSupport.h"

#include <dirent.h>
#include <ftw.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

#include "KXStreams.h"

namespace kxtest {

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern =
      std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/kxstreams-test-XXXXXX";
  if (mkdtemp(&pattern[0]) == nullptr) {
    throw std::runtime_error("cannot create a temporary directory from " + pattern);
  }
  mPath = pattern;
}

namespace {
int removeEntry(const char* path, const struct stat* /*status*/, int /*type*/, FTW* /*walk*/) {
  return remove(path);
}
}  // namespace

TempDir::~TempDir() {
  // Depth first and without following links: children go before their directory.
  nftw(mPath.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
}

std::string TempDir::file(const std::string& name) const { return mPath + "/" + name; }

std::string TempDir::writeFile(const std::string& name, const std::string& bytes) const {
  std::string path = file(name);
  std::ofstream out(path, std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out) {
    throw std::runtime_error("cannot write " + path);
  }
  return path;
}

LogCapture::LogCapture(bool debug, verbosity_level_t verbosity) {
  KXLogging::setSink(&LogCapture::sink, this);
  KXLogging::setVerbosity(verbosity);
  KXLogging::setDebugLogging(debug);
}

LogCapture::~LogCapture() {
  KXLogging::setDebugLogging(false);
  KXLogging::setVerbosity(0);
  KXLogging::setSink(nullptr, nullptr);
}

void LogCapture::sink(verbosity_level_t level, component_t component, const char* line,
                      void* context) {
  static_cast<LogCapture*>(context)->mLines.push_back({level, component, line});
}

int LogCapture::count(verbosity_level_t level, const std::string& text) const {
  int found = 0;
  for (const LogLine& line : mLines) {
    found +=
        (level == 0 || line.level == level) && line.text.find(text) != std::string::npos ? 1 : 0;
  }
  return found;
}

StrictModeScope::StrictModeScope(KXBool strict) : mPrevious(KXStreams::getStreamStrictMode()) {
  KXStreams::setStreamStrictMode(strict);
}

StrictModeScope::~StrictModeScope() { KXStreams::setStreamStrictMode(mPrevious); }

std::string traces(const KXException& exception) {
  std::string joined;
  for (int index = 0; index < exception.GetTraceCount(); ++index) {
    joined += (index > 0 ? " | " : "") + std::string(exception.GetTrace(index));
  }
  return joined;
}

std::string randomBytes(size_t count, unsigned seed) {
  std::mt19937 generator(seed);
  std::uniform_int_distribution<int> byte(0, 255);
  std::string bytes(count, '\0');
  for (char& c : bytes) {
    c = static_cast<char>(byte(generator));
  }
  return bytes;
}

std::string readString(KXBasicGenericStream& stream, int count) {
  std::string bytes(static_cast<size_t>(count), '\0');
  bytes.resize(static_cast<size_t>(stream.read(&bytes[0], count)));
  return bytes;
}

namespace {
StringSource& sourceOf(KXStreamInfo* info) {
  return *static_cast<StringSource*>(const_cast<void*>(info->mUserData));
}
}  // namespace

long stringSourcePrepare(KXStreamInfo* info) {
  StringSource& source = sourceOf(info);
  const int64_t left = static_cast<int64_t>(source.bytes.size()) - info->mStreamPos;
  const int64_t count = std::min(info->mTransferLen, left);
  info->mBuffer = count > 0 ? &source.bytes[static_cast<size_t>(info->mStreamPos)] : nullptr;
  info->mTransferLen = count;
  info->mStreamPos += count;
  info->mAtEOF = count == left ? 1 : 0;
  return source.status;
}

long stringSourceSetMarker(KXStreamInfo* info) {
  info->mMarkerPos = info->mStreamPos;
  return sourceOf(info).status;
}

long stringSourceResetMarker(KXStreamInfo* info) { return sourceOf(info).status; }

long stringSourceClose(KXStreamInfo* info) {
  ++sourceOf(info).closes;
  return sourceOf(info).status;
}

long writeString(KXBasicGenericStream& stream, std::string bytes) {
  return stream.write(&bytes[0], static_cast<int>(bytes.size()));
}

std::string fileContents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

std::string md5sumOf(const std::string& bytes) {
  const TempDir dir;
  const std::string command = "md5sum '" + dir.writeFile("content", bytes) + "'";
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) {
    throw std::runtime_error("cannot run " + command);
  }
  char digest[33] = {};
  const size_t got = fread(digest, 1, 32, pipe);
  pclose(pipe);
  if (got != 32) {
    throw std::runtime_error("md5sum printed no digest: " + command);
  }
  return digest;
}

pid_t startChild(const std::function<int()>& body) {
  fflush(nullptr);  // nothing buffered before the fork is written twice
  const pid_t child = fork();
  if (child == 0) {
    int status = 99;
    try {
      status = body();
    } catch (...) {
    }
    _exit(status);
  }
  return child;
}

int waitChild(pid_t child) {
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) {
    return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int inChild(const std::function<int()>& body) { return waitChild(startChild(body)); }

long openDescriptorCount() {
  DIR* directory = opendir("/proc/self/fd");
  if (directory == nullptr) {
    throw std::runtime_error("cannot list /proc/self/fd");
  }
  long count = 0;
  while (const dirent* entry = readdir(directory)) {
    count += entry->d_name[0] != '.' ? 1 : 0;
  }
  closedir(directory);
  // The listing's own descriptor is not one of the caller's.
  return count - 1;
}

}  // namespace kxtest
