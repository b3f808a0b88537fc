/* Asks the switch what is declared and draws the topics as a tree. Below a topic stands a line for
 * each declaration of it, with the other keys of its events.
 *
 *   topic_tree [--types]      with --types: of the types that can be registered
 */
#include <varro2/varro2.h>

#include <locale.h>
#include <string.h>

/* A node that others follow, one that is the last, and what stands below each of them. */
static const char *const utf8_lines[] = {"├── ", "└── ", "│   ", "    "};
static const char *const ascii_lines[] = {"|-- ", "`-- ", "|   ", "    "};
static const char *const *lines = ascii_lines;

/* "KEY, KEY=VALUE": the keys that are no topic levels, with those values that the declaration
 * gives. */
static void print_keys(const Event *event) {
  const char *separator = "";

  for (guint32 i = 0; i < event_get_key_count(event); i++) {
    const char *key = event_get_key_at(event, i);
    if (g_str_has_prefix(key, "topic"))
      continue;
    g_print("%s%s", separator, key);
    if (event_has_value_at(event, i))
      g_print("=%s", event_get_value_at(event, i));
    separator = ", ";
  }
  g_print("\n");
}

static void print_topic(const TopicNode *info) {
  if (info->name_space != NULL)
    g_print("%s:", info->name_space);
  g_print("%s", info->topic);
  if (info->nice_name != NULL)
    g_print(" (%s)", info->nice_name);
  g_print("\n");
}

static void draw(const GNode *node, const char *indent) {
  for (const GNode *child = node->children; child != NULL; child = child->next) {
    const TopicNode *info = child->data;
    const gboolean last = child->next == NULL;
    char *deeper = g_strconcat(indent, lines[last ? 3 : 2], NULL);
    GSList *oldest_first = g_slist_reverse(g_slist_copy(info->events));

    g_print("%s%s", indent, lines[last ? 1 : 0]);
    print_topic(info);
    for (const GSList *at = oldest_first; at != NULL; at = at->next) {
      g_print("%s%s* ", deeper, child->children != NULL ? lines[2] : "");
      print_keys(at->data);
    }
    draw(child, deeper);
    g_slist_free(oldest_first);
    g_free(deeper);
  }
}

static gboolean quit(gpointer loop) {
  g_main_loop_quit(loop);
  return G_SOURCE_REMOVE;
}

int main(int argc, char **argv) {
  const gboolean types = argc == 2 && strcmp(argv[1], "--types") == 0;
  if (argc > 1 && !types) {
    g_printerr("usage: topic_tree [--types]\n");
    return 2;
  }
  setlocale(LC_ALL, "");
  if (g_get_charset(NULL)) /* of the terminal: UTF-8 */
    lines = utf8_lines;

  EventQuery *query = event_query_new();
  GNode *tree =
      types ? event_query_get_declaration_type_tree(query) : event_query_get_topic_tree(query);

  g_print(".\n");
  draw(tree, "");
  event_query_free_topic_tree(tree);

  /* The handle goes when the loop runs the next time. */
  GMainLoop *loop = g_main_loop_new(NULL, FALSE);
  event_query_free(query);
  g_idle_add(quit, loop);
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  return 0;
}
