// `formwiz-delivery-bench`: how fast `formwiz serve` takes submissions, and
// against what. It starts the real server on a page made from the bundled
// orb, posts that page's form from many concurrent clients, and measures in
// the same run, on the same machine, the ceilings: the same server answering
// a static file (what HTTP alone costs), and each store's rate of durable
// inserts of the same rows (what durability alone costs). Every accepted
// submission is committed before its answer, so the form cannot beat the
// lower ceiling; the target, for one process on SQLite, is half of it.
//
// The form is posted to 1, 2 and 4 handler processes sharing one store:
// one SQLite file, and one PostgreSQL database on a server the benchmark
// starts for itself (fsync on); the clients are spread over the processes.
//
//   formwiz-delivery-bench [--seconds N] [--clients N] [benchmark flags]
//
// Exit status 1 when the target is missed or the server could not be run.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "delivery/mail_message.h"
#include "delivery/store/postgres_store.h"
#include "delivery/store/sqlite_store.h"
#include "throwaway_postgres.h"

extern char** environ;

namespace formwiz::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct Options {
  double seconds = 5;
  int clients = 32;
};
Options options;

// What one load run measured.
struct Load {
  int64_t ok = 0;      // answers with status 200
  int64_t failed = 0;  // anything else, transport errors included
  double seconds = 0;
  std::vector<double> latencies_ms;  // of the successful requests

  double PerSecond() const { return seconds > 0 ? ok / seconds : 0; }
  double Percentile(double p) const {
    if (latencies_ms.empty()) return 0;
    std::vector<double> sorted = latencies_ms;
    const size_t k = std::min(
        sorted.size() - 1, static_cast<size_t>(p * (sorted.size() - 1) + 0.5));
    std::nth_element(sorted.begin(), sorted.begin() + k, sorted.end());
    return sorted[k];
  }
};

size_t Discard(char*, size_t size, size_t count, void*) { return size * count; }

// `clients` threads, each on one kept-alive connection, send requests to
// the `urls` (client c to the c-th modulo their number) for `seconds`: a
// POST of `body` when it is given, else a GET.
Load RunLoad(const std::vector<std::string>& urls,
             const std::optional<std::string>& body, int clients,
             double seconds) {
  std::vector<Load> per_client(clients);
  const Clock::time_point start = Clock::now();
  const Clock::time_point end =
      start + std::chrono::duration_cast<Clock::duration>(
                  std::chrono::duration<double>(seconds));
  std::vector<std::thread> threads;
  for (int c = 0; c < clients; ++c) {
    threads.emplace_back([&, c] {
      Load& load = per_client[c];
      const std::string& url = urls[c % urls.size()];
      CURL* curl = curl_easy_init();
      if (curl == nullptr) return;
      curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
      curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
      curl_easy_setopt(curl, CURLOPT_TIMEOUT, 30L);
      curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Discard);
      if (body) {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body->c_str());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE,
                         static_cast<long>(body->size()));
        // Where a browser says the form came from.
        curl_easy_setopt(curl, CURLOPT_REFERER, url.c_str());
      }
      while (Clock::now() < end) {
        const Clock::time_point sent = Clock::now();
        const CURLcode result = curl_easy_perform(curl);
        long status = 0;
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        if (result == CURLE_OK && status == 200) {
          ++load.ok;
          load.latencies_ms.push_back(
              std::chrono::duration<double, std::milli>(Clock::now() - sent)
                  .count());
        } else {
          ++load.failed;
        }
      }
      curl_easy_cleanup(curl);
    });
  }
  for (std::thread& t : threads) t.join();
  Load total;
  total.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  for (Load& load : per_client) {
    total.ok += load.ok;
    total.failed += load.failed;
    total.latencies_ms.insert(total.latencies_ms.end(),
                              load.latencies_ms.begin(),
                              load.latencies_ms.end());
  }
  return total;
}

// Runs `args` to its end; true when it exited with 0.
bool RunProgram(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (const std::string& a : args)
    argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0)
    return false;
  int status = 0;
  return waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

