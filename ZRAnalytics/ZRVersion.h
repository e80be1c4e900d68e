// The version of the package: https://semver.org. CMake reads it from here. Usable from C.
#pragma once

// Changes of the interface that break applications, additions, corrections.
#define ZRANALYTICS_VERSION_MAJOR 1
#define ZRANALYTICS_VERSION_MINOR 0
#define ZRANALYTICS_VERSION_PATCH 0

// For the text below.
#define ZRANALYTICS_TEXT_OF_(number) #number
#define ZRANALYTICS_JOINED_(major, minor, patch) \
  ZRANALYTICS_TEXT_OF_(major) "." ZRANALYTICS_TEXT_OF_(minor) "." ZRANALYTICS_TEXT_OF_(patch)
// The three as text: "1.2.3".
#define ZRANALYTICS_VERSION \
  ZRANALYTICS_JOINED_(ZRANALYTICS_VERSION_MAJOR, ZRANALYTICS_VERSION_MINOR, ZRANALYTICS_VERSION_PATCH)
