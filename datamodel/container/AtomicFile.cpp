// SPDX-License-Identifier: Apache-2.0

#include "datamodel/container/AtomicFile.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string_view>
#include <system_error>

namespace Fiber::Container {

using MemCore::Failure;
using MemCore::Outcome;

namespace {

constexpr std::string_view kMark = ".tmp.";

/// Numbers the temporaries of this process, so that two threads never choose the same name.
std::uint64_t nextNumber() {
  static std::atomic<std::uint64_t> number{0};
  return number++;
}

std::string folderOf(const std::string& path) {
  const std::string folder = std::filesystem::path(path).parent_path().string();
  return folder.empty() ? "." : folder;
}

template <class Integer>
std::optional<Integer> parseWhole(std::string_view text) {
  Integer value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

/// The process that made a temporary, from its name; empty for every other name.
std::optional<pid_t> makerOf(std::string_view name) {
  const std::size_t mark = name.rfind(kMark);
  if (mark == std::string_view::npos || mark == 0) return std::nullopt;
  const std::string_view numbers = name.substr(mark + kMark.size());
  const std::size_t dot = numbers.find('.');
  if (dot == std::string_view::npos) return std::nullopt;
  const auto maker = parseWhole<pid_t>(numbers.substr(0, dot));
  if (!maker || *maker <= 0 || !parseWhole<std::uint64_t>(numbers.substr(dot + 1))) {
    return std::nullopt;
  }
  return maker;
}

/// The n-th word (from 0) of a line of words.
std::string wordOf(const std::string& line, int n) {
  std::istringstream words(line);
  std::string word;
  for (int i = 0; i <= n; ++i) words >> word;
  return word;
}

/// Seconds since 1970 at which a process started, from /proc; empty where that cannot be told.
std::optional<double> startOf(pid_t process) {
  std::string line;
  std::ifstream statFile(fmt::format("/proc/{}/stat", process));
  if (!std::getline(statFile, line)) return std::nullopt;
  // The second word is the program's name in parentheses and may hold anything.
  const std::size_t nameEnd = line.rfind(')');
  if (nameEnd == std::string::npos) return std::nullopt;
  constexpr int kStartTimeAfterName = 19;
  const auto ticks =
      parseWhole<std::uint64_t>(wordOf(line.substr(nameEnd + 1), kStartTimeAfterName));
  std::ifstream machine("/proc/stat");
  while (std::getline(machine, line)) {
    if (!line.starts_with("btime ")) continue;
    const auto boot = parseWhole<std::uint64_t>(wordOf(line, 1));
    if (!ticks || !boot) return std::nullopt;
    return static_cast<double>(*boot) +
           static_cast<double>(*ticks) / static_cast<double>(::sysconf(_SC_CLK_TCK));
  }
  return std::nullopt;
}

/// Whether the maker of a file last written at `modified` (seconds since 1970) is still running.
bool makerLives(pid_t maker, double modified) {
  if (::kill(maker, 0) != 0 && errno == ESRCH) return false;
  // Boot time and clock ticks are coarse; within this margin the benefit of the doubt is the
  // file's.
  constexpr double kMarginSeconds = 2.0;
  const auto started = startOf(maker);
  return !started || *started <= modified + kMarginSeconds;
}

/// Whether somebody holds the file locked, as every writer does. File systems without such locks
/// cannot say, and leave the decision to the process number.
bool isLocked(const std::string& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
  if (!file.ok()) return false;
  return ::flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

bool isStale(const std::string& path, pid_t maker) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  return !makerLives(maker, static_cast<double>(status.st_mtim.tv_sec)) && !isLocked(path);
}

}  // namespace

AtomicFile::AtomicFile(std::string target, std::string temporary, FileDescriptor file)
    : target_(std::move(target)), temporary_(std::move(temporary)), file_(std::move(file)) {}

AtomicFile::AtomicFile(AtomicFile&& other) noexcept
    : target_(std::move(other.target_)),
      temporary_(std::exchange(other.temporary_, std::string())),
      file_(std::move(other.file_)) {}

AtomicFile::~AtomicFile() { discard(); }

void AtomicFile::discard() noexcept {
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
  temporary_.clear();
  file_.reset();
}

Outcome<AtomicFile> AtomicFile::make(const std::string& target) {
  constexpr mode_t kReadWriteForAll = 0666;  // less the user's umask
  for (;;) {
    std::string temporary = fmt::format("{}{}{}.{}", target, kMark, ::getpid(), nextNumber());
    FileDescriptor file(
        ::open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kReadWriteForAll));
    if (!file.ok() && errno == EEXIST) continue;  // left by a dead process of our number
    if (!file.ok()) {
      return Failure{fmt::format("{}: cannot create the temporary file beside it, found \"{}\"",
                                 target, systemError(errno))};
    }
    // Not every file system has locks; the process number in the name then has to do.
    ::flock(file.get(), LOCK_EX | LOCK_NB);
    return AtomicFile(target, std::move(temporary), std::move(file));
  }
}

Outcome<void> AtomicFile::commit(Durability durability) {
  if (temporary_.empty()) return Failure{fmt::format("{}: already committed", target_)};
  if (durability == Durability::kSynced && ::fsync(file_.get()) != 0) {
    const int error = errno;
    discard();
    return Failure{fmt::format("{}: cannot be flushed to the disk, found \"{}\"", target_,
                               systemError(error))};
  }
  if (::rename(temporary_.c_str(), target_.c_str()) != 0) {
    const int error = errno;
    discard();
    return Failure{
        fmt::format("{}: cannot take its name, found \"{}\"", target_, systemError(error))};
  }
  temporary_.clear();
  file_.reset();
  return {};
}

Outcome<void> syncFolder(const std::string& path) {
  std::error_code error;
  const std::string folder = std::filesystem::is_directory(path, error) ? path : folderOf(path);
  const FileDescriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptor.ok() || ::fsync(descriptor.get()) != 0) {
    return Failure{
        fmt::format("{}: cannot flush the folder, found \"{}\"", folder, systemError(errno))};
  }
  return {};
}

Outcome<int> removeStaleTemporaries(const std::string& folder) {
  std::error_code error;
  std::filesystem::directory_iterator entries(folder, error);
  int removed = 0;
  for (; !error && entries != std::filesystem::directory_iterator(); entries.increment(error)) {
    const auto maker = makerOf(entries->path().filename().string());
    if (!maker) continue;
    const std::string path = entries->path().string();
    if (isStale(path, *maker) && ::unlink(path.c_str()) == 0) ++removed;
  }
  if (error) {
    return Failure{
        fmt::format("{}: cannot read the folder, found \"{}\"", folder, error.message())};
  }
  return removed;
}

}  // namespace Fiber::Container
