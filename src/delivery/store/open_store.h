// Chooses the store engine from the configuration: a PostgreSQL connection
// string shares one database between processes and machines; none keeps
// the embedded SQLite file in the data folder.
#pragma once

#include <memory>
#include <string>

#include "delivery/store/store.h"

namespace formwiz::store {

// `url` empty: OpenDataStore(data_dir). A postgresql:// or postgres:// URL,
// or libpq's "host=... dbname=..." string: a PostgresStore. Anything else
// is refused. Throws StoreError.
std::unique_ptr<Store> OpenStore(const std::string& url,
                                 const std::string& data_dir);

// How messages name the store OpenStore opens: the data folder, or
// "PostgreSQL" (the URL may hold a password, so it is never shown).
std::string StoreName(const std::string& url, const std::string& data_dir);

}  // namespace formwiz::store
