// The two kinds of precondition. There is no other way to check one in this tree.
//
// GLib's own macros print the whole C++ signature; these print the bare function name, as they
// would in C. The expression is turned into text here and nowhere else: handed on through a second
// macro, NULL and constants in it would be expanded first.
#pragma once

#include <glib.h>

// Soft: the caller's mistake is logged at critical level and the call returns its neutral value.
// The optional value after the expression is what is returned.
#define VARRO2_EXPECT(expression, ...)                                                             \
  do {                                                                                             \
    if (!(expression)) [[unlikely]] {                                                              \
      g_return_if_fail_warning(nullptr, __func__, #expression);                                    \
      return __VA_ARGS__;                                                                          \
    }                                                                                              \
  } while (false)

// Hard: reports file, line, function and expression, then aborts.
#define VARRO2_ASSERT(expression)                                                                  \
  do {                                                                                             \
    if (!(expression)) [[unlikely]]                                                                \
      g_assertion_message_expr(nullptr, __FILE__, __LINE__, __func__, #expression);                \
  } while (false)

// Hard, for inner code that answers for a function or an expression of another name.
#define VARRO2_ASSERT_AS(function, text, condition)                                                \
  do {                                                                                             \
    if (!(condition)) [[unlikely]]                                                                 \
      g_assertion_message_expr(nullptr, __FILE__, __LINE__, function, text);                       \
  } while (false)