// The server under test, stopped with SIGTERM when the run ends.
class Server {
 public:
  bool Start(const std::vector<std::string>& args) {
    int out[2];
    if (pipe(out) != 0) return false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    std::vector<char*> argv;
    for (const std::string& a : args)
      argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    const int spawned =
        posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    if (spawned != 0) {
      close(out[0]);
      pid_ = 0;
      return false;
    }
    // The first line names the address; a server that dies first ends the
    // read with end of file.
    std::string line;
    char c = 0;
    while (line.size() < 200 && read(out[0], &c, 1) == 1 && c != '\n')
      line += c;
    // The rest of its output is not read; keep the pipe from filling.
    fcntl(out[0], F_SETFL, O_NONBLOCK);
    stdout_fd_ = out[0];
    const std::string prefix = "listening on ";
    if (line.rfind(prefix, 0) != 0) return false;
    url_ = line.substr(prefix.size());
    return true;
  }
  const std::string& url() const { return url_; }
  ~Server() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      int status = 0;
      waitpid(pid_, &status, 0);
    }
    if (stdout_fd_ >= 0) close(stdout_fd_);
  }

 private:
  pid_t pid_ = 0;
  int stdout_fd_ = -1;
  std::string url_;
};

// The posted body of the sample form: the bundled orb's Request Form as
// examples/new-form.json makes it, filled in as a visitor would.
std::string FormBody() {
  return "qln_SortOrder=FullName%2CEmail%2CAddress1%2CCity%2CState%2C"
         "PostalCode%2CRequest&qln_FormIndex=2&qln_OKMessage=Thank+you.+Your+"
         "catalog+is+on+its+way.&qln_SendMode=1&qln_Subject=Information+"
         "request+from+the+web+site&qln_EmailTo=sales%40example.org&"
         "FullName=Ada+Lovelace&Email=ada%40example.net&Address1=12+St+"
         "James%27s+Square&City=London&State=&PostalCode=SW1Y+4JH&"
         "Request=Your+catalog%2C+please.%0D%0AAnd+the+price+list.&"
         "qln_Website=";
}

// The row the handler stores for FormBody, composed the same way.
store::SubmissionRecord FormRecord(int n) {
  store::SubmissionRecord r;
  static std::atomic<int64_t> runs{0};
  r.key = "bench-" + std::to_string(n) + "-" + std::to_string(getpid()) + "-" +
          std::to_string(runs++);
  r.received_at = std::time(nullptr);
  r.page = "http://127.0.0.1/page.html";
  r.client = "127.0.0.1";
  r.form_index = 2;
  r.subject = "Information request from the web site";
  r.send_mode = "1";
  r.requested_to = r.recipient = "sales@example.org";
  r.fields = {{"FullName", "Ada Lovelace"},
              {"Email", "ada@example.net"},
              {"Address1", "12 St James's Square"},
              {"City", "London"},
              {"State", ""},
              {"PostalCode", "SW1Y 4JH"},
              {"Request", "Your catalog, please.\nAnd the price list."}};
  r.mail_from = "forms@example.org";
  r.message_id = "<" + r.key + "@example.org>";
  delivery::MailInput mail;
  mail.from = r.mail_from;
  mail.to = r.recipient;
  mail.subject = r.subject;
  mail.fields = r.fields;
  mail.page = r.page;
  mail.client = r.client;
  mail.received_at = r.received_at;
  mail.message_id = r.message_id;
  r.message = delivery::ComposeMail(mail);
  r.next_attempt_at = r.received_at;
  return r;
}

// What the runs found, for the summary after the benchmarks.
struct Figures {
  std::map<std::string, Load> form;  // by store and processes: "sqlite 1"
  std::optional<Load> page;
  double sqlite_per_second = 0;
  std::map<int, double> postgres_per_second;  // by connections
} figures;

struct Setup {
  fs::path dir;
  std::string page;
  std::unique_ptr<ThrowawayPostgres> postgres;  // null when not available
};
Setup* setup = nullptr;

// A temporary folder with the page, and a PostgreSQL server when one can be
// started.
std::optional<Setup> Prepare() {
  char pattern[] = "/tmp/formwiz-delivery-bench-XXXXXX";
  if (mkdtemp(pattern) == nullptr) return std::nullopt;
  Setup setup;
  setup.dir = pattern;
  setup.page = (setup.dir / "page.html").string();
  const std::string bin = FORMWIZ_BIN;
  if (!RunProgram({bin, "page", "new", setup.page}) ||
      !RunProgram(
          {bin, "page", "insert", setup.page, "--script",
           std::string(FORMWIZ_SOURCE_DIR) + "/examples/new-form.json"})) {
    std::fprintf(stderr, "delivery bench: could not make the page\n");
    return std::nullopt;
  }
  setup.postgres = std::make_unique<ThrowawayPostgres>();
  std::string error;
  if (!setup.postgres->Start(error)) {
    std::fprintf(stderr, "delivery bench: no PostgreSQL figures: %s\n",
                 error.c_str());
    setup.postgres.reset();
  }
  return setup;
}

