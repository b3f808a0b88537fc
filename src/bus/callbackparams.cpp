#include <varro2/eventutils.h>

#include <cstddef>

static_assert(offsetof(CallbackParams, key) == 0);
static_assert(offsetof(CallbackParams, value) == sizeof(char *));
static_assert(offsetof(BusWatcher, online) == 0);
static_assert(offsetof(BusWatcher, offline) == sizeof(void *));
static_assert(offsetof(BusWatcher, user_data) == 2 * sizeof(void *));

CallbackParams *callback_params_new(const char *key, const char *value) noexcept {
  CallbackParams *params = g_slice_new0(CallbackParams);
  params->key = g_strdup(key);
  params->value = g_strdup(value);
  return params;
}

void callback_params_free(CallbackParams *params) noexcept {
  if (params == nullptr)
    return;
  g_free(params->key);
  g_free(params->value);
  g_slice_free(CallbackParams, params);
}
