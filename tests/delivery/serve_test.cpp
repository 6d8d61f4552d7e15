// `formwiz serve`'s parts: the static site's path mapping, the recipients a
// page file names, the HTTP server with its limits (a real server on
// 127.0.0.1, libcurl as the client), the delivery worker, and the
// `submissions` command over a real store.
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "delivery/config.h"
#include "delivery/handler.h"
#include "delivery/rate_limit.h"
#include "delivery/store/sqlite_store.h"
#include "host/page.h"
#include "serve/delivery_worker.h"
#include "serve/page_recipients.h"
#include "serve/server.h"
#include "serve/static_site.h"
#include "test_support.h"

namespace formwiz::serve {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using testing::ProgramRun;
using testing::TempDir;
using testing::WriteFile;

std::string Real(const std::string& path) {
  return fs::canonical(path).string();
}

// A site folder with the ways out of it that a request may try: a link to a
// file outside, a link to a folder outside, a hidden folder, and a link that
// stays inside.
struct SiteFixture {
  TempDir dir;
  StaticSite site;
  SiteFixture() {
    WriteFile(dir / "site/index.html", "<p>home</p>");
    WriteFile(dir / "site/style.css", "p{}");
    WriteFile(dir / "site/sub/page.html", "<p>sub</p>");
    WriteFile(dir / "site/.git/config", "secret");
    WriteFile(dir / "outside/secret.txt", "secret");
    WriteFile(dir / "lone/form page.html", "<p>lone</p>");
    fs::create_symlink(dir / "outside/secret.txt", dir / "site/leak.txt");
    fs::create_directory_symlink(dir / "outside", dir / "site/out");
    fs::create_symlink("style.css", dir / "site/also.css");
    std::string error;
    EXPECT_TRUE(site.Add(dir / "site", error)) << error;
    EXPECT_TRUE(site.Add(dir / "lone/form page.html", error)) << error;
  }
};

TEST(StaticSite, MapsUrlsInsideItsFoldersOnly) {
  SiteFixture f;
  const std::string site = Real(f.dir / "site");
  const struct {
    const char* url;
    std::string expected;  // "" when refused
  } cases[] = {
      {"/", site + "/index.html"},
      {"/index.html", site + "/index.html"},
      {"/style.css", site + "/style.css"},
      {"/sub/page.html", site + "/sub/page.html"},
      {"//sub//page.html", site + "/sub/page.html"},
      {"/also.css", site + "/style.css"},  // a link that stays inside
      {"/form page.html", Real(f.dir / "lone/form page.html")},
      {"/sub/", ""},  // a folder without index.html
      {"/sub/../index.html", ""},
      {"/../outside/secret.txt", ""},
      {"/./index.html", ""},
      {"/.git/config", ""},
      {"/leak.txt", ""},
      {"/out/secret.txt", ""},
      {"/missing.html", ""},
      {"index.html", ""},
      {"/sub\\..\\index.html", ""},
  };
  for (const auto& c : cases) {
    const auto resolved = f.site.Resolve(c.url);
    EXPECT_EQ(resolved.value_or(""), c.expected) << c.url;
  }

  // The listing and the recipient scan see the same files the URLs reach.
  std::vector<std::string> urls;
  for (const ServedFile& file : f.site.Files()) urls.push_back(file.url);
  EXPECT_EQ(urls, (std::vector<std::string>{"/form page.html", "/index.html",
                                            "/style.css", "/sub/page.html"}));
  const std::string index = f.site.IndexPage(f.site.Files());
  EXPECT_NE(index.find("<a href=\"/sub/page.html\">"), std::string::npos);
  EXPECT_EQ(index.find("style.css"), std::string::npos);

  std::string error;
  EXPECT_FALSE(f.site.Add(f.dir / "nothing-here", error));
  EXPECT_FALSE(error.empty());
}

// Only the last extension counts, in any case; what is not known is bytes.
TEST(StaticSite, ContentTypesByExtension) {
  const struct {
    const char* path;
    const char* type;
  } cases[] = {
      {"/a/page.HTML", "text/html; charset=utf-8"},
      {"/a.svg", "image/svg+xml"},
      {"/a.tar.gz", "application/octet-stream"},
      {"/a.d/README", "application/octet-stream"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(ContentTypeFor(c.path), c.type) << c.path;
}

// A stored definition with one form whose hidden fields are as the wizard
// writes them.
std::string Definition(const std::string& email_to) {
  return "<impl><formtype>x</formtype><form action=\"/cgi-bin/formmail\">"
         "<input type=\"hidden\" name=\"qln_Subject\" value=\"Hi\"></input>"
         "<input type=\"hidden\" name=\"qln_EmailTo\" value=\"" +
         email_to + "\"></input><table></table></form></impl>";
}

TEST(PageRecipients, ReadsEachFormsAddressFromThePageFile) {
  host::Page page;
  page.blocks.push_back({"Write to us.", nullptr});
  const auto add = [&](std::optional<Variant> data) {
    auto object = page.document->AddObject();
    object->prog_id = "QlnFormOrbWiz.clsFormWiz";
    object->html_source = "<form></form>";
    object->html_data = std::move(data);
    page.blocks.push_back({"", object});
  };
  add(Variant::String(Definition("sales@example.org")));
  add(Variant::String(Definition("sales")));              // an alias
  add(Variant::String(Definition("sales@example.org")));  // named twice
  add(Variant::String("<impl><form>not closed</impl>"));
  add(Variant::Number(3));
  add(std::nullopt);
  add(Variant::String(Definition("")));
  add(Variant::String(Definition("help@example.org")));

  const auto found = PageRecipients(host::WritePageFile(page));
  ASSERT_TRUE(found);
  EXPECT_EQ(*found, (std::vector<std::string>{"sales@example.org", "sales",
                                              "help@example.org"}));

  // Plain HTML with a form is served but names nobody: only the page
  // file's stored definitions count.
  EXPECT_FALSE(
      PageRecipients("<!DOCTYPE html><form><input type=hidden name=qln_EmailTo "
                     "value=\"x@example.org\"></form>"));

  // The sample page in the source tree, made by the wizard.
  const auto sample = PageFileRecipients(std::string(FORMWIZ_SOURCE_DIR) +
                                         "/examples/sample-page.html");
  ASSERT_TRUE(sample);
  EXPECT_EQ(*sample, std::vector<std::string>{"sales@example.org"});
}

TEST(ListenAddress, ParsesLiteralAddressesOnly) {
  const struct {
    const char* text;
    bool ok;
    const char* host;
    int port;
    bool ipv6;
  } cases[] = {
      {"127.0.0.1:8080", true, "127.0.0.1", 8080, false},
      {"localhost:0", true, "127.0.0.1", 0, false},
      {"[::1]:9000", true, "::1", 9000, true},
      {"127.0.0.2:65535", true, "127.0.0.2", 65535, false},
      {"127.0.0.1:65536", false, "", 0, false},
      {"127.0.0.1:", false, "", 0, false},
      {"127.0.0.1:80x", false, "", 0, false},
      {"example.org:80", false, "", 0, false},
      {"::1:80", false, "", 0, false},
      {"[::1]", false, "", 0, false},
      {"8080", false, "", 0, false},
  };
  for (const auto& c : cases) {
    std::string error;
    const auto parsed = ParseListenAddress(c.text, error);
    EXPECT_EQ(parsed.has_value(), c.ok) << c.text;
    if (!parsed || !c.ok) {
      EXPECT_FALSE(error.empty()) << c.text;
      continue;
    }
    EXPECT_EQ(parsed->host, c.host) << c.text;
    EXPECT_EQ(parsed->port, c.port) << c.text;
    EXPECT_EQ(parsed->ipv6, c.ipv6) << c.text;
  }
}

// --- The server over HTTP -------------------------------------------------

struct HttpAnswer {
  CURLcode code = CURLE_OK;
  long status = 0;
  std::string headers;
  std::string body;
};

struct Upload {
  std::string data;
  size_t at = 0;
};

size_t Collect(char* data, size_t size, size_t n, void* out) {
  static_cast<std::string*>(out)->append(data, size * n);
  return size * n;
}

size_t Feed(char* buffer, size_t size, size_t n, void* in) {
  auto& upload = *static_cast<Upload*>(in);
  // Small pieces, so that a chunked body arrives as many chunks.
  const size_t count =
      std::min({size * n, upload.data.size() - upload.at, size_t{1000}});
  std::memcpy(buffer, upload.data.data() + upload.at, count);
  upload.at += count;
  return count;
}

struct HttpRequest {
  std::string method, path;
  std::optional<std::string> body = {};
  bool chunked = false;
  std::vector<std::string> headers = {};
};

HttpAnswer Http(const std::string& base, const HttpRequest& request) {
  HttpAnswer answer;
  CURL* curl = curl_easy_init();
  curl_slist* headers = nullptr;
  for (const auto& header : request.headers) {
    headers = curl_slist_append(headers, header.c_str());
  }
  Upload upload;
  const std::string url = base.substr(0, base.size() - 1) + request.path;
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  // The path goes as written: "/../x" is the server's to refuse.
  curl_easy_setopt(curl, CURLOPT_PATH_AS_IS, 1L);
  curl_easy_setopt(curl, CURLOPT_TIMEOUT, 30L);
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &Collect);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer.body);
  curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &Collect);
  curl_easy_setopt(curl, CURLOPT_HEADERDATA, &answer.headers);
  if (request.method == "HEAD") {
    curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
  } else if (request.chunked) {
    upload.data = request.body.value_or("");
    curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, &Feed);
    curl_easy_setopt(curl, CURLOPT_READDATA, &upload);
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    headers = curl_slist_append(headers, "Transfer-Encoding: chunked");
  } else if (request.body) {
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body->c_str());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE,
                     static_cast<curl_off_t>(request.body->size()));
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.c_str());
  } else if (request.method != "GET") {
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.c_str());
  }
  curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  answer.code = curl_easy_perform(curl);
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &answer.status);
  curl_slist_free_all(headers);
  curl_easy_cleanup(curl);
  return answer;
}

