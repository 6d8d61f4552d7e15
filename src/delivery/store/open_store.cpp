#include "delivery/store/open_store.h"

#include "delivery/store/postgres_store.h"
#include "delivery/store/sqlite_store.h"

namespace formwiz::store {

std::unique_ptr<Store> OpenStore(const std::string& url,
                                 const std::string& data_dir) {
  if (url.empty()) return OpenDataStore(data_dir);
  if (PostgresStore::IsConnectionString(url)) {
    return std::make_unique<PostgresStore>(url);
  }
  // The URL may hold a password: it is not repeated.
  throw StoreError(
      "store: the store URL is neither postgresql://... nor "
      "\"host=... dbname=...\"");
}

std::string StoreName(const std::string& url, const std::string& data_dir) {
  return url.empty() ? data_dir : "PostgreSQL (store.url)";
}

}  // namespace formwiz::store
