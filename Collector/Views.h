// What the inspector shows: lists over the tables of Collector/Schema.h, each for GET /api/NAME.
#pragma once

#include <span>

namespace zorvane::collector {

struct View {
  const char* name;
  // Takes the number of rows; the newest come first.
  const char* sql;
};

// users     one row per user identifier of an application (user_id NULL: nobody had logged in), with how much came in
//           under it, and on how many devices.
// devices   as in the table, with the number of batches each has sent.
// sessions, sources, batches, events, requests  as in the tables, with the names of what they belong to.
std::span<const View> allViews();

// The inspector page: one document without anything from elsewhere.
const char* inspectorPage();

}  // namespace zorvane::collector
