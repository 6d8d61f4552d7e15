#include "serve/server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <microhttpd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>

#include "delivery/answer_page.h"

namespace formwiz::serve {
namespace {

using Clock = std::chrono::steady_clock;

// A body past the limit is no longer kept, but the library only lets a
// response go out once the whole request is in. Up to this much more is read
// and dropped so that the client still gets its 413; a client that sends
// more than that loses the connection instead.
constexpr size_t kMaxDiscard = size_t{1} << 20;

// What the server knows about one request between the library's calls.
struct Exchange {
  Clock::time_point start = Clock::now();
  bool form = false;
  bool too_large = false;
  size_t discarded = 0;
  delivery::Request request;
};

// The library hands the access handler the decoded path as a C string, in
// which an encoded NUL ("%00") would silently end the path early. The raw
// request line is seen first, and a request whose path holds one is marked
// with this, so that it is refused instead of served as its prefix.
char kEncodedNul;

bool HasEncodedNul(const char* uri) {
  for (const char* p = uri; *p && *p != '?'; ++p) {
    if (p[0] == '%' && p[1] == '0' && p[2] == '0') return true;
  }
  return false;
}

std::string Header(MHD_Connection* connection, const char* name) {
  const char* value =
      MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
  return value ? value : "";
}

std::string ClientAddress(MHD_Connection* connection) {
  const MHD_ConnectionInfo* info =
      MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
  if (!info || !info->client_addr) return "";
  char text[INET6_ADDRSTRLEN] = {};
  const sockaddr* address = info->client_addr;
  if (address->sa_family == AF_INET) {
    const auto* v4 = reinterpret_cast<const sockaddr_in*>(address);
    if (inet_ntop(AF_INET, &v4->sin_addr, text, sizeof text)) return text;
  } else if (address->sa_family == AF_INET6) {
    const auto* v6 = reinterpret_cast<const sockaddr_in6*>(address);
    if (inet_ntop(AF_INET6, &v6->sin6_addr, text, sizeof text)) return text;
  }
  return "";
}

// The declared body length. The library has already refused a malformed
// Content-Length; a chunked body has none.
std::optional<uint64_t> DeclaredLength(MHD_Connection* connection) {
  if (!Header(connection, MHD_HTTP_HEADER_TRANSFER_ENCODING).empty()) {
    return std::nullopt;
  }
  const std::string text = Header(connection, MHD_HTTP_HEADER_CONTENT_LENGTH);
  uint64_t length = 0;
  const auto [end, ec] =
      std::from_chars(text.data(), text.data() + text.size(), length);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return length;
}

MHD_Result Queue(MHD_Connection* connection, const delivery::Response& answer) {
  MHD_Response* response = MHD_create_response_from_buffer(
      answer.body.size(), const_cast<char*>(answer.body.data()),
      MHD_RESPMEM_MUST_COPY);
  if (!response) return MHD_NO;
  if (!answer.content_type.empty()) {
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE,
                            answer.content_type.c_str());
  }
  // The library refuses a header with a line break or tab in it, so none of
  // these can split the response.
  for (const auto& [name, value] : answer.headers) {
    MHD_add_response_header(response, name.c_str(), value.c_str());
  }
  MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
  const MHD_Result result = MHD_queue_response(
      connection, static_cast<unsigned>(answer.status), response);
  MHD_destroy_response(response);
  return result;
}

delivery::Response SmallPage(int status, const std::string& title,
                             const std::string& text) {
  delivery::Response response;
  response.status = status;
  response.content_type = "text/html; charset=utf-8";
  response.body =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta "
      "charset=\"utf-8\">\n<title>" +
      delivery::HtmlText(title) + "</title>\n</head>\n<body>\n<h1>" +
      delivery::HtmlText(title) + "</h1>\n<p>" + delivery::HtmlText(text) +
      "</p>\n</body>\n</html>\n";
  return response;
}

// The handler's own page for a refused post, so that a form that is too
// large looks like any other refusal to the visitor.
delivery::Response TooLarge(const delivery::Request& request, size_t limit) {
  return delivery::Refusal(request, MHD_HTTP_CONTENT_TOO_LARGE,
                           "The form is too large: at most " +
                               std::to_string(limit) + " bytes are accepted.");
}

}  // namespace

