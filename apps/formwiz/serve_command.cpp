#include "serve_command.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <iostream>
#include <memory>

#include "delivery/address.h"
#include "delivery/handler.h"
#include "delivery/rate_limit.h"
#include "delivery/store/open_store.h"
#include "serve/delivery_worker.h"
#include "serve/page_recipients.h"
#include "serve/server.h"
#include "serve/static_site.h"

namespace formwiz::cli {
namespace {

constexpr char kPrefix[] = "formwiz serve: ";

bool IsHtml(const std::string& url) {
  const auto ends = [&](const char* end) {
    const std::string e(end);
    if (url.size() < e.size()) return false;
    return std::equal(e.rbegin(), e.rend(), url.rbegin(), [](char a, char b) {
      return a == std::tolower(static_cast<unsigned char>(b));
    });
  };
  return ends(".html") || ends(".htm");
}

// Allows the addresses the served pages' forms name, and gives a line per
// page saying what it allows, so that the person sees why a post is
// refused. A value that is a configured alias needs nothing more; any other
// value that is not one address is left out (a post naming it is refused).
std::string AllowPageRecipients(const serve::StaticSite& site,
                                const delivery::Config& config,
                                delivery::RecipientPolicy& policy) {
  std::string lines;
  for (const serve::ServedFile& file : site.Files()) {
    if (!IsHtml(file.url)) continue;
    const auto recipients = serve::PageFileRecipients(file.path);
    if (!recipients) continue;  // not a page file: served, not read
    std::string line = "page " + file.url + ": ";
    if (recipients->empty()) {
      line += "no form names a recipient";
    } else {
      line += "recipients";
      for (const std::string& value : *recipients) {
        line += ' ';
        if (config.aliases.count(value)) {
          line += value + " (alias)";
        } else if (const auto address = delivery::ParseSingleAddress(value)) {
          policy.AllowAddress(*address);
          line += *address;
        } else {
          line += "\"" + value + "\" (not an address: refused)";
        }
      }
    }
    lines += line + '\n';
  }
  return lines;
}

}  // namespace

std::optional<delivery::Config> CommandConfig(
    const std::optional<std::string>& file,
    const std::optional<std::string>& smtp,
    const std::optional<std::string>& from, const char* prefix) {
  delivery::Config config;
  if (file) {
    std::string error;
    auto loaded = delivery::LoadConfig(*file, error);
    if (!loaded) {
      std::cerr << prefix << error << '\n';
      return std::nullopt;
    }
    config = std::move(*loaded);
  }
  if (smtp) config.smtp.url = *smtp;
  if (from) config.from = *from;
  if (config.CanSend()) {
    // Every mail leaves from this one configured address; a visitor's
    // address goes in Reply-To, never here.
    const auto sender = delivery::ParseSingleAddress(config.from);
    if (!sender) {
      std::cerr << prefix
                << (config.from.empty()
                        ? "sending mail needs a sender: --from ADDRESS or "
                          "[mail] from"
                        : "--from \"" + config.from +
                              "\" is not one e-mail address")
                << '\n';
      return std::nullopt;
    }
    config.from = *sender;
  }
  return config;
}

std::string DataDir(const std::optional<std::string>& flag,
                    const delivery::Config& config) {
  if (flag) return *flag;
  if (!config.data_dir.empty()) return config.data_dir;
  return delivery::DefaultDataDir();
}

int RunServe(const ServeOptions& options) {
  auto config =
      CommandConfig(options.config, options.smtp, options.from, kPrefix);
  if (!config) return kExitFailure;
  if (options.listen) config->listen = *options.listen;

  serve::StaticSite site;
  for (const std::string& path : options.paths) {
    std::string error;
    if (!site.Add(path, error)) {
      std::cerr << kPrefix << path << ": " << error << '\n';
      return kExitFailure;
    }
  }

  // SIGINT and SIGTERM are taken by sigwait below: they are blocked before
  // any thread starts, so that every thread inherits the mask and none is
  // interrupted. A client that goes away must not end the process.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);
  signal(SIGPIPE, SIG_IGN);

  const std::string data = DataDir(options.data, *config);
  std::unique_ptr<store::Store> store;
  try {
    store = store::OpenStore(config->store_url, data);
  } catch (const store::StoreError& e) {
    std::cerr << kPrefix << store::StoreName(config->store_url, data) << ": "
              << e.what() << '\n';
    return kExitFailure;
  }

  delivery::RecipientPolicy policy = delivery::PolicyFromConfig(*config);
  delivery::TokenBucketLimiter limiter(config->limits.rate_per_minute,
                                       config->limits.rate_burst);
  std::unique_ptr<store::Transport> transport = serve::TransportFor(*config);
  std::unique_ptr<serve::DeliveryWorker> worker;
  if (transport) {
    worker = std::make_unique<serve::DeliveryWorker>(*store, *transport,
                                                     config->outbox);
  }
  serve::DeliveryWorker* wake = worker.get();
  std::function<void()> on_queued;
  if (wake) on_queued = [wake] { wake->Wake(); };

  // The pages are read before the first request, and the policy is fixed
  // from then on: the handler reads it from several threads.
  const std::string page_lines = AllowPageRecipients(site, *config, policy);
  delivery::Handler handler(*config, *store, std::move(policy), limiter,
                            std::move(on_queued));
  serve::ServerOptions server_options;
  server_options.listen = config->listen;
  server_options.limits = config->limits;
  serve::Server server(handler, site, server_options);
  std::string error;
  if (!server.Start(error)) {
    std::cerr << kPrefix << error << '\n';
    return kExitFailure;
  }
  // The first line is what scripts wait for, with the port chosen.
  std::cout << "listening on " << server.BaseUrl() << '\n' << std::flush;
  std::cout << page_lines;
  if (worker) {
    worker->Start();
    std::cout << "mail: from " << config->from << " through "
              << (config->smtp.url.empty() ? config->sendmail
                                           : config->smtp.url)
              << '\n';
  } else {
    std::cout << "mail: no SMTP server configured; submissions wait in the "
                 "outbox (formwiz submissions list)\n";
  }
  std::cout << (config->store_url.empty() ? "data: " : "store: ")
            << store::StoreName(config->store_url, data) << '\n'
            << std::flush;

  int signal_number = 0;
  while (sigwait(&stop_signals, &signal_number) != 0) {
  }
  server.Stop();
  if (worker) worker->Stop();
  std::cout << "stopped\n" << std::flush;
  return kExitOk;
}

Command AddServeCommand(CLI::App& parent) {
  auto options = std::make_shared<ServeOptions>();
  CLI::App* app = parent.add_subcommand(
      "serve",
      "Serve page files and site folders, answer their forms at "
      "/cgi-bin/formmail, store every submission and mail it");
  app->add_option("PATH", options->paths,
                  "A page file (served at / plus its name) or a folder (its "
                  "files at their paths below /)");
  app->add_option("--listen", options->listen,
                  "HOST:PORT to bind (default 127.0.0.1:8080; port 0 picks a "
                  "free one; IPv6 as [::1]:PORT)");
  app->add_option("--data", options->data,
                  "The folder of the submissions store (default: the "
                  "configuration's, else $XDG_DATA_HOME/formwiz)");
  app->add_option("--smtp", options->smtp,
                  "The mail server, smtp://host[:port] or smtps://...; "
                  "without one, submissions wait in the outbox");
  app->add_option("--from", options->from, "The sender of every mail");
  app->add_option("--config", options->config, "A TOML configuration file");
  app->footer(
      "The first line on standard output is \"listening on "
      "http://HOST:PORT/\". With no configuration, only the addresses that "
      "the served pages' forms name receive mail. SIGINT or SIGTERM stops "
      "the server after the requests under way.");
  return {app, [options] { return RunServe(*options); }};
}

}  // namespace formwiz::cli
