/* The header that the package installs; pkg-config or -I says where. */
#include <zranalytics.h>