struct Server::Impl {
  static MHD_Result Access(void* cls, MHD_Connection* connection,
                           const char* url, const char* method,
                           const char* /*version*/, const char* upload_data,
                           size_t* upload_data_size, void** req_cls) {
    Server& server = *static_cast<Server*>(cls);
    // Nothing may unwind into the C library: a failure closes the
    // connection.
    try {
      if (*req_cls == &kEncodedNul) {
        *req_cls = nullptr;
        return Queue(connection,
                     SmallPage(MHD_HTTP_BAD_REQUEST, "Bad request",
                               "The address holds a NUL character."));
      }
      if (*req_cls == nullptr) {
        auto* exchange = new Exchange;
        *req_cls = exchange;
        {
          std::lock_guard lock(server.mutex_);
          ++server.in_flight_;
        }
        if (std::strcmp(url, kFormPath) == 0) {
          return BeginForm(server, connection, method, *exchange);
        }
        return ServeStatic(server, connection, url, method);
      }
      auto& exchange = *static_cast<Exchange*>(*req_cls);
      if (!exchange.form) return MHD_NO;
      if (*upload_data_size > 0) {
        return Receive(server, exchange, upload_data, upload_data_size);
      }
      if (exchange.too_large) {
        return Queue(connection, TooLarge(exchange.request,
                                          server.options_.limits.max_body));
      }
      return Queue(connection, server.handler_.Handle(exchange.request,
                                                      /*prechecked=*/true));
    } catch (const std::exception& e) {
      // The server's error log; the visitor learns only that it failed.
      std::fprintf(stderr, "formwiz serve: %s %s: %s\n", method, url, e.what());
      return Queue(connection, SmallPage(MHD_HTTP_INTERNAL_SERVER_ERROR,
                                         "Internal server error",
                                         "The request could not be handled."));
    }
  }

  static MHD_Result BeginForm(Server& server, MHD_Connection* connection,
                              const char* method, Exchange& exchange) {
    exchange.form = true;
    delivery::Request& request = exchange.request;
    request.method = method;
    request.content_type = Header(connection, MHD_HTTP_HEADER_CONTENT_TYPE);
    request.content_length = DeclaredLength(connection);
    request.client = ClientAddress(connection);
    request.referer = Header(connection, MHD_HTTP_HEADER_REFERER);
    request.accept = Header(connection, MHD_HTTP_HEADER_ACCEPT);
    // Refused before a byte of the body is read: the library drops the
    // rest and closes the connection after the answer.
    if (auto refused = server.handler_.Precheck(request)) {
      return Queue(connection, *refused);
    }
    const size_t limit = server.options_.limits.max_body;
    if (request.content_length && *request.content_length > limit) {
      return Queue(connection, TooLarge(request, limit));
    }
    return MHD_YES;
  }

  static MHD_Result Receive(Server& server, Exchange& exchange,
                            const char* data, size_t* size) {
    const auto& limits = server.options_.limits;
    // The library's timeout counts idle time only; a client that trickles
    // a body forever is cut off at the request's whole time.
    if (Clock::now() - exchange.start >
        std::chrono::seconds(limits.timeout_seconds)) {
      return MHD_NO;
    }
    std::string& body = exchange.request.body;
    if (!exchange.too_large && body.size() + *size > limits.max_body) {
      exchange.too_large = true;
      std::string().swap(body);
    }
    if (exchange.too_large) {
      exchange.discarded += *size;
      if (exchange.discarded > kMaxDiscard) return MHD_NO;
    } else {
      body.append(data, *size);
    }
    *size = 0;
    return MHD_YES;
  }

