// The lists of the API, over the tables of Collector/Schema.h. GET /api/NAME returns each.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "Collector/Query.h"

namespace zorvane::collector {

struct Column {
  enum class Type { String, Integer, JSON };
  const char* name;
  Type type = Type::String;
  const char* expression = nullptr;  // in SQL; null: the name
};

struct Filter {
  std::string parameter;
  // In SQL, with the value as a placeholder of the parameter's name; ":q" is a pattern for LIKE. Of "status" it is what
  // always holds.
  const char* condition;
};

struct View {
  const char* name;
  std::span<const Column> columns;
  const char* source;  // in SQL, from "FROM" on
  const char* id;      // the column that orders the rows and that "after" and "before" compare
  std::span<const Filter> filters;
  const char* statuses = "";  // for parseQuery
  bool isEvents = false;
};

// users     one row per application, user and segment ("user_id" null: not logged in); id: the last batch.
// devices   as in the table, with the user who was last on each; id: the request of the last registration.
// sessions  as in the table, with device, sources, the last batch and numbers; id: the first batch.
// sources, batches, requests  as in the tables.
// events    as in the table, with the columns of their batches.
std::span<const View> allViews();
// Throws std::out_of_range.
const View& viewNamed(const std::string& name);

// Refused requests, for the list of events. The column "id" is kEventIDs times the request, so that rows of both views
// can be merged; queries use the request's id.
const View& refusedView();
// A request with everything that is kept of it.
const View& requestView();

std::vector<std::string> filtersOf(const View& view);

// The SELECT with the columns in their order, then the id. It takes the query's filters, "after" and "before" as named
// placeholders, if there are any, and ":limit".
std::string queryOf(const View& view, const Query& query);

}  // namespace zorvane::collector
