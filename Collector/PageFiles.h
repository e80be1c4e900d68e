// The files of the inspector page. The build generates the definition from the folder Collector/Page.
#pragma once

#include <span>
#include <string_view>

namespace zorvane::collector {

struct PageFile {
  std::string_view path;  // of the request: "/" for index.html, "/page/NAME" for any other
  std::string_view type;
  std::string_view content;
};

std::span<const PageFile> pageFiles();

}  // namespace zorvane::collector