  // GET and HEAD of the site's files; the library leaves out the body of a
  // HEAD answer itself.
  static MHD_Result ServeStatic(Server& server, MHD_Connection* connection,
                                const char* url, const char* method) {
    if (std::strcmp(method, MHD_HTTP_METHOD_GET) != 0 &&
        std::strcmp(method, MHD_HTTP_METHOD_HEAD) != 0) {
      delivery::Response response =
          SmallPage(MHD_HTTP_METHOD_NOT_ALLOWED, "Method not allowed",
                    "This address only answers GET and HEAD.");
      response.headers.emplace_back(MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
      return Queue(connection, response);
    }
    const auto path = server.site_.Resolve(url);
    if (!path) {
      if (std::strcmp(url, "/") == 0) {
        delivery::Response index;
        index.content_type = "text/html; charset=utf-8";
        index.body = server.index_page_;
        return Queue(connection, index);
      }
      return Queue(connection, NotFound());
    }
    // The last check is made on the file opened: a name swapped for a link
    // since it was resolved is not followed, and only a regular file goes.
    const int fd = open(path->c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return Queue(connection, NotFound());
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
      close(fd);
      return Queue(connection, NotFound());
    }
    MHD_Response* response =
        MHD_create_response_from_fd(static_cast<uint64_t>(st.st_size), fd);
    if (!response) {
      close(fd);
      return MHD_NO;
    }
    const std::string type(ContentTypeFor(*path));
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE,
                            type.c_str());
    MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
    // Pages change while their author edits them.
    MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL,
                            "no-cache");
    const MHD_Result result =
        MHD_queue_response(connection, MHD_HTTP_OK, response);
    MHD_destroy_response(response);
    return result;
  }

  static delivery::Response NotFound() {
    return SmallPage(MHD_HTTP_NOT_FOUND, "Not found",
                     "Nothing is served at this address.");
  }

  static void* SeeUri(void* /*cls*/, const char* uri,
                      MHD_Connection* /*connection*/) {
    return HasEncodedNul(uri) ? &kEncodedNul : nullptr;
  }

  static void Completed(void* cls, MHD_Connection* /*connection*/,
                        void** req_cls, MHD_RequestTerminationCode /*code*/) {
    if (*req_cls == nullptr || *req_cls == &kEncodedNul) return;
    auto* exchange = static_cast<Exchange*>(*req_cls);
    delete exchange;
    *req_cls = nullptr;
    Server& server = *static_cast<Server*>(cls);
    std::lock_guard lock(server.mutex_);
    if (--server.in_flight_ == 0) server.idle_.notify_all();
  }
};

std::optional<ListenAddress> ParseListenAddress(std::string_view text,
                                                std::string& error) {
  std::string_view host;
  std::string_view port;
  if (!text.empty() && text.front() == '[') {
    const size_t close = text.find(']');
    if (close == std::string_view::npos || close + 1 >= text.size() ||
        text[close + 1] != ':') {
      error = "expected [IPv6]:PORT";
      return std::nullopt;
    }
    host = text.substr(1, close - 1);
    port = text.substr(close + 2);
  } else {
    const size_t colon = text.rfind(':');
    if (colon == std::string_view::npos) {
      error = "expected HOST:PORT";
      return std::nullopt;
    }
    host = text.substr(0, colon);
    port = text.substr(colon + 1);
    if (host.find(':') != std::string_view::npos) {
      error = "an IPv6 address goes in brackets: [ADDRESS]:PORT";
      return std::nullopt;
    }
  }
  ListenAddress out;
  unsigned value = 0;
  const auto [end, ec] =
      std::from_chars(port.data(), port.data() + port.size(), value);
  if (port.empty() || ec != std::errc() || end != port.data() + port.size() ||
      value > 65535) {
    error = "the port is not a number from 0 to 65535";
    return std::nullopt;
  }
  out.port = static_cast<uint16_t>(value);
  std::string name(host);
  if (name == "localhost") name = "127.0.0.1";
  auto* v4 = reinterpret_cast<sockaddr_in*>(&out.address);
  auto* v6 = reinterpret_cast<sockaddr_in6*>(&out.address);
  if (inet_pton(AF_INET, name.c_str(), &v4->sin_addr) == 1) {
    v4->sin_family = AF_INET;
    v4->sin_port = htons(out.port);
    out.length = sizeof(sockaddr_in);
  } else if (inet_pton(AF_INET6, name.c_str(), &v6->sin6_addr) == 1) {
    v6->sin6_family = AF_INET6;
    v6->sin6_port = htons(out.port);
    out.length = sizeof(sockaddr_in6);
    out.ipv6 = true;
  } else {
    error = "\"" + name + "\" is not an IPv4 or IPv6 address";
    return std::nullopt;
  }
  out.host = name;
  return out;
}

