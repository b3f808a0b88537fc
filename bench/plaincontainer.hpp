// The plain way to write the container, as a peer to measure against: hash tables of lists of
// records, every text duplicated.
#pragma once

#include <glib.h>

namespace plain {

struct KeyValue {
  GQuark key;
  char *value;
  GList *tags;
  guint32 value_type;
  gboolean value_settable;
  char *value_user_string;
  char *key_nice_name;
  char *value_nice_name;
  char *name_space;
  char *complex_type_name;
  gboolean key_wildcard;
  gboolean value_wildcard;
  gboolean negated;
  gboolean evaluated;
};

struct Bucket {
  GList *pairs;
  GQuark key;
};

struct AndList {
  GHashTable *keys;
  GHashTable *wildcards;
};

struct Container {
  GList *tags;
  GList *and_lists;
  AndList *current;
  GArray *index;
  gboolean internal;
  guint32 type;
};

Container *container_new(guint32 type);
void container_free(Container *container);
Container *container_copy(const Container *source);
void container_add(Container *container, const char *key, const char *value, const char *name_space,
                   const char *nice_name, gboolean open);
void container_set_value(Container *container, const char *key, const char *value);
void container_serialize(const Container *container, GByteArray *array);
Container *container_deserialize(const GByteArray *array);
gboolean container_contains(const Container *container, const Container *containee);

} // namespace plain
