// `formwiz serve`'s HTTP side: libmicrohttpd parses every request; this file
// routes it. The form handler answers at kFormPath, the static site
// everywhere else (GET and HEAD).
//
// libmicrohttpd rather than another Debian server library: it is a small C
// library with the limits a visitor-facing server needs built in (per-address
// connection limit, idle timeout, a fixed memory budget per connection,
// a total connection limit), it hands the body over piece by piece so that a
// post is refused the moment it grows too large, and it has been exposed to
// the internet and fuzzed for many years.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "delivery/handler.h"
#include "delivery/limits.h"
#include "serve/static_site.h"

struct MHD_Daemon;

namespace formwiz::serve {

// Where the form's posts go; the bundled orbs' defaultaction.
inline constexpr char kFormPath[] = "/cgi-bin/formmail";

// A parsed --listen value: an IPv4 or IPv6 literal (IPv6 in brackets) and a
// port; "localhost" is 127.0.0.1. Host names are not looked up: the server
// binds exactly the address it is told.
struct ListenAddress {
  sockaddr_storage address{};
  socklen_t length = 0;
  bool ipv6 = false;
  std::string host;  // the numeric address, as the URL shows it
  uint16_t port = 0;
};
std::optional<ListenAddress> ParseListenAddress(std::string_view text,
                                                std::string& error);

struct ServerOptions {
  std::string listen = "127.0.0.1:8080";
  delivery::Limits limits;
  size_t connection_memory = 128 * 1024;  // bytes per connection
  unsigned connection_limit = 256;        // open connections in all
};

class Server {
 public:
  // `handler` and `site` must outlive the server. The handler is called
  // from several threads at once.
  Server(delivery::Handler& handler, const StaticSite& site,
         ServerOptions options);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Binds and starts answering. False with `error` in one line.
  bool Start(std::string& error);
  // Stops accepting and waits for the requests under way. Safe to call
  // twice.
  void Stop();

  // The bound port (the chosen one when the listen port was 0).
  uint16_t port() const { return port_; }
  // "http://HOST:PORT/".
  std::string BaseUrl() const;

 private:
  // The library's callbacks, which reach the members below.
  struct Impl;

  delivery::Handler& handler_;
  const StaticSite& site_;
  ServerOptions options_;
  std::string host_;
  bool ipv6_ = false;
  uint16_t port_ = 0;
  std::string index_page_;  // "/" when no folder has an index.html
  MHD_Daemon* daemon_ = nullptr;
  // Requests begun and not yet answered, which Stop waits for.
  std::mutex mutex_;
  std::condition_variable idle_;
  int in_flight_ = 0;
};

}  // namespace formwiz::serve