Server::Server(delivery::Handler& handler, const StaticSite& site,
               ServerOptions options)
    : handler_(handler), site_(site), options_(std::move(options)) {}

Server::~Server() { Stop(); }

bool Server::Start(std::string& error) {
  auto address = ParseListenAddress(options_.listen, error);
  if (!address) {
    error = "--listen " + options_.listen + ": " + error;
    return false;
  }
  index_page_ = site_.IndexPage(site_.Files());
  unsigned flags = MHD_USE_AUTO_INTERNAL_THREAD |
                   MHD_USE_THREAD_PER_CONNECTION | MHD_USE_ERROR_LOG |
                   MHD_USE_ITC;
  if (address->ipv6) flags |= MHD_USE_IPv6;
  const auto& limits = options_.limits;
  daemon_ = MHD_start_daemon(
      flags, address->port, nullptr, nullptr, &Impl::Access, this,
      MHD_OPTION_SOCK_ADDR, reinterpret_cast<sockaddr*>(&address->address),
      MHD_OPTION_CONNECTION_TIMEOUT,
      static_cast<unsigned>(std::max(1, limits.timeout_seconds)),
      MHD_OPTION_PER_IP_CONNECTION_LIMIT,
      static_cast<unsigned>(std::max(1, limits.connections_per_ip)),
      MHD_OPTION_CONNECTION_MEMORY_LIMIT, options_.connection_memory,
      MHD_OPTION_CONNECTION_LIMIT, options_.connection_limit,
      MHD_OPTION_NOTIFY_COMPLETED, &Impl::Completed, this,
      MHD_OPTION_URI_LOG_CALLBACK, &Impl::SeeUri, this, MHD_OPTION_END);
  if (!daemon_) {
    error = "cannot listen on " + options_.listen + ": " +
            std::strerror(errno ? errno : EADDRNOTAVAIL);
    return false;
  }
  const MHD_DaemonInfo* info =
      MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT);
  port_ = info ? info->port : address->port;
  host_ = address->host;
  ipv6_ = address->ipv6;
  return true;
}

void Server::Stop() {
  if (!daemon_) return;
  const MHD_socket listener = MHD_quiesce_daemon(daemon_);
  {
    // Requests under way are answered; idle keep-alive connections are not
    // waited for. Bounded by a request's whole time.
    std::unique_lock lock(mutex_);
    idle_.wait_for(
        lock,
        std::chrono::seconds(std::max(1, options_.limits.timeout_seconds)),
        [this] { return in_flight_ == 0; });
  }
  MHD_stop_daemon(daemon_);
  daemon_ = nullptr;
  if (listener != MHD_INVALID_SOCKET) close(listener);
}

std::string Server::BaseUrl() const {
  const std::string host = ipv6_ ? "[" + host_ + "]" : host_;
  return "http://" + host + ":" + std::to_string(port_) + "/";
}

}  // namespace formwiz::serve
