#include "plaincontainer.hpp"

#include <cstring>

namespace plain {
namespace {

// ---- Pairs ----

void pair_free(gpointer data) {
  auto *pair = static_cast<KeyValue *>(data);
  g_free(pair->value);
  g_free(pair->value_user_string);
  g_free(pair->key_nice_name);
  g_free(pair->value_nice_name);
  g_free(pair->name_space);
  g_free(pair->complex_type_name);
  g_list_free_full(pair->tags, g_free);
  g_free(pair);
}

KeyValue *pair_copy(const KeyValue *source) {
  auto *pair = g_new0(KeyValue, 1);
  *pair = *source;
  pair->value = g_strdup(source->value);
  pair->value_user_string = g_strdup(source->value_user_string);
  pair->key_nice_name = g_strdup(source->key_nice_name);
  pair->value_nice_name = g_strdup(source->value_nice_name);
  pair->name_space = g_strdup(source->name_space);
  pair->complex_type_name = g_strdup(source->complex_type_name);
  pair->tags = nullptr;
  for (const GList *tag = source->tags; tag != nullptr; tag = tag->next)
    pair->tags = g_list_append(pair->tags, g_strdup(static_cast<const char *>(tag->data)));
  return pair;
}

// ---- Buckets and and-lists ----

void bucket_free(gpointer data) {
  auto *bucket = static_cast<Bucket *>(data);
  g_list_free_full(bucket->pairs, pair_free);
  g_free(bucket);
}

void and_list_free(gpointer data) {
  auto *and_list = static_cast<AndList *>(data);
  g_hash_table_destroy(and_list->keys);
  g_hash_table_destroy(and_list->wildcards);
  g_free(and_list);
}

AndList *add_and_list(Container *container) {
  auto *and_list = g_new0(AndList, 1);
  and_list->keys = g_hash_table_new_full(nullptr, nullptr, nullptr, bucket_free);
  and_list->wildcards = g_hash_table_new_full(g_str_hash, g_str_equal, nullptr, bucket_free);
  container->and_lists = g_list_append(container->and_lists, and_list);
  container->current = and_list;
  return and_list;
}

void rebuild_index(Container *container) {
  if (container->index != nullptr)
    g_array_free(container->index, TRUE);
  container->index = g_array_new(FALSE, FALSE, sizeof(KeyValue *));
  GHashTableIter iterator;
  gpointer bucket;
  g_hash_table_iter_init(&iterator, container->current->keys);
  while (g_hash_table_iter_next(&iterator, nullptr, &bucket))
    g_array_append_val(container->index, static_cast<Bucket *>(bucket)->pairs->data);
}

void add_pair(Container *container, KeyValue *pair) {
  GHashTable *table = pair->key_wildcard ? container->current->wildcards : container->current->keys;
  gpointer name = pair->key_wildcard ? pair->value : GUINT_TO_POINTER(pair->key);
  auto *bucket = static_cast<Bucket *>(g_hash_table_lookup(table, name));
  if (bucket == nullptr) {
    bucket = g_new0(Bucket, 1);
    bucket->key = pair->key;
    g_hash_table_insert(table, name, bucket);
  }
  bucket->pairs = g_list_append(bucket->pairs, pair);
}

void copy_table(GHashTable *to, GHashTable *from) {
  GHashTableIter iterator;
  gpointer name;
  gpointer data;
  g_hash_table_iter_init(&iterator, from);
  while (g_hash_table_iter_next(&iterator, &name, &data)) {
    auto *bucket = g_new0(Bucket, 1);
    bucket->key = static_cast<Bucket *>(data)->key;
    for (const GList *at = static_cast<Bucket *>(data)->pairs; at != nullptr; at = at->next)
      bucket->pairs =
          g_list_append(bucket->pairs, pair_copy(static_cast<const KeyValue *>(at->data)));
    g_hash_table_insert(to, name, bucket);
  }
}

// ---- Record ----

template <typename T>
void write_number(GByteArray *array, T value) {
  g_byte_array_append(array, reinterpret_cast<const guint8 *>(&value), sizeof value);
}
void write_text(GByteArray *array, const char *text) {
  const std::size_t length = std::strlen(text);
  write_number(array, static_cast<guint16>(length));
  g_byte_array_append(array, reinterpret_cast<const guint8 *>(text), static_cast<guint>(length));
}
void write_pair(GByteArray *array, const KeyValue *pair) {
  write_number(array, guint8{245});
  write_text(array, g_quark_to_string(pair->key));
  write_number(array, static_cast<guint8>(pair->key_wildcard));
  write_text(array, pair->name_space);
  write_text(array, pair->key_nice_name);
  write_text(array, pair->value);
  write_number(array, static_cast<guint8>(pair->value_wildcard));
  write_text(array, pair->value_nice_name);
  write_text(array, pair->value_user_string);
  write_text(array, pair->complex_type_name);
  write_number(array, static_cast<guint8>(pair->negated));
  write_number(array, static_cast<guint8>(pair->value_type));
  write_number(array, static_cast<guint16>(g_list_length(pair->tags)));
  for (const GList *tag = pair->tags; tag != nullptr; tag = tag->next)
    write_text(array, static_cast<const char *>(tag->data));
}
void write_table(GByteArray *array, GHashTable *table) {
  write_number(array, static_cast<guint16>(g_hash_table_size(table)));
  GHashTableIter iterator;
  gpointer data;
  g_hash_table_iter_init(&iterator, table);
  while (g_hash_table_iter_next(&iterator, nullptr, &data)) {
    auto *bucket = static_cast<Bucket *>(data);
    write_number(array, guint8{244});
    write_number(array, static_cast<guint16>(g_list_length(bucket->pairs)));
    for (const GList *at = bucket->pairs; at != nullptr; at = at->next)
      write_pair(array, static_cast<const KeyValue *>(at->data));
  }
}

template <typename T>
T read_number(const GByteArray *array, guint32 *at) {
  g_assert(array->len >= *at + sizeof(T));
  T value;
  std::memcpy(&value, array->data + *at, sizeof value);
  *at += static_cast<guint32>(sizeof value);
  return value;
}
char *read_text(const GByteArray *array, guint32 *at) {
  const auto length = read_number<guint16>(array, at);
  g_assert(array->len >= *at + length);
  char *text = g_strndup(reinterpret_cast<const char *>(array->data + *at), length);
  *at += length;
  return text;
}
KeyValue *read_pair(const GByteArray *array, guint32 *at) {
  // Texts are read first, and then copied into the pair.
  KeyValue texts{};
  read_number<guint8>(array, at);
  char *key = read_text(array, at);
  texts.key = g_quark_from_string(key);
  texts.key_wildcard = read_number<guint8>(array, at);
  texts.name_space = read_text(array, at);
  texts.key_nice_name = read_text(array, at);
  texts.value = read_text(array, at);
  texts.value_wildcard = read_number<guint8>(array, at);
  texts.value_nice_name = read_text(array, at);
  texts.value_user_string = read_text(array, at);
  texts.complex_type_name = read_text(array, at);
  texts.negated = read_number<guint8>(array, at);
  texts.value_type = read_number<guint8>(array, at);
  texts.value_settable = texts.value_wildcard;
  KeyValue *pair = pair_copy(&texts);
  g_free(key);
  g_free(texts.name_space);
  g_free(texts.key_nice_name);
  g_free(texts.value);
  g_free(texts.value_nice_name);
  g_free(texts.value_user_string);
  g_free(texts.complex_type_name);
  for (guint16 tags = read_number<guint16>(array, at); tags > 0; --tags)
    pair->tags = g_list_append(pair->tags, read_text(array, at));
  return pair;
}

// ---- Matching ----

void step(const KeyValue *container, const KeyValue *containee, gboolean *fail, gboolean *matched) {
  if (container == nullptr) {
    if (!containee->negated)
      *fail = TRUE;
    return;
  }
  if (std::strcmp(containee->name_space, "") != 0 &&
      std::strcmp(containee->name_space, container->name_space) != 0)
    *fail = TRUE;
  else if (container->value_wildcard || containee->value_wildcard)
    *matched = TRUE;
  else
    *(std::strcmp(container->value, containee->value) == 0 ? matched : fail) = TRUE;
}

gboolean fits(const AndList *facts, const AndList *tests) {
  GHashTableIter iterator;
  gpointer name;
  gpointer data;
  g_hash_table_iter_init(&iterator, tests->keys);
  while (g_hash_table_iter_next(&iterator, &name, &data)) {
    auto *found = static_cast<Bucket *>(g_hash_table_lookup(facts->keys, name));
    gboolean fail = FALSE;
    gboolean matched = FALSE;
    for (const GList *test = static_cast<Bucket *>(data)->pairs; test && !fail; test = test->next) {
      const auto *containee = static_cast<const KeyValue *>(test->data);
      if (found == nullptr)
        step(nullptr, containee, &fail, &matched);
      for (const GList *fact = found ? found->pairs : nullptr; fact && !fail; fact = fact->next)
        step(static_cast<const KeyValue *>(fact->data), containee, &fail, &matched);
    }
    if (fail || !matched)
      return FALSE;
  }
  return TRUE;
}

} // namespace

Container *container_new(guint32 type) {
  auto *container = g_new0(Container, 1);
  container->type = type;
  add_and_list(container);
  rebuild_index(container);
  return container;
}

void container_free(Container *container) {
  g_list_free_full(container->and_lists, and_list_free);
  g_list_free_full(container->tags, g_free);
  g_array_free(container->index, TRUE);
  g_free(container);
}

Container *container_copy(const Container *source) {
  auto *container = g_new0(Container, 1);
  container->type = source->type;
  container->internal = source->internal;
  for (const GList *at = source->and_lists; at != nullptr; at = at->next) {
    const auto *from = static_cast<const AndList *>(at->data);
    AndList *to = add_and_list(container);
    copy_table(to->keys, from->keys);
    copy_table(to->wildcards, from->wildcards);
  }
  rebuild_index(container);
  return container;
}

void container_add(Container *container, const char *key, const char *value, const char *name_space,
                   const char *nice_name, gboolean open) {
  auto *pair = g_new0(KeyValue, 1);
  pair->key = g_quark_from_string(key);
  pair->value = g_strdup(value);
  pair->value_type = 4;
  pair->value_settable = open;
  pair->value_wildcard = open;
  pair->value_user_string = g_strdup("");
  pair->key_nice_name = g_strdup(nice_name);
  pair->value_nice_name = g_strdup("");
  pair->name_space = g_strdup(name_space);
  pair->complex_type_name = g_strdup("");
  add_pair(container, pair);
  rebuild_index(container);
}

void container_set_value(Container *container, const char *key, const char *value) {
  auto *bucket = static_cast<Bucket *>(
      g_hash_table_lookup(container->current->keys, GUINT_TO_POINTER(g_quark_from_string(key))));
  auto *pair = static_cast<KeyValue *>(bucket->pairs->data);
  g_free(pair->value);
  pair->value = g_strdup(value);
  pair->value_wildcard = FALSE;
}

void container_serialize(const Container *container, GByteArray *array) {
  write_number(array, guint8{242});
  write_number(array, static_cast<guint16>(g_list_length(container->and_lists)));
  write_number(array, static_cast<guint8>(container->type));
  write_number(array, static_cast<guint8>(container->internal));
  for (const GList *at = container->and_lists; at != nullptr; at = at->next) {
    const auto *and_list = static_cast<const AndList *>(at->data);
    write_number(array, guint8{243});
    write_table(array, and_list->keys);
    write_table(array, and_list->wildcards);
  }
  write_number(array, static_cast<guint16>(g_list_length(container->tags)));
}

Container *container_deserialize(const GByteArray *array) {
  guint32 at = 1;
  auto *container = g_new0(Container, 1);
  auto and_lists = read_number<guint16>(array, &at);
  container->type = read_number<guint8>(array, &at);
  container->internal = read_number<guint8>(array, &at);
  for (; and_lists > 0; --and_lists) {
    add_and_list(container);
    read_number<guint8>(array, &at);
    for (int table = 0; table < 2; ++table)
      for (auto buckets = read_number<guint16>(array, &at); buckets > 0; --buckets) {
        read_number<guint8>(array, &at);
        for (auto pairs = read_number<guint16>(array, &at); pairs > 0; --pairs)
          add_pair(container, read_pair(array, &at));
      }
  }
  read_number<guint16>(array, &at);
  rebuild_index(container);
  return container;
}

gboolean container_contains(const Container *container, const Container *containee) {
  for (const GList *facts = container->and_lists; facts != nullptr; facts = facts->next)
    for (const GList *tests = containee->and_lists; tests != nullptr; tests = tests->next)
      if (fits(static_cast<const AndList *>(facts->data),
               static_cast<const AndList *>(tests->data)))
        return TRUE;
  return FALSE;
}

} // namespace plain
