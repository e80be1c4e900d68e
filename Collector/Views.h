// The lists that the inspector shows, over the tables of Collector/Schema.h. GET /api/NAME returns each.
#pragma once

#include <span>
#include <string>

namespace zorvane::collector {

struct Column {
  enum class Type { String, Integer };
  const char* name;
  Type type = Type::String;
  const char* expression = nullptr;  // in SQL; null: the name
};

struct View {
  const char* name;
  std::span<const Column> columns;
  // From "FROM" on; takes the number of rows as :limit. The newest rows come first.
  const char* source;
};

// Its SELECT, with the columns in their order.
std::string queryOf(const View& view);

// users     one row per application and user identifier (user_id NULL: not logged in), with numbers of devices,
//           sessions, batches and events.
// devices   as in the table, with the number of batches of each.
// sessions, sources, batches, events, requests  as in the tables, with columns of the tables they refer to.
std::span<const View> allViews();

// The inspector page: one HTML document that loads nothing from other sites.
const char* inspectorPage();

}  // namespace zorvane::collector