bool HasHeader(const HttpAnswer& answer, const std::string& line) {
  std::string lower = answer.headers;
  std::string want = line;
  for (auto* s : {&lower, &want}) {
    for (char& c : *s) c = static_cast<char>(std::tolower(c));
  }
  return lower.find(want + "\r\n") != std::string::npos;
}

const char kForm[] =
    "qln_EmailTo=sales%40example.org&qln_Subject=Catalog&qln_SendMode=1&"
    "qln_SortOrder=FullName%2CEmail&qln_FormIndex=2&FullName=Ann+Lee&"
    "Email=ann%40example.net";

// A real server on 127.0.0.1 with a port of its own, over a real store.
class ServerTest : public ::testing::Test {
 protected:
  void StartServer(delivery::Limits limits) {
    config_.limits = limits;
    store_ = store::OpenDataStore(dir_.dir / "data");
    policy_.AllowAddress("sales@example.org");
    limiter_ = std::make_unique<delivery::TokenBucketLimiter>(6000, 1000);
    handler_ = std::make_unique<delivery::Handler>(config_, *store_, policy_,
                                                   *limiter_);
    ServerOptions options;
    options.listen = "127.0.0.1:0";
    options.limits = limits;
    server_ = std::make_unique<Server>(*handler_, dir_.site, options);
    std::string error;
    ASSERT_TRUE(server_->Start(error)) << error;
    ASSERT_NE(server_->port(), 0);
  }
  void TearDown() override {
    if (server_) server_->Stop();
  }

