#pragma once

#include <varro2/jsonoptions.h>

#include <optional>
#include <string>

struct JsonOptions final {
  gboolean pretty_printing = FALSE;
  gboolean only_strings_in_message = TRUE;
  std::optional<std::string> serialnumber;
  std::string onvif_namespace{"tns1"};
  std::string quor_namespace{"tnsquor"};
  guint32 format = JSON_FORMAT_TAMLO;
};
