// Every log format begins with "%s" for a prefix, so that one can be given later in one place.
#pragma once

#include <glib.h>

namespace varro2 {

inline constexpr const char *log_prefix = "";

} // namespace varro2

// The format must begin with "%s". Without a log domain, as everything the library logs.
#define VARRO2_LOG(level, format, ...)                                                             \
  g_log(nullptr, level, format, ::varro2::log_prefix __VA_OPT__(, ) __VA_ARGS__)
#define VARRO2_WARNING(format, ...)                                                                \
  VARRO2_LOG(G_LOG_LEVEL_WARNING, format __VA_OPT__(, ) __VA_ARGS__)
#define VARRO2_CRITICAL(format, ...)                                                               \
  VARRO2_LOG(G_LOG_LEVEL_CRITICAL, format __VA_OPT__(, ) __VA_ARGS__)
#define VARRO2_INFO(format, ...) VARRO2_LOG(G_LOG_LEVEL_INFO, format __VA_OPT__(, ) __VA_ARGS__)
