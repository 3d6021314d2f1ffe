// What the store holds, without the values.
#include <zor/platform/config_list.h>

#include "store.h"

namespace {

using zor::platform::Statement;
using zor::platform::Transaction;

struct Listing {
  uint32_t kind;
  const char *sql;  // gives id, instance, size and name
};

// An instance without values is one row without a name.
constexpr Listing kListings[] = {
    {ZOR_STORE_KIND_PARAMETER, "SELECT id, instance, length(value), NULL FROM parameters ORDER BY id, instance"},
    {ZOR_STORE_KIND_OBJECT,
     "SELECT class, instance, ifnull(length(CAST(value AS BLOB)), 0), name FROM objects"
     " LEFT JOIN object_values USING (class, instance) ORDER BY class, instance, name"},
    {ZOR_STORE_KIND_APPDATA, "SELECT item, 0, length(value), NULL FROM app_data ORDER BY item"},
};

int VisitRows(sqlite3 *db, const Listing &listing, ZOR_STORE_VISIT visit, void *context) {
  Statement query(db, listing.sql);
  int result = query.Find();
  for (; result == SQLITE_OK; result = query.Find()) {
    const ZOR_STORE_ENTRY entry = {listing.kind, query.Number(0), query.Number(1), query.Number(2), query.Text(3)};
    visit(&entry, context);
  }
  return result == zor::platform::kNotFound ? SQLITE_OK : result;
}

// The first read fixes the state that the others see. Only it can find the store busy, so nothing is visited twice.
int FixState(sqlite3 *db) {
  return Statement(db, "SELECT count(*) FROM sqlite_schema").Find();
}

}  // namespace

uint32_t ZOR_STORE_List(ZOR_STORE_VISIT visit, void *context) {
  if (visit == nullptr) return ZOR_STORE_E_ARGUMENT;
  return zor::platform::UseStore([&](sqlite3 *db) {
    Transaction transaction(db, "BEGIN");
    int result = transaction.result();
    if (result == SQLITE_OK) result = FixState(db);
    for (const Listing &listing : kListings) {
      if (result == SQLITE_OK) result = VisitRows(db, listing, visit, context);
    }
    return transaction.End(result);
  });
}
