#include "jsonoptions.hpp"

#include "preconditions.hpp"

JsonOptions *json_options_new() noexcept {
  return new JsonOptions;
}

void json_options_free(JsonOptions *options) noexcept {
  delete options;
}

void json_options_set_pretty_printing(JsonOptions *options, gboolean pretty_printing) noexcept {
  VARRO2_EXPECT(options != NULL);
  options->pretty_printing = pretty_printing;
}

gboolean json_options_get_pretty_printing(const JsonOptions *options) noexcept {
  return options->pretty_printing;
}

void json_options_use_only_strings_in_message(JsonOptions *options,
                                              gboolean only_strings) noexcept {
  VARRO2_EXPECT(options != NULL);
  options->only_strings_in_message = only_strings;
}

gboolean json_options_get_if_only_strings_in_message(const JsonOptions *options) noexcept {
  return options->only_strings_in_message;
}

void json_options_set_serialnumber(JsonOptions *options, const char *serialnumber) noexcept {
  VARRO2_EXPECT(options != NULL);
  if (serialnumber)
    options->serialnumber = serialnumber;
  else
    options->serialnumber.reset();
}

const char *json_options_get_serialnumber(const JsonOptions *options) noexcept {
  VARRO2_EXPECT(options != NULL, nullptr);
  return options->serialnumber ? options->serialnumber->c_str() : nullptr;
}

void json_options_set_onvif_namespace(JsonOptions *options, const char *ns) noexcept {
  VARRO2_EXPECT(options != NULL);
  VARRO2_EXPECT(ns != NULL);
  options->onvif_namespace = ns;
}

const char *json_options_get_onvif_namespace(const JsonOptions *options) noexcept {
  VARRO2_EXPECT(options != NULL, nullptr);
  return options->onvif_namespace.c_str();
}

void json_options_set_quor_namespace(JsonOptions *options, const char *ns) noexcept {
  VARRO2_EXPECT(options != NULL);
  VARRO2_EXPECT(ns != NULL);
  options->quor_namespace = ns;
}

const char *json_options_get_quor_namespace(const JsonOptions *options) noexcept {
  VARRO2_EXPECT(options != NULL, nullptr);
  return options->quor_namespace.c_str();
}

void json_options_set_format(JsonOptions *options, guint32 format) noexcept {
  options->format = format;
}

guint32 json_options_get_format(const JsonOptions *options) noexcept {
  return options->format;
}
