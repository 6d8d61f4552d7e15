// What the handler's test programs share: a private folder per test, whole
// files in and out, and another program run to its end with a bound on time.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace formwiz::testing {

namespace fs = std::filesystem;

inline std::string ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

inline void WriteFile(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

// A folder of its own, removed with everything in it at the end.
class TempDir {
 public:
  TempDir() {
    std::string pattern = fs::temp_directory_path() / "fwtest.XXXXXX";
    path_ = ::mkdtemp(pattern.data());
  }
  ~TempDir() { fs::remove_all(path_); }
  const fs::path& path() const { return path_; }
  std::string operator/(const std::string& name) const {
    return (path_ / name).string();
  }
  // Writes `text` to `name` in the folder; gives its path.
  std::string File(const std::string& name, const std::string& text) const {
    WriteFile(path_ / name, text);
    return *this / name;
  }

 private:
  fs::path path_;
};

struct ProgramRun {
  int status = -1;  // the exit status; -1 when killed or not started
  std::string out, err;
};

// Runs `args` with `input` on its standard input and `env` ("NAME=value")
// added to ours; killed when it outlasts `seconds`.
inline ProgramRun RunProgram(const std::vector<std::string>& args,
                             const std::string& input = "",
                             const std::vector<std::string>& env = {},
                             int seconds = 60) {
  TempDir io;
  const std::string in = io.File("in", input), out = io / "out",
                    err = io / "err";
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, in.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, err.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0600);
  std::vector<char*> argv, envp;
  for (const auto& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  // Ours after the added ones: the first of a name is the one that counts.
  for (const auto& e : env) envp.push_back(const_cast<char*>(e.c_str()));
  for (char** e = environ; *e != nullptr; ++e) envp.push_back(*e);
  envp.push_back(nullptr);
  pid_t pid = 0;
  ProgramRun run;
  const int spawned =
      posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return run;
  const auto end =
      std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  int status = 0;
  while (::waitpid(pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > end) {
      ::kill(pid, SIGKILL);
      ::waitpid(pid, &status, 0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  run.out = ReadFile(out);
  run.err = ReadFile(err);
  return run;
}

}  // namespace formwiz::testing