// `processes` servers on one store, with rate limits that do not stand in
// the way of one client address sending thousands of posts. `name` keeps
// each run's store apart.
class Servers {
 public:
  bool Start(const std::string& name, bool postgres, int processes) {
    const fs::path dir = setup->dir / name;
    fs::create_directories(dir);
    const std::string config = (dir / "formwiz.toml").string();
    std::ofstream file(config);
    if (postgres) {
      file << "[store]\nurl = \"" << setup->postgres->ConnInfo() << "\"\n";
    }
    file << "[limits]\n"
            "rate_per_minute = 1000000\n"
            "rate_burst = 1000000\n"
            "connections_per_ip = 1024\n";
    file.close();
    for (int p = 0; p < processes; ++p) {
      servers_.push_back(std::make_unique<Server>());
      if (!servers_.back()->Start(
              {FORMWIZ_BIN, "serve", "--listen", "127.0.0.1:0", "--data",
               (dir / "data").string(), "--config", config, setup->page})) {
        std::fprintf(stderr, "delivery bench: the server did not start\n");
        return false;
      }
    }
    return true;
  }
  std::vector<std::string> Urls(const std::string& path) const {
    std::vector<std::string> urls;
    for (const auto& server : servers_) urls.push_back(server->url() + path);
    return urls;
  }

 private:
  std::vector<std::unique_ptr<Server>> servers_;
};

void Report(benchmark::State& state, const Load& load) {
  state.SetIterationTime(load.seconds);
  state.counters["per_second"] = load.PerSecond();
  state.counters["p50_ms"] = load.Percentile(0.5);
  state.counters["p99_ms"] = load.Percentile(0.99);
  state.counters["failed"] = static_cast<double>(load.failed);
}

std::string FormKey(bool postgres, int processes) {
  return std::string(postgres ? "postgresql " : "sqlite ") +
         std::to_string(processes);
}

void BM_PostForm(benchmark::State& state, bool postgres) {
  const int processes = static_cast<int>(state.range(0));
  if (postgres && !setup->postgres) {
    state.SkipWithError("no PostgreSQL server");
    return;
  }
  for (auto _ : state) {
    Servers servers;
    const std::string key = FormKey(postgres, processes);
    // One database for all the PostgreSQL runs: its table grows from run
    // to run, as a site's does.
    if (!servers.Start(
            (postgres ? "pg-" : "sqlite-") + std::to_string(processes),
            postgres, processes)) {
      state.SkipWithError("the server did not start");
      return;
    }
    Load load = RunLoad(servers.Urls("cgi-bin/formmail"), FormBody(),
                        options.clients, options.seconds);
    Report(state, load);
    figures.form[key] = std::move(load);
  }
}

void BM_StaticPage(benchmark::State& state) {
  for (auto _ : state) {
    Servers servers;
    if (!servers.Start("static", false, 1)) {
      state.SkipWithError("the server did not start");
      return;
    }
    Load load = RunLoad(servers.Urls("page.html"), std::nullopt,
                        options.clients, options.seconds);
    Report(state, load);
    figures.page = std::move(load);
  }
}