  std::string base() const { return server_->BaseUrl(); }

  SiteFixture dir_;
  delivery::Config config_;
  std::unique_ptr<store::Store> store_;
  delivery::RecipientPolicy policy_;
  std::unique_ptr<delivery::TokenBucketLimiter> limiter_;
  std::unique_ptr<delivery::Handler> handler_;
  std::unique_ptr<Server> server_;
};

TEST_F(ServerTest, StaticFilesRoutesAndBodyLimits) {
  delivery::Limits limits;
  limits.max_body = 4096;
  StartServer(limits);
  EXPECT_EQ(base(),
            "http://127.0.0.1:" + std::to_string(server_->port()) + "/");

  const auto post = [](std::string body, bool chunked) {
    return HttpRequest{"POST",
                       "/cgi-bin/formmail",
                       std::move(body),
                       chunked,
                       {"Content-Type: application/x-www-form-urlencoded",
                        "Referer: http://127.0.0.1/page.html"}};
  };
  const std::string too_big = std::string(kForm) + "&Comments=" +
                              std::string(limits.max_body + 10000, 'x');
  const struct {
    const char* what;
    HttpRequest request;
    long status;
    const char* body_part = "";
    const char* header = "";  // "" when not checked
  } cases[] = {
      {"index",
       {"GET", "/"},
       200,
       "<p>home</p>",
       "Content-Type: text/html; charset=utf-8"},
      {"head", {"HEAD", "/sub/page.html"}, 200, "", "Content-Length: 10"},
      {"nosniff",
       {"GET", "/form%20page.html"},
       200,
       "<p>lone</p>",
       "X-Content-Type-Options: nosniff"},
      {"encoded dot-dot", {"GET", "/%2e%2e/outside/secret.txt"}, 404},
      {"NUL", {"GET", "/index.html%00.css"}, 400},
      {"unknown", {"GET", "/nothing"}, 404, "Not found"},
      {"put",
       {"PUT", "/style.css", "p{color:red}"},
       405,
       "",
       "Allow: GET, HEAD"},
      {"form by GET", {"GET", "/cgi-bin/formmail"}, 405},
      {"declared too large", post(too_big, false), 413},
      {"chunked too large", post(too_big, true), 413, "",
       "X-Content-Type-Options: nosniff"},
  };
  for (const auto& c : cases) {
    const HttpAnswer answer = Http(base(), c.request);
    ASSERT_EQ(answer.code, CURLE_OK)
        << c.what << ": " << curl_easy_strerror(answer.code);
    EXPECT_EQ(answer.status, c.status) << c.what;
    EXPECT_NE(answer.body.find(c.body_part), std::string::npos)
        << c.what << ": " << answer.body;
    if (*c.header) {
      EXPECT_TRUE(HasHeader(answer, c.header)) << c.what << answer.headers;
    }
    if (c.status == 404) {
      EXPECT_EQ(answer.body.find("secret"), std::string::npos) << c.what;
    }
  }
  // Nothing refused was stored.
  EXPECT_TRUE(store_->List({}).empty());

  // A form that fits, as a whole body and in chunks, is stored with the
  // client's address as the server saw it.
  for (bool chunked : {false, true}) {
    const HttpAnswer answer = Http(base(), post(kForm, chunked));
    ASSERT_EQ(answer.code, CURLE_OK);
    EXPECT_EQ(answer.status, 200) << answer.body;
    EXPECT_TRUE(HasHeader(answer, "X-Content-Type-Options: nosniff"));
  }
  const auto records = store_->List({});
  ASSERT_EQ(records.size(), 2u);
  for (const auto& record : records) {
    EXPECT_EQ(record.client, "127.0.0.1");
    EXPECT_EQ(record.recipient, "sales@example.org");
    EXPECT_EQ(record.fields,
              (std::vector<store::Field>{{"FullName", "Ann Lee"},
                                         {"Email", "ann@example.net"}}));
  }
}

