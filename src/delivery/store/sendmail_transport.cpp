#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string_view>

#include "delivery/store/transport.h"

extern char** environ;

namespace formwiz::store {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kExitTempFail = 75;   // EX_TEMPFAIL from <sysexits.h>
constexpr size_t kMaxOutput = 300;  // of the mailer's words, for the detail

// The local mailer reads text with LF line ends; the message is composed
// with CR LF for SMTP.
std::string ToLf(std::string_view message) {
  std::string out;
  out.reserve(message.size());
  for (size_t i = 0; i < message.size(); ++i) {
    if (message[i] == '\r' && i + 1 < message.size() &&
        message[i + 1] == '\n') {
      continue;
    }
    out.push_back(message[i]);
  }
  return out;
}

// The sender goes on the mailer's command line: no option look-alikes,
// no control characters.
bool SafeSender(std::string_view from) {
  return !from.empty() && from.size() <= 320 && from.front() != '-' &&
         std::none_of(from.begin(), from.end(), [](char c) {
           auto byte = static_cast<unsigned char>(c);
           return byte < 0x20 || byte == 0x7f;
         });
}

class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() { Close(); }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  void Close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_;
};

std::string OneLine(std::string_view text) {
  std::string line;
  for (char c : text.substr(0, kMaxOutput)) {
    auto byte = static_cast<unsigned char>(c);
    line.push_back(byte < 0x20 || byte >= 0x7f ? ' ' : c);
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

class SendmailTransport : public Transport {
 public:
  SendmailTransport(std::string command, int timeout_seconds)
      : command_(std::move(command)),
        timeout_(std::chrono::seconds(std::max(timeout_seconds, 1))) {}

  SendResult Send(const std::string& from,
                  const std::vector<std::string>& /*recipients: -t*/,
                  const std::string& message) override {
    if (!from.empty() && !SafeSender(from)) {
      return {SendResult::Kind::kPermanent, "unusable envelope sender"};
    }
    // The mailer's input is a socket, not a pipe: writing to it after the
    // mailer quit gives EPIPE through MSG_NOSIGNAL instead of a SIGPIPE
    // that would end this whole process.
    int input[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, input) != 0) {
      return Temporary("socketpair", errno);
    }
    Fd ours_in(input[0]), theirs_in(input[1]);
    int output[2];
    if (::pipe2(output, O_CLOEXEC) != 0) return Temporary("pipe", errno);
    Fd ours_out(output[0]), theirs_out(output[1]);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, theirs_in.get(), 0);
    posix_spawn_file_actions_adddup2(&actions, theirs_out.get(), 1);
    posix_spawn_file_actions_adddup2(&actions, theirs_out.get(), 2);
    std::vector<std::string> words = {command_, "-oi", "-t"};
    if (!from.empty()) {
      words.push_back("-f");
      words.push_back(from);
    }
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    int rc = posix_spawn(&pid, command_.c_str(), &actions, nullptr, argv.data(),
                         environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) return Temporary(command_, rc);
    theirs_in.Close();
    theirs_out.Close();
    ::fcntl(ours_in.get(), F_SETFL, O_NONBLOCK);
    ::fcntl(ours_out.get(), F_SETFL, O_NONBLOCK);
    return Converse(pid, ours_in, ours_out, ToLf(message));
  }

 private:
  static SendResult Temporary(const std::string& what, int error) {
    return {SendResult::Kind::kTemporary,
            "sendmail: " + what + ": " + std::strerror(error)};
  }

  // Feeds the message, collects what the mailer says, and waits for its
  // exit, all within the timeout; past it the mailer is killed.
  SendResult Converse(pid_t pid, Fd& in, Fd& out, const std::string& text) {
    Clock::time_point deadline = Clock::now() + timeout_;
    std::string_view rest = text;
    std::string said;
    int status = 0;
    bool exited = false;
    if (rest.empty()) in.Close();
    while (true) {
      if (!exited) {
        pid_t waited = ::waitpid(pid, &status, WNOHANG);
        if (waited == pid) exited = true;
        // Reaped elsewhere (SIGCHLD ignored): the outcome cannot be known,
        // and waiting on would only end in a kill.
        if (waited < 0 && errno != EINTR) {
          return {SendResult::Kind::kTemporary,
                  "sendmail: exit status lost: " +
                      std::string(std::strerror(errno))};
        }
      }
      if (exited) {
        Drain(out, said);
        break;
      }
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - Clock::now());
      if (left.count() <= 0) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, &status, 0);
        return {SendResult::Kind::kTemporary,
                "sendmail: no answer within " +
                    std::to_string(timeout_.count()) + " s"};
      }
      pollfd fds[2] = {{in.get(), POLLOUT, 0}, {out.get(), POLLIN, 0}};
      // Short waits, so that an exit is seen even while the mailer's
      // output stays open in some process it left behind.
      ::poll(fds, 2, static_cast<int>(std::min<int64_t>(left.count(), 50)));
      if (in.get() >= 0 && fds[0].revents != 0) {
        ssize_t n = ::send(in.get(), rest.data(), rest.size(), MSG_NOSIGNAL);
        if (n > 0) rest.remove_prefix(static_cast<size_t>(n));
        if (rest.empty() || (n < 0 && errno != EAGAIN && errno != EINTR)) {
          in.Close();  // end of the message, or the mailer stopped reading
        }
      }
      if (out.get() >= 0 && fds[1].revents != 0) Drain(out, said);
    }
    std::string words = OneLine(said);
    if (WIFEXITED(status)) {
      int code = WEXITSTATUS(status);
      std::string detail = "sendmail exit " + std::to_string(code);
      if (!words.empty()) detail += ": " + words;
      if (code == 0) return {SendResult::Kind::kSent, detail};
      if (code == kExitTempFail) return {SendResult::Kind::kTemporary, detail};
      if (!rest.empty()) {
        // It quit before reading the whole message: nothing was accepted.
        detail += " (message not read whole)";
      }
      return {SendResult::Kind::kPermanent, detail};
    }
    return {SendResult::Kind::kTemporary,
            "sendmail killed by signal " + std::to_string(WTERMSIG(status))};
  }

  // Reads what is there now; keeps the start, drops the rest.
  static void Drain(Fd& out, std::string& said) {
    char buffer[4096];
    while (out.get() >= 0) {
      ssize_t n = ::read(out.get(), buffer, sizeof buffer);
      if (n > 0) {
        size_t room = kMaxOutput - std::min(said.size(), kMaxOutput);
        said.append(buffer, std::min(static_cast<size_t>(n), room));
        continue;
      }
      if (n == 0) out.Close();
      if (n < 0 && errno == EINTR) continue;
      return;
    }
  }

  std::string command_;
  std::chrono::seconds timeout_;
};

}  // namespace

std::unique_ptr<Transport> MakeSendmailTransport(const std::string& command,
                                                 int timeout_seconds) {
  return std::make_unique<SendmailTransport>(command, timeout_seconds);
}

}  // namespace formwiz::store