// Durable inserts of the same rows through `stores` (one thread each), each
// one after the other on its own store, for the configured time; gives rows
// per second.
double DurableInserts(std::vector<std::unique_ptr<store::Store>>& stores,
                      benchmark::State& state) {
  std::atomic<int64_t> rows{0};
  const Clock::time_point start = Clock::now();
  const Clock::time_point end =
      start + std::chrono::duration_cast<Clock::duration>(
                  std::chrono::duration<double>(options.seconds));
  std::vector<std::thread> threads;
  for (size_t t = 0; t < stores.size(); ++t) {
    threads.emplace_back([&, t] {
      int n = static_cast<int>(t) << 24;
      while (Clock::now() < end) {
        store::SubmissionRecord record = FormRecord(n++);
        stores[t]->Add(record);
        ++rows;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const double seconds =
      std::chrono::duration<double>(Clock::now() - start).count();
  state.SetIterationTime(seconds);
  const double per_second = static_cast<double>(rows) / seconds;
  state.counters["per_second"] = per_second;
  return per_second;
}

// One durable insert after the other, as one writer does: the same rows, the
// same store, the same settings (WAL, synchronous=FULL) as the server's.
void BM_SqliteDurableInsert(benchmark::State& state) {
  for (auto _ : state) {
    const fs::path dir = setup->dir / "sqlite-ceiling";
    fs::create_directories(dir);
    std::vector<std::unique_ptr<store::Store>> stores;
    stores.push_back(std::make_unique<store::SqliteStore>(
        (dir / store::SqliteStore::kFileName).string()));
    figures.sqlite_per_second = DurableInserts(stores, state);
  }
}

// The same through the PostgreSQL store, on `connections` connections at
// once: concurrent commits share the server's flushes of its log.
void BM_PostgresDurableInsert(benchmark::State& state) {
  const int connections = static_cast<int>(state.range(0));
  if (!setup->postgres) {
    state.SkipWithError("no PostgreSQL server");
    return;
  }
  for (auto _ : state) {
    std::vector<std::unique_ptr<store::Store>> stores;
    for (int c = 0; c < connections; ++c) {
      stores.push_back(
          std::make_unique<store::PostgresStore>(setup->postgres->ConnInfo()));
    }
    figures.postgres_per_second[connections] = DurableInserts(stores, state);
  }
}

bool ParseOwnFlags(int& argc, char** argv) {
  int kept = 1;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    auto value = [&](const char* flag) -> const char* {
      const std::string prefix = std::string(flag) + "=";
      if (arg.rfind(prefix, 0) == 0) return argv[i] + prefix.size();
      if (arg == flag && i + 1 < argc) return argv[++i];
      return nullptr;
    };
    if (const char* v = value("--seconds")) {
      options.seconds = std::atof(v);
    } else if (const char* v2 = value("--clients")) {
      options.clients = std::atoi(v2);
    } else {
      argv[kept++] = argv[i];
    }
  }
  argc = kept;
  return options.seconds > 0 && options.clients > 0 && options.clients <= 1024;
}

}  // namespace
}  // namespace formwiz::bench

int main(int argc, char** argv) {
  using namespace formwiz::bench;
  if (!ParseOwnFlags(argc, argv)) {
    std::fprintf(stderr,
                 "usage: formwiz-delivery-bench [--seconds N] [--clients N]\n");
    return 2;
  }
  curl_global_init(CURL_GLOBAL_DEFAULT);
  formwiz::delivery::InitMime();
  std::optional<Setup> prepared = Prepare();
  if (!prepared) return 1;
  setup = &*prepared;

  std::vector<benchmark::internal::Benchmark*> registered;
  for (bool postgres : {false, true}) {
    registered.push_back(
        benchmark::RegisterBenchmark(postgres ? "delivery/post_form/postgresql"
                                              : "delivery/post_form/sqlite",
                                     BM_PostForm, postgres)
            ->ArgName("processes")
            ->Arg(1)
            ->Arg(2)
            ->Arg(4));
  }
  registered.push_back(
      benchmark::RegisterBenchmark("ceiling/static_page", BM_StaticPage));
  registered.push_back(benchmark::RegisterBenchmark(
      "ceiling/sqlite_durable_insert", BM_SqliteDurableInsert));
  registered.push_back(
      benchmark::RegisterBenchmark("ceiling/postgresql_durable_insert",
                                   BM_PostgresDurableInsert)
          ->ArgName("connections")
          ->Arg(1)
          ->Arg(4));
  for (auto* b : registered) {
    b->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();

  int status = 1;
  if (figures.page) {
    std::printf("\n%d clients, %.0f s a run\n", options.clients,
                options.seconds);
    for (const auto& [key, load] : figures.form) {
      std::printf(
          "posted form, %-13s process(es): %6.0f submissions/s, p50 %6.2f "
          "ms, p99 %6.2f ms, %lld failed\n",
          key.c_str(), load.PerSecond(), load.Percentile(0.5),
          load.Percentile(0.99), static_cast<long long>(load.failed));
    }
    std::printf("static page: %8.0f answers/s, p50 %.2f ms, p99 %.2f ms\n",
                figures.page->PerSecond(), figures.page->Percentile(0.5),
                figures.page->Percentile(0.99));
    std::printf("sqlite insert: %6.0f durable rows/s, one writer\n",
                figures.sqlite_per_second);
    for (const auto& [connections, rate] : figures.postgres_per_second) {
      std::printf("postgresql insert: %6.0f durable rows/s, %d connection(s)\n",
                  rate, connections);
    }
    const auto sqlite_one = figures.form.find(FormKey(false, 1));
    if (sqlite_one != figures.form.end() && figures.sqlite_per_second > 0) {
      const double lower =
          std::min(figures.page->PerSecond(), figures.sqlite_per_second);
      const double ratio = sqlite_one->second.PerSecond() / lower;
      std::printf(
          "target: posted form, one process on SQLite, at least half of the "
          "lower ceiling (%.0f/s): %.2f, %s\n",
          lower, ratio, ratio >= 0.5 ? "met" : "missed");
      status = ratio >= 0.5 ? 0 : 1;
    }
  }
  std::error_code ignored;
  prepared->postgres.reset();
  fs::remove_all(prepared->dir, ignored);
  curl_global_cleanup();
  return status;
}