// Waits at most `seconds` for the peer to close `fd`; true when it did.
bool ClosedByPeer(int fd, int seconds) {
  const auto end = Clock::now() + std::chrono::seconds(seconds);
  while (Clock::now() < end) {
    pollfd p{fd, POLLIN, 0};
    if (poll(&p, 1, 100) > 0) {
      char c;
      const ssize_t n = recv(fd, &c, 1, 0);
      if (n <= 0) return true;
    }
  }
  return false;
}

int Connect(uint16_t port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address),
            0);
  return fd;
}

TEST_F(ServerTest, OneAddressGetsFewConnectionsAndSlowClientsAreCutOff) {
  delivery::Limits limits;
  limits.connections_per_ip = 2;
  limits.timeout_seconds = 1;
  StartServer(limits);
  // Two idle connections hold the address's share; a third is closed at
  // once.
  const int first = Connect(server_->port());
  const std::string partial = "POST /cgi-bin/formmail HTTP/1.1\r\nHost: x\r\n";
  ASSERT_EQ(send(first, partial.data(), partial.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(partial.size()));
  const int second = Connect(server_->port());
  const int third = Connect(server_->port());
  EXPECT_TRUE(ClosedByPeer(third, 10));
  // A client that stops half-way through its headers is dropped by the
  // timeout, and so is one that never says anything.
  EXPECT_TRUE(ClosedByPeer(first, 20));
  EXPECT_TRUE(ClosedByPeer(second, 20));
  for (int fd : {first, second, third}) close(fd);
  // The share is free again once the server has finished with the closed
  // connections, which it does on their own threads: wait for it, bounded.
  int status = 0;
  for (int i = 0; i < 100 && status != 200; ++i) {
    if (i > 0) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    status = Http(base(), {"GET", "/style.css"}).status;
  }
  EXPECT_EQ(status, 200);
  EXPECT_TRUE(store_->List({}).empty());
}

// --- The delivery worker --------------------------------------------------

class RecordingTransport : public store::Transport {
 public:
  store::SendResult Send(const std::string&, const std::vector<std::string>&,
                         const std::string& message) override {
    std::lock_guard lock(mutex_);
    messages_.push_back(message);
    return {store::SendResult::Kind::kSent, "250 ok"};
  }
  std::vector<std::string> messages() {
    std::lock_guard lock(mutex_);
    return messages_;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> messages_;
};

store::SubmissionRecord Queued(const std::string& key) {
  store::SubmissionRecord record;
  record.key = key;
  record.received_at = std::time(nullptr);
  record.recipient = "sales@example.org";
  record.mail_from = "forms@example.org";
  record.message_id = "<" + key + "@example.org>";
  record.message = "Subject: " + key + "\r\n\r\nbody\r\n";
  record.status = store::Status::kQueued;
  return record;
}

bool WaitUntil(const std::function<bool()>& done, int seconds) {
  const auto end = Clock::now() + std::chrono::seconds(seconds);
  while (Clock::now() < end) {
    if (done()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return done();
}

TEST(DeliveryWorker, SendsWhatIsQueuedBeforeAndAfterItStartsOnce) {
  TempDir dir;
  auto store = store::OpenDataStore(dir / "data");
  RecordingTransport transport;
  auto before = Queued("before");
  store->Add(before);
  DeliveryWorker worker(*store, transport, store::OutboxSettings{});
  worker.Start();
  auto after = Queued("after");
  store->Add(after);
  worker.Wake();
  const auto sent = [&](int64_t id) {
    return store->Get(id)->status == store::Status::kSent;
  };
  EXPECT_TRUE(WaitUntil([&] { return sent(before.id) && sent(after.id); }, 30));
  worker.Stop();
  worker.Stop();
  const auto messages = transport.messages();
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_NE(messages[0], messages[1]);
}

// --- `formwiz submissions` over a real store -----------------------------

TEST(SubmissionsCommand, ListsShowsExportsRetriesAndPurges) {
  const char* bin = std::getenv("FORMWIZ_BIN");
  if (!bin || !*bin) GTEST_SKIP() << "FORMWIZ_BIN is not set";
  TempDir dir;
  const std::string data = dir / "data";
  {
    auto store = store::OpenDataStore(data);
    auto a = Queued("a");
    a.received_at = 1795514400;  // 2026-11-24T10:00:00Z
    a.status = store::Status::kFailed;
    a.attempts = 3;
    a.subject = "Catalog\r\nBcc: x@example.org";
    a.page = "http://example.org/p.html";
    a.fields = {{"Name", "Ann, \"A\""}, {"Email", "ann@example.net"}};
    store->Add(a);
    auto b = Queued("b");
    b.received_at = 1795514460;
    b.status = store::Status::kSpam;
    b.message.clear();
    b.fields = {{"Name", "Bob"}, {"Comments", "two\nlines"}};
    store->Add(b);
  }
  const auto formwiz = [&](std::vector<std::string> args) {
    args.insert(args.begin(), bin);
    args.insert(args.end(), {"--data", data});
    return testing::RunProgram(args);
  };

  ProgramRun run = formwiz({"submissions", "list"});
  ASSERT_EQ(run.status, 0) << run.err;
  // A control character in a value cannot fake a line of its own.
  EXPECT_EQ(run.out,
            "1  2026-11-24T10:00:00Z  failed  sales@example.org  "
            "Catalog\\r\\nBcc: x@example.org  http://example.org/p.html\n"
            "2  2026-11-24T10:01:00Z  spam  sales@example.org    \n");

  run = formwiz({"submissions", "list", "--json", "--status", "spam"});
  ASSERT_EQ(run.status, 0) << run.err;
  const auto spam = nlohmann::json::parse(run.out);
  ASSERT_EQ(spam.size(), 1u);
  EXPECT_EQ(spam[0]["id"], 2);
  EXPECT_EQ(spam[0]["received_at"], "2026-11-24T10:01:00Z");
  EXPECT_TRUE(spam[0]["sent_at"].is_null());
  EXPECT_EQ(spam[0]["fields"][1]["value"], "two\nlines");

  run = formwiz({"submissions", "show", "1", "--json"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(nlohmann::json::parse(run.out)["message"],
            "Subject: a\r\n\r\nbody\r\n");
  run = formwiz({"submissions", "show", "1"});
  EXPECT_NE(run.out.find("subject: Catalog\\r\\nBcc"), std::string::npos);
  EXPECT_NE(run.out.find("  Name: Ann, \"A\"\n"), std::string::npos);
  run = formwiz({"submissions", "show", "99"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("99"), std::string::npos);

  // One column per name in the order names first appear, quoted where RFC
  // 4180 asks.
  run = formwiz({"submissions", "export"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out,
            "id,received_at,status,page,Name,Email,Comments\r\n"
            "1,2026-11-24T10:00:00Z,failed,http://example.org/p.html,"
            "\"Ann, \"\"A\"\"\",ann@example.net,\r\n"
            "2,2026-11-24T10:01:00Z,spam,,Bob,,\"two\nlines\"\r\n");

  // Without a mail server, retry only makes the failed mail due again.
  run = formwiz({"submissions", "retry", "1"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("due again: 1"), std::string::npos) << run.out;

  // The default purge leaves the mail that is queued again alone.
  run = formwiz({"submissions", "purge"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "deleted 1\n");
  auto store = store::OpenDataStore(data);
  const auto left = store->List({});
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(left[0].id, 1);

  run = formwiz({"submissions", "list", "--status", "lost"});
  EXPECT_EQ(run.status, 2);
  run =
      testing::RunProgram({bin, "submissions", "list", "--data", dir / "none"});
  EXPECT_EQ(run.status, 1);
}

}  // namespace
}  // namespace formwiz::serve
